#!/usr/bin/env python3
"""The headers for hosts compile by themselves, without a warning: tallow.h as C11 and C++20, the
others as C++17."""
import pathlib
import subprocess
import tempfile
import unittest

from tallow_tests import SOURCE
from tallow_tests.reports import main

INCLUDE = SOURCE / "include"
COMPILERS = {"c11": "x86_64-w64-mingw32-gcc-posix", "c++17": "x86_64-w64-mingw32-g++-posix",
             "c++20": "x86_64-w64-mingw32-g++-posix"}
STRICT = ["-Wall", "-Wextra", "-Wpedantic", "-Wshadow", "-Wconversion", "-Wsign-conversion",
          "-Werror", "-fsyntax-only"]


def compile_as(standard, text):
    suffix = ".c" if standard == "c11" else ".cpp"
    with tempfile.TemporaryDirectory() as folder:
        source = pathlib.Path(folder) / ("host" + suffix)
        source.write_text(text, encoding="utf-8")
        return subprocess.run([COMPILERS[standard], f"-std={standard}", *STRICT, f"-I{INCLUDE}",
                               str(source)], capture_output=True, text=True, check=False)


class Header(unittest.TestCase):
    def check(self, standard):
        # Included twice, with windows.h after it: neither the guard nor the packing may leak.
        text = ("#include <tallow/tallow.h>\n#include <tallow/tallow.h>\n"
                "struct Plain { char letter; long long number; };\n"
                "typedef char packingEnded[sizeof(struct Plain) == 16 ? 1 : -1];\n"
                "#include <windows.h>\n"
                "TallowPIDMMain entry = 0;\n").replace(
                    "= 0;", "= 0;" if standard == "c11" else "= nullptr;")
        result = compile_as(standard, text)
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_compiles_as_c11(self):
        self.check("c11")

    def test_compiles_as_cpp20(self):
        self.check("c++20")

    def test_each_cpp_header_stands_by_itself(self):
        headers = sorted(path.name for path in (INCLUDE / "tallow").glob("*.hpp"))
        self.assertIn("tallow.hpp", headers)
        for header in headers:
            with self.subTest(header=header):
                result = compile_as("c++17", f"#include <tallow/{header}>\n" * 2)
                self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_the_cpp_headers_bear_the_macros_of_windows_h(self):
        result = compile_as("c++20", "#include <windows.h>\n#include <tallow/tallow.hpp>\n")
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_defines_no_macro_but_its_guard(self):
        for standard, suffix in (("c11", "c"), ("c++20", "c++")):
            def macros(header):
                return set(subprocess.run(
                    [COMPILERS[standard], f"-std={standard}", f"-I{INCLUDE}", "-x", suffix, "-E",
                     "-dM", "-"], input=f"#include <stddef.h>\n#include <stdint.h>\n{header}",
                    capture_output=True, text=True, check=True).stdout.splitlines())
            added = macros("#include <tallow/tallow.h>\n") - macros("")
            self.assertEqual(added, {"#define TALLOW_TALLOW_H "})

    def test_a_wrong_use_is_noticed(self):
        for standard in COMPILERS:
            text = "#include <tallow/tallow.h>\nTallowPIDMMain entry = 3.5;\n"
            self.assertNotEqual(compile_as(standard, text).returncode, 0)


if __name__ == "__main__":
    main()

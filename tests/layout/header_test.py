#!/usr/bin/env python3
"""The host interface compiles by itself, as C11 and as C++20, without a warning."""
import pathlib
import subprocess
import tempfile
import unittest

from tallow_tests import SOURCE
from tallow_tests.reports import main

INCLUDE = SOURCE / "include"
COMPILERS = {"c11": "x86_64-w64-mingw32-gcc-posix", "c++20": "x86_64-w64-mingw32-g++-posix"}
STRICT = ["-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Werror", "-fsyntax-only"]


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

    def test_a_wrong_use_is_noticed(self):
        for standard in COMPILERS:
            text = "#include <tallow/tallow.h>\nTallowPIDMMain entry = 3.5;\n"
            self.assertNotEqual(compile_as(standard, text).returncode, 0)


if __name__ == "__main__":
    main()

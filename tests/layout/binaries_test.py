#!/usr/bin/env python3
"""What holds for every library and program that ships: how it is protected, what it needs and
what it says about itself. TALLOW_RELEASE_BINARIES names a folder to test instead of the build's."""
import json
import os
import pathlib
import re
import subprocess
import unittest

import tallow_tests
from tallow_tests import BUILD, SOURCE
from tallow_tests.reports import main

BIN = pathlib.Path(os.environ.get("TALLOW_RELEASE_BINARIES") or tallow_tests.BIN)
OBJDUMP = "x86_64-w64-mingw32-objdump"

# Parts of every Windows.
EVERYWHERE = {"kernel32.dll", "msvcrt.dll"}
NEEDED = {
    "tallowin.dll": EVERYWHERE | {"advapi32.dll", "comdlg32.dll", "user32.dll", "version.dll",
                                  "winmm.dll"},
    "csv.dll": EVERYWHERE,
    "tallow-feed.exe": EVERYWHERE | {"advapi32.dll"},
    "tallow-host.exe": EVERYWHERE,
    "tallow-inspect.exe": EVERYWHERE,
    "tallow-load.exe": EVERYWHERE | {"odbc32.dll"},
}
PROGRAMS = sorted(name for name in NEEDED if name.endswith(".exe"))


def shipped():
    """All names, with the language libraries."""
    return sorted([*NEEDED, *(path.name for path in BIN.glob("tallowin???.dll"))])


def headers(name):
    return subprocess.run([OBJDUMP, "-x", str(BIN / name)], capture_output=True, text=True,
                          check=True).stdout


def imported_libraries(name):
    return {library.lower() for library in re.findall(r"DLL Name: (\S+)", headers(name))}


class Binaries(unittest.TestCase):
    def test_there_are_language_libraries(self):
        self.assertIn("tallowinenu.dll", shipped())

    def test_are_at_a_random_place_without_executable_data(self):
        for name in shipped():
            with self.subTest(name):
                seen = headers(name)
                for flag in ("DYNAMIC_BASE", "HIGH_ENTROPY_VA", "NX_COMPAT"):
                    self.assertIn(flag, seen)
                # Without relocations an image is not moved. A library of texts needs none.
                if name in NEEDED:
                    self.assertRegex(seen, r"\d+ \.reloc ")

    def test_no_section_is_writable_and_executable(self):
        for name in shipped():
            sections = re.findall(r"^ *\d+ (\S+) .*\n +(.*)$", headers(name), re.MULTILINE)
            self.assertGreater(len(sections), 0, name)
            for section, flags in sections:
                if "CODE" in flags:
                    self.assertIn("READONLY", flags, f"{name}: {section}")

    def test_need_only_what_windows_has_and_what_ships(self):
        for name in shipped():
            with self.subTest(name):
                self.assertEqual(imported_libraries(name), NEEDED.get(name, set()))

    def test_check_their_stack(self):
        for name in NEEDED:
            with self.subTest(name):
                guard, checks = checks_of_the_stack(name)
                self.assertTrue(guard)
                # No function of this one has an array.
                if name != "csv.dll":
                    self.assertGreater(checks, 0)

    def test_each_source_is_compiled_with_the_guards(self):
        commands = json.loads((BUILD / "compile_commands.json").read_text(encoding="utf-8"))
        ours = [entry["command"] for entry in commands
                if re.search(r"/(src|tools)/[^ ]*\.cpp$|/libcsv\.c$", entry["file"])]
        self.assertGreater(len(ours), 60)
        debug = "CMAKE_BUILD_TYPE:STRING=Debug" in (BUILD / "CMakeCache.txt").read_text(
            encoding="utf-8")
        for command in ours:
            self.assertIn(" -fstack-protector-strong", command)
            if not debug:
                self.assertIn(" -D_FORTIFY_SOURCE=2", command)

    def test_carry_their_version(self):
        version = re.search(r'TALLOW_VERSION "(.*)"', (
            SOURCE / "src/resources/version.h").read_text(encoding="utf-8")).group(1)
        for name in shipped():
            with self.subTest(name):
                image = (BIN / name).read_bytes()
                wanted = ["VS_VERSION_INFO", "FileVersion", "FileDescription", name]
                wanted += [] if name == "csv.dll" else [version]
                for text in wanted:
                    self.assertIn(text.encode("utf-16le"), image)

    def test_programs_take_long_paths_and_leave_the_code_page(self):
        for name in PROGRAMS:
            with self.subTest(name):
                manifest = re.search(rb"<assembly .*</assembly>", (BIN / name).read_bytes(),
                                     re.DOTALL).group(0)
                self.assertRegex(manifest, rb"<longPathAware [^>]*>true<")
                self.assertIn(b'level="asInvoker"', manifest)
                self.assertNotIn(b"activeCodePage", manifest)


def checks_of_the_stack(name):
    """Whether there is a guard, and how many functions check it at their end."""
    code = subprocess.run([OBJDUMP, "-d", "--no-show-raw-insn", str(BIN / name)],
                          capture_output=True, text=True, check=True).stdout
    # In a stripped file the function that ends the process has no name; it is the one with this
    # trap.
    entry = re.search(r"^ *([0-9a-f]+):\s+mov +\$0x2,%ecx\n.*\sint +\$0x29", code, re.MULTILINE)
    if not entry:
        return False, 0
    return True, len(re.findall(rf"\scall +(?:0x)?{entry.group(1)}\b", code))


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""What tallowin.dll shows to the world: one function, a version, and no need of foreign libraries."""
import os
import pathlib
import re
import subprocess
import unittest

BIN = pathlib.Path(os.environ["TALLOW_BINARY_DIR"]) / "bin"
OBJDUMP = "x86_64-w64-mingw32-objdump"
# Part of every Windows.
SYSTEM = {"advapi32.dll", "comdlg32.dll", "kernel32.dll", "msvcrt.dll", "user32.dll", "version.dll",
          "winmm.dll"}


def headers(path):
    return subprocess.run([OBJDUMP, "-p", str(path)], capture_output=True, text=True,
                          check=True).stdout


def exports(path):
    table = headers(path).split("[Ordinal/Name Pointer] Table", 1)
    return re.findall(r"^\s*\[\s*\d+\]\s+(\S+)", table[1].split("\n\n")[0], re.MULTILINE) \
        if len(table) == 2 else []


def imported_libraries(path):
    return {name.lower() for name in re.findall(r"DLL Name: (\S+)", headers(path))}


class Library(unittest.TestCase):
    def test_exports_its_entry_alone(self):
        self.assertEqual(exports(BIN / "tallowin.dll"), ["PIDMMain"])

    def test_needs_only_what_windows_has(self):
        needed = imported_libraries(BIN / "tallowin.dll")
        self.assertIn("kernel32.dll", needed)
        self.assertEqual(needed - SYSTEM, set())

    def test_is_relocatable_and_not_executable_data(self):
        flags = headers(BIN / "tallowin.dll")
        for flag in ("DYNAMIC_BASE", "HIGH_ENTROPY_VA", "NX_COMPAT"):
            self.assertIn(flag, flags)

    def test_carries_its_version(self):
        image = (BIN / "tallowin.dll").read_bytes()
        for text in ("VS_VERSION_INFO", "FileVersion", "1.0.0.0"):
            self.assertIn(text.encode("utf-16le"), image)

    def test_every_language_library_is_text_alone(self):
        libraries = [path for path in BIN.glob("tallowin???.dll")]
        self.assertGreater(len(libraries), 0)
        for path in libraries:
            self.assertEqual((exports(path), imported_libraries(path)), ([], set()), path.name)
            self.assertIn("VS_VERSION_INFO".encode("utf-16le"), path.read_bytes(), path.name)


if __name__ == "__main__":
    unittest.main()

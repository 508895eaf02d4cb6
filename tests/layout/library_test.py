#!/usr/bin/env python3
"""What the libraries export: the module one function, a language library nothing."""
import re
import subprocess
import unittest

from tallow_tests import BIN
from tallow_tests.reports import main

OBJDUMP = "x86_64-w64-mingw32-objdump"


def headers(path):
    return subprocess.run([OBJDUMP, "-p", str(path)], capture_output=True, text=True,
                          check=True).stdout


def exports(path):
    table = headers(path).split("[Ordinal/Name Pointer] Table", 1)
    # Newer versions of objdump put more columns between the number and the name.
    return re.findall(r"^\s*\[\s*\d+\].*?(\S+)$", table[1].split("\n\n")[0], re.MULTILINE) \
        if len(table) == 2 else []


def imported_libraries(path):
    return {name.lower() for name in re.findall(r"DLL Name: (\S+)", headers(path))}


class Library(unittest.TestCase):
    def test_exports_its_entry_alone(self):
        self.assertEqual(exports(BIN / "tallowin.dll"), ["PIDMMain"])

    def test_every_language_library_is_text_alone(self):
        libraries = [path for path in BIN.glob("tallowin???.dll")]
        self.assertGreater(len(libraries), 0)
        for path in libraries:
            self.assertEqual((exports(path), imported_libraries(path)), ([], set()), path.name)


if __name__ == "__main__":
    main()

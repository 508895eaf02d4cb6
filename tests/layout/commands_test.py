#!/usr/bin/env python3
"""The tables of CONTRIBUTING.md: every command that a person may call and every folder of tests is in
them, and what they name is there."""
import os
import re
import unittest

from tallow_tests import SOURCE
from tallow_tests.reports import main

NO_COMMANDS = {"scripts/lib.sh"}


def listed():
    """The commands at the beginning of the table's rows, without their arguments."""
    guide = (SOURCE / "CONTRIBUTING.md").read_text(encoding="utf-8")
    table = guide.partition("| command | what it does |")[2].partition("\n\n")[0]
    return [re.match(r"\| `([^ `]+)", row).group(1) for row in table.splitlines()[2:]]


def listed_test_folders():
    """The folders in the first column of the table of tests."""
    guide = (SOURCE / "CONTRIBUTING.md").read_text(encoding="utf-8")
    table = guide.partition("| folder | runs | what |")[2].partition("\n\n")[0]
    return [name for row in table.splitlines()[2:]
            for name in re.findall(r"`tests/(\w+)`", row.split("|")[1])]


class Commands(unittest.TestCase):
    def test_the_fast_inner_loop_is_the_first(self):
        guide = (SOURCE / "CONTRIBUTING.md").read_text(encoding="utf-8")
        first = guide.partition("| command | what it does |")[2].splitlines()[2]
        self.assertTrue(first.startswith("| `scripts/test --only REGEX`"), first)

    def test_every_script_has_a_row(self):
        scripts = {path.relative_to(SOURCE).as_posix() for folder in ("scripts", ".ci")
                   for path in (SOURCE / folder).iterdir()} - NO_COMMANDS
        self.assertGreater(len(scripts), 5)
        self.assertEqual(sorted(scripts - set(listed())), [])

    def test_every_row_has_a_command_that_can_be_run(self):
        for name in listed():
            with self.subTest(name):
                self.assertTrue(os.access(SOURCE / name, os.X_OK))

    def test_every_command_says_how_it_is_used(self):
        for name in listed():
            with self.subTest(name):
                text = (SOURCE / name).read_text(encoding="utf-8")
                self.assertRegex(text, r'\A#!/usr/bin/env (bash\n# |python3\n""")[A-Z]')


class TestFolders(unittest.TestCase):
    def test_the_table_names_every_folder_once(self):
        folders = sorted(path.name for path in (SOURCE / "tests").iterdir()
                         if path.is_dir() and path.name != "__pycache__")
        self.assertGreater(len(folders), 5)
        self.assertEqual(sorted(listed_test_folders()), folders)


if __name__ == "__main__":
    main()

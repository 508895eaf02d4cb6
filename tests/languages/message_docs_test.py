#!/usr/bin/env python3
"""docs/messages.md is what its script writes, and the script notices if it is not."""

import pathlib
import shutil
import subprocess
import tempfile
import unittest

from tallow_tests import SOURCE
from tallow_tests.reports import main

PARTS = ["src/resources/message_docs.py", "docs/messages.md", "src/resources/check_texts.py",
         "src/resources/messages.def", "src/resources/messages.toml",
         "src/resources/tallowinenu.rc"]


def check(root):
    run = subprocess.run([root / "src/resources/message_docs.py", "--check"], capture_output=True,
                         text=True, timeout=60, check=False)
    return run.returncode, run.stderr


class MessageDocs(unittest.TestCase):
    def check_after(self, part, old, new):
        """Checks a copy of the repository in which one text of one file is replaced."""
        with tempfile.TemporaryDirectory() as folder:
            copy = pathlib.Path(folder)
            for name in PARTS:
                (copy / name).parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(SOURCE / name, copy / name)
            text = (copy / part).read_text(encoding="utf-8")
            self.assertIn(old, text)
            (copy / part).write_text(text.replace(old, new), encoding="utf-8")
            return check(copy)

    def test_are_up_to_date(self):
        self.assertEqual(check(SOURCE), (0, ""))

    def test_are_stale_when_a_text_changes(self):
        status, said = self.check_after("src/resources/tallowinenu.rc", "has been kept", "is kept")
        self.assertEqual(status, 1)
        self.assertIn("run src/resources/message_docs.py", said)

    def test_need_a_note_for_each_message(self):
        status, said = self.check_after("src/resources/messages.toml", "[55]", "[1055]")
        self.assertNotEqual(status, 0)
        self.assertIn("message 55 is missing", said)

    def test_need_the_values_of_each_message(self):
        status, said = self.check_after("src/resources/messages.toml",
                                        'inserts = ["the open mode that the host sent"]\n', "")
        self.assertNotEqual(status, 0)
        self.assertIn("message 13 takes 1 values", said)


if __name__ == "__main__":
    main()

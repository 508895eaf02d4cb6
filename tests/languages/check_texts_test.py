#!/usr/bin/env python3
"""The check that every language's build runs finds each kind of fault."""

import os
import subprocess
import sys
import tempfile
import unittest

from tallow_tests import SOURCE
from tallow_tests.reports import main

CHECK = SOURCE / "src" / "resources" / "check_texts.py"
TABLE = 'TALLOW_MESSAGE(1, kPlain, "")\nTALLOW_MESSAGE(2, kTwo, "sd")\n'
GOOD = '  1, "Plain."\n  2, "Text %s "\n     "and ""number"" %02d."\n'


class CheckTexts(unittest.TestCase):
    def check(self, entries, code_page="1252"):
        """The check's exit status and what it says, for a string table of these entries."""
        with tempfile.TemporaryDirectory() as folder:
            table, texts = os.path.join(folder, "messages.def"), os.path.join(folder, "texts.rc")
            with open(table, "w", encoding="utf-8") as file:
                file.write(TABLE)
            with open(texts, "w", encoding="utf-8") as file:
                file.write(f"STRINGTABLE\nBEGIN\n{entries}END\n")
            run = subprocess.run([sys.executable, CHECK, table, texts, code_page],
                                 capture_output=True, text=True, timeout=60)
            return run.returncode, run.stderr

    def assertFault(self, entries, words, **arguments):
        status, said = self.check(entries, **arguments)
        self.assertEqual(status, 1)
        self.assertIn(words, said)

    def test_accepts_matching_texts(self):
        self.assertEqual(self.check(GOOD), (0, ""))

    def test_refuses_a_missing_text(self):
        self.assertFault('  2, "%s %d"\n', "message 1 has no text")

    def test_refuses_a_surplus_text(self):
        self.assertFault(GOOD + '  3, "More."\n', "message 3 is not in the table")

    def test_refuses_two_texts_for_one_message(self):
        self.assertFault(GOOD + '  1, "Again."\n', "message 1 has two texts")

    def test_refuses_an_empty_text(self):
        self.assertFault('  1, ""\n  2, "%s %d"\n', "message 1 is empty")

    def test_refuses_conversions_in_another_order(self):
        self.assertFault('  1, "Plain."\n  2, "%d %s"\n', "message 2 needs %s %d")

    def test_refuses_a_conversion_of_another_type(self):
        self.assertFault('  1, "Plain."\n  2, "%s %ld"\n', "message 2 needs %s %d")

    def test_refuses_a_missing_conversion(self):
        self.assertFault('  1, "Plain."\n  2, "%s"\n', "message 2 needs %s %d")

    def test_refuses_a_lone_percent_sign(self):
        self.assertFault('  1, "100%"\n  2, "%s %d"\n', "message 1 needs no conversion")

    def test_refuses_a_character_that_the_code_page_lacks(self):
        self.assertFault('  1, "日本"\n  2, "%s %d"\n', "code page cp1252 has no '日'")

    def test_accepts_a_character_that_the_code_page_has(self):
        self.assertEqual(self.check('  1, "日本"\n  2, "%s %d"\n', code_page="932"), (0, ""))

    def test_refuses_a_table_line_that_it_cannot_read(self):
        status, said = self.check(GOOD + '  three, "More."\n')
        self.assertNotEqual(status, 0)
        self.assertIn("not understood", said)

    def against_english(self, *same):
        """The check's status and words for texts of which message 1 is still English."""
        with tempfile.TemporaryDirectory() as folder:
            paths = {name: os.path.join(folder, name) for name in ("table", "texts", "english")}
            contents = {"table": TABLE,
                        "texts": 'STRINGTABLE\nBEGIN\n  1, "Plain."\n  2, "Zwei %s %d"\nEND\n',
                        "english": 'STRINGTABLE\nBEGIN\n  1, "Plain."\n  2, "Two %s %d"\nEND\n'}
            for name, content in contents.items():
                with open(paths[name], "w", encoding="utf-8") as file:
                    file.write(content)
            run = subprocess.run([sys.executable, CHECK, paths["table"], paths["texts"], "1252",
                                  paths["english"], *same], capture_output=True, text=True,
                                 timeout=60)
            return run.returncode, run.stderr

    def test_refuses_a_text_that_is_still_english(self):
        status, said = self.against_english()
        self.assertEqual(status, 1)
        self.assertIn("message 1 is still English: 'Plain.'", said)
        self.assertNotIn("message 2", said)

    def test_accepts_a_text_that_is_named_as_the_same(self):
        self.assertEqual(self.against_english("1"), (0, ""))

    def test_refuses_a_name_that_is_not_needed(self):
        status, said = self.against_english("1", "2")
        self.assertEqual(status, 1)
        self.assertIn("message 2 is named as the same in English, and is not", said)


if __name__ == "__main__":
    main()

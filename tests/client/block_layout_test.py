#!/usr/bin/env python3
"""The host guide's table of the blocks is what the compiler makes of the header."""
import subprocess
import unittest

from tallow_tests import BIN, SOURCE
from tallow_tests.reports import main


class BlockLayout(unittest.TestCase):
    def test_the_guide_has_the_table_as_the_header_makes_it(self):
        made = subprocess.run([BIN / "block_layout"], capture_output=True, text=True, check=True)
        guide = (SOURCE / "docs" / "host-guide.md").read_text(encoding="utf-8")
        self.assertIn(made.stdout, guide,
                      "bring it up to date with block_layout docs/host-guide.md")


if __name__ == "__main__":
    main()

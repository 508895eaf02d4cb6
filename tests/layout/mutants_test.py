#!/usr/bin/env python3
"""The mistakes of scripts/mutants still fit the module's sources, and the build has its test programs."""
import importlib.machinery
import importlib.util
import pathlib
import re
import shutil
import sys
import unittest

from tallow_tests import SOURCE as ROOT
from tallow_tests.reports import main



def load_mutants():
    sys.dont_write_bytecode = True
    loader = importlib.machinery.SourceFileLoader("mutants", str(ROOT / "scripts" / "mutants"))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("mutants", loader))
    loader.exec_module(module)
    return module


class Mutants(unittest.TestCase):
    def setUp(self):
        self.mutants = load_mutants()

    def test_every_mistake_replaces_a_text_that_occurs_once(self):
        self.assertGreater(len(self.mutants.MUTANTS), 0)
        self.assertEqual(self.mutants.misfits(self.mutants.MUTANTS), [])

    def test_the_copy_that_gets_the_mistakes_can_be_built(self):
        copy = pathlib.Path.cwd() / "source"
        shutil.rmtree(copy, ignore_errors=True)
        self.mutants.copy_source(copy)
        self.assertTrue((copy / "build" / "release" / "build.ninja").exists())

    def test_every_test_program_is_built(self):
        build = "\n".join(path.read_text(encoding="utf-8")
                          for path in sorted((ROOT / "tests").rglob("*"))
                          if path.name == "CMakeLists.txt" or path.suffix == ".cmake")
        self.assertEqual([name for name in self.mutants.TESTS
                          if not re.search(rf"\b{name}\b", build)], [])


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""The count of the tests: every case of a script, what failed, and what was skipped and why."""
import os
import pathlib
import subprocess
import sys
import unittest

from tallow_tests import SOURCE
from tallow_tests.reports import main

CASES = """
import unittest
from tallow_tests.reports import main

class Good(unittest.TestCase):
    def test_one(self): pass
    def test_two(self):
        for part in range(3):
            with self.subTest(part): pass

class Bad(unittest.TestCase):
    def test_fails(self): self.assertEqual(1, 2, "\\x1b")
    def test_raises(self): raise RuntimeError
    def test_fails_twice_in_parts(self):
        for part in range(2):
            with self.subTest(part): self.fail()
    @unittest.expectedFailure
    def test_succeeds_unexpectedly(self): pass

class Skipped(unittest.TestCase):
    @unittest.skip("no moon")
    def test_always(self): pass
    def test_late(self): self.skipTest("no sun,\\n no rain")

class BadBeginning(unittest.TestCase):
    @classmethod
    def setUpClass(cls): raise RuntimeError
    def test_never(self): pass

class SkippedBeginning(unittest.TestCase):
    @classmethod
    def setUpClass(cls): raise unittest.SkipTest("no server")
    def test_never(self): pass

main()
"""


class Count(unittest.TestCase):
    def setUp(self):
        self.results = pathlib.Path.cwd() / self._testMethodName
        self.results.mkdir(exist_ok=True)

    def run_script(self, text):
        """Runs a test script, which leaves the report of the test `sample`."""
        report = self.results / "sample.xml"
        report.unlink(missing_ok=True)
        run = subprocess.run([sys.executable, "-c", text], capture_output=True, check=False,
                             env={**os.environ, "TALLOW_TEST_REPORT": str(report)})
        return run.returncode

    def count(self, *tests):
        """What is counted after these tests of ctest, and the lines about it."""
        junit = self.results / "ctest.xml"
        junit.write_text("<testsuite>" + "".join(tests) + "</testsuite>", encoding="utf-8")
        run = subprocess.run([SOURCE / "tests/count_tests.py", f"p={junit}={self.results}"],
                             capture_output=True, text=True, check=True)
        return run.stdout, run.stderr.splitlines()

    def test_names_each_case(self):
        self.assertEqual(self.run_script(CASES), 1)
        counted, lines = self.count('<testcase name="sample" status="fail"/>')
        self.assertEqual(counted, "2 5\n")
        self.assertEqual(sorted(lines), sorted([
            "FAILED  p: sample: Bad.test_fails", "FAILED  p: sample: Bad.test_raises",
            "FAILED  p: sample: Bad.test_fails_twice_in_parts",
            "FAILED  p: sample: Bad.test_succeeds_unexpectedly",
            "FAILED  p: sample: setUpClass (__main__.BadBeginning)",
            "skipped: p: sample: Skipped.test_always: no moon",
            "skipped: p: sample: Skipped.test_late: no sun, no rain",
            "skipped: p: sample: setUpClass (__main__.SkippedBeginning): no server"]))

    def test_a_script_that_ends_without_a_report_has_failed(self):
        self.assertEqual(self.count('<testcase name="sample" status="run"/>'),
                         ("0 1\n", ["FAILED  p: sample: (no report)"]))

    def test_a_program_that_dies_after_its_report_has_failed(self):
        (self.results / "sample.xml").write_text(
            '<a><testcase classname="A" name="b" status="run" result="completed"/></a>')
        self.assertEqual(self.count('<testcase name="sample" status="fail"/>'),
                         ("1 1\n", ["FAILED  p: sample: (ended badly)"]))

    def test_a_script_without_a_case_has_failed(self):
        self.assertEqual(self.run_script("from tallow_tests.reports import main; main()"), 1)
        self.assertEqual(self.count('<testcase name="sample" status="fail"/>')[0], "0 1\n")

    def test_a_case_of_googletest_that_is_skipped_or_disabled_is_shown(self):
        (self.results / "sample.xml").write_text(
            '<a><testcase classname="A" name="b" status="run" result="skipped">'
            '<skipped message="no &#x0A;disk"/></testcase>'
            '<testcase classname="A" name="c" status="notrun" result="suppressed"/></a>')
        self.assertEqual(self.count('<testcase name="sample" status="run"/>'),
                         ("0 0\n", ["skipped: p: sample: A.b: no disk",
                                    "skipped: p: sample: A.c: disabled"]))


if __name__ == "__main__":
    main()

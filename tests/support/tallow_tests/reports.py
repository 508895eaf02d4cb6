"""Runs a script's test cases and reports each of them for the count."""

import os
import sys
import unittest
import xml.etree.ElementTree


class _Result(unittest.TextTestResult):
    """Collects the cases as tests/count_tests.py reads them."""

    def __init__(self, *arguments, **keywords):
        super().__init__(*arguments, **keywords)
        self.suite = xml.etree.ElementTree.Element("testsuite")
        self._case = None

    def startTest(self, test):
        super().startTest(test)
        self._case = self._new_case(test)

    def stopTest(self, test):
        super().stopTest(test)
        self._case = None

    def _new_case(self, test):
        group, _, name = test.id().rpartition(".")
        return xml.etree.ElementTree.SubElement(
            self.suite, "testcase", classname=group.removeprefix("__main__."), name=name,
            status="run", result="completed")

    def _mark(self, test, kind, text):
        """Notes an outcome other than success; outside a case it belongs to the whole class."""
        case = self._new_case(test) if self._case is None else self._case
        if kind == "skipped":
            case.set("result", "skipped")
        xml.etree.ElementTree.SubElement(case, kind, message=text)

    def addFailure(self, test, err):
        super().addFailure(test, err)
        self._mark(test, "failure", repr(err[1]))

    def addError(self, test, err):
        super().addError(test, err)
        self._mark(test, "failure", repr(err[1]))

    def addSubTest(self, test, subtest, err):
        super().addSubTest(test, subtest, err)
        if err is not None:
            self._mark(test, "failure", repr(err[1]))

    def addUnexpectedSuccess(self, test):
        super().addUnexpectedSuccess(test)
        self._mark(test, "failure", "succeeds unexpectedly")

    def addSkip(self, test, reason):
        super().addSkip(test, reason)
        self._mark(test, "skipped", reason)


def main():
    """Runs the calling script's tests, writes the report that ctest asks for, and exits."""
    # A script that this one starts is no test of its own.
    path = os.environ.pop("TALLOW_TEST_REPORT", None)
    runner = unittest.TextTestRunner(resultclass=_Result, verbosity=2)
    result = unittest.main(module="__main__", testRunner=runner, exit=False).result
    if path:
        # The invalid characters of XML may be in what a failure shows.
        text = xml.etree.ElementTree.tostring(result.suite, "unicode")
        text = "".join(c for c in text if c in "\t\n\r" or " " <= c < "\ud800" or c > "\ue000")
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
    sys.exit(0 if result.wasSuccessful() and result.testsRun else 1)

#!/usr/bin/env python3
"""Counts the test cases of ctest runs.

Usage: count_tests.py LABEL=JUNIT_FILE=RESULTS_FOLDER...

A test's cases are taken from the XML report that it left in RESULTS_FOLDER; a test that died before
it wrote a report counts as one that failed. Prints what was skipped with its reason and then what
failed to standard error, and `PASSED FAILED` to standard output.
"""
import pathlib
import sys
import xml.etree.ElementTree


def cases_of(report):
    """(passed, failed names, skipped names with reasons) of a report."""
    passed, failed, skipped = 0, [], []
    for case in xml.etree.ElementTree.parse(report).getroot().iter("testcase"):
        name = f'{case.get("classname")}.{case.get("name")}'
        skip = case.find("skipped")
        if case.find("failure") is not None:
            failed.append(name)
        elif skip is not None:
            reason = skip.get("message") or skip.text or "no reason given"
            skipped.append(f'{name}: {" ".join(reason.split())}')
        elif case.get("result") == "completed":
            passed += 1
        else:
            skipped.append(f"{name}: disabled")
    return passed, failed, skipped


def outcome_of(test, report):
    """The same of a test of ctest and the report it should have left."""
    status = test.get("status")
    if not report.exists() or report.stat().st_size == 0:
        failure = test.find("failure")
        reason = status if failure is None else failure.get("message")
        return 0, ["(no report)" if status == "run" else f"({reason})"], []
    passed, failed, skipped = cases_of(report)
    if status != "run" and not failed:
        failed = ["(ended badly)"]
    return passed, failed, skipped


def main():
    total, failures, skips = 0, [], []
    for argument in sys.argv[1:]:
        label, junit, results = argument.split("=", 2)
        for test in xml.etree.ElementTree.parse(junit).getroot().iter("testcase"):
            name = test.get("name")
            passed, failed, skipped = outcome_of(test, pathlib.Path(results, name + ".xml"))
            total += passed
            failures += [f"{label}: {name}: {case}" for case in failed]
            skips += [f"{label}: {name}: {case}" for case in skipped]
    for line in skips:
        print("skipped: " + line, file=sys.stderr)
    for line in failures:
        print("FAILED  " + line, file=sys.stderr)
    print(total, len(failures))


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""A program that overruns an array ends at once, and the guard that notices this is a secret."""
import unittest

from tallow_tests import BIN, BUILD
from tallow_tests.programs import Program
from tallow_tests.reports import main

LONG = "x" * 200
# STATUS_STACK_BUFFER_OVERRUN, of which the exit status here has only the last byte.
ENDED = 0xC0000409 & 0xFF


def run(*arguments):
    outcome = Program(BIN / "overrun.exe", *arguments).outcome()
    return outcome.status, outcome.text.strip()


class Guard(unittest.TestCase):
    def test_what_fits_is_let_through(self):
        self.assertEqual(run("stack"), (0, ""))
        self.assertEqual(run("copy"), (0, "copied"))

    def test_a_damaged_stack_ends_the_program(self):
        self.assertEqual(run("stack", LONG)[0], ENDED)

    def test_a_copy_that_is_too_long_ends_the_program(self):
        status, said = run("copy", LONG)
        self.assertEqual(status, ENDED)
        if "Debug" not in build_type():
            self.assertEqual(said, "", "it went on behind the copy")

    def test_the_guard_differs_from_start_to_start_and_stops_texts(self):
        guards = {run("guard")[1] for _ in range(3)}
        self.assertEqual(len(guards), 3)
        for guard in guards:
            self.assertRegex(guard, "^[0-9a-f]{14}00$")


def build_type():
    cache = (BUILD / "CMakeCache.txt").read_text(encoding="utf-8")
    return next(line for line in cache.splitlines() if line.startswith("CMAKE_BUILD_TYPE"))


if __name__ == "__main__":
    main()

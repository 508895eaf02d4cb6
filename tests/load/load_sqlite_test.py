#!/usr/bin/env python3
"""tallow-load into SQLite."""

import unittest

import harness
import load_cases


class SqliteLoad(load_cases.Cases, unittest.TestCase):
    def database_factory(self):
        return harness.Sqlite(self.folder)

    def test_database_that_cannot_be_had(self):
        job = self.job(self.data("in.csv", b"1\n"))
        self.database.connection_string = "Driver={SQLite3};Database=/nowhere/at/all.db"
        self.check_refused(job.run_alone(), 1, "database")


if __name__ == "__main__":
    load_cases.FULL = harness.main_arguments()
    harness.wake_wine()
    unittest.main(verbosity=2)

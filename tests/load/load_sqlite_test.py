#!/usr/bin/env python3
"""tallow-load into SQLite through ODBC."""

import unittest

import harness
import load_cases
import sqlite_cases
from tallow_tests.reports import main


class SqliteLoad(sqlite_cases.SqliteCases, unittest.TestCase):
    def database_factory(self):
        return harness.Sqlite(self.folder)

    def test_database_that_cannot_be_had(self):
        job = self.job(self.data("in.csv", b"1\n"))
        self.database.connection_string = "Driver={SQLite3};Database=/nowhere/at/all.db"
        self.check_refused(job.run_alone("--retry", "1"), 1, "database", "check --to")

    def test_driver_without_transactions(self):
        job = self.small_job()
        self.database.connection_string += ";NoTXN=1"
        self.check_refused(job.run_alone(), 2, "NoTXN")
        self.assertIsNone(job.record())


if __name__ == "__main__":
    load_cases.FULL = harness.main_arguments()
    main()

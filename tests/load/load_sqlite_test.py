#!/usr/bin/env python3
"""tallow-load into SQLite."""

import sqlite3
import time
import unittest

import harness
import load_cases
from harness import table_rows, write_rows
from tallow_tests.machine import resize_disk, small_disk
from tallow_tests.reports import main


class SqliteLoad(load_cases.Cases, unittest.TestCase):
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

    def test_full_disk(self):
        disk = small_disk(self, "600k")
        self.database = harness.Sqlite(disk)
        source = write_rows(self.folder / "in.csv", 10000)
        job = self.job(source, "--header", "--create", block=16384)
        outcome = job.run()
        self.check_refused(outcome, 4, "full")
        self.assertEqual(len(table_rows(self.database, "rows")), job.record()[1])
        self.assertGreater(job.record()[1], 0)
        resize_disk(disk, "20m")
        self.check_done(job.run("--restart"), job)

    def test_long_row_costs_the_database_no_more_than_its_length(self):
        self.check_done(self.small_job().run(), self.job(self.folder / "in.csv"))
        self.database.execute(
            "create table stored (bytes integer)",
            "create trigger noted after update on tallow_checkpoint"
            " begin insert into stored values (length(new.unfinished_row)); end",
        )
        length = (32 if load_cases.FULL else 2) << 20
        content = b'1,"' + b"line\n" * (length // 5) + b'"\n2,b\n'
        settings = {"table": "long", "block": 65536, "every": 16 if load_cases.FULL else 1}
        source = self.data("long.csv", content)
        job = self.job(source, "--columns", "id,v", "--create", **settings)
        outcome = job.run()
        self.assertEqual((outcome.status, outcome.json["rows"]), (0, 2), outcome)
        (stored,) = self.database.query("select sum(bytes) from stored")
        self.assertLess(int(stored[0]), len(content), "bytes of unfinished rows that were stored")

    def test_slow_writer_leaves_little_uncommitted(self):
        source = write_rows(self.folder / "in.csv", 400)
        job = self.job(source, "--header", "--create", every=1000)
        content = source.read_bytes()
        pieces = iter([content[at : at + 600] for at in range(0, len(content), 600)])
        load = job.start()
        with harness.SlowFeed(job) as feed:
            while (job.record() or (0,))[0] == 0:
                feed.send(next(pieces))
                time.sleep(0.5)  # The writer's own pace.
            for piece in pieces:
                feed.send(piece)
            feed.end()
            self.check_done(harness.Outcome(load), job)

    def locked(self):
        """Another program's lock on the whole file."""
        holder = sqlite3.connect(self.database.path, isolation_level=None)
        holder.execute("begin exclusive")
        self.addCleanup(holder.close)
        return holder

    def test_database_that_is_locked(self):
        # The driver's own limit would be 100 seconds.
        self.database.connection_string = self.database.connection_string.split(";Timeout")[0]
        job = self.small_job()
        holder = self.locked()
        start = time.monotonic()
        outcome = job.run_alone("--retry", "4")
        self.check_refused(outcome, 3, "locked by another program for 4 seconds")
        self.assertLess(time.monotonic() - start, 30)
        holder.rollback()
        self.check_done(job.run(), job)

    def test_database_that_is_locked_during_the_load(self):
        self.database.connection_string = self.database.connection_string.split(";Timeout")[0]
        with self.load_half_way("--retry", "4") as (job, finish):
            holder = self.locked()
            start = time.monotonic()
            outcome = finish()
            self.check_refused(outcome, 3, "locked by another program for 4 seconds")
            self.assertLess(time.monotonic() - start, 40)
            holder.rollback()
        self.check_done(job.run("--restart"), job)


if __name__ == "__main__":
    load_cases.FULL = harness.main_arguments()
    main()

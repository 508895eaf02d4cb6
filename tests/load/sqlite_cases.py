"""The cases that hold for SQLite whichever way leads to it."""

import sqlite3
import time

import harness
import load_cases
from harness import Job, read_rows, table_rows, write_rows
from tallow_tests.machine import resize_disk, small_disk


class SqliteCases(load_cases.Cases):
    def test_full_disk(self):
        disk = small_disk(self, "600k")
        self.database = type(self.database)(disk)
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

    def locked_during_a_load(self):
        return self.locked()

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
            holder = self.locked_during_a_load()
            start = time.monotonic()
            outcome = finish()
            self.check_refused(outcome, 3, "locked by another program for 4 seconds")
            self.assertLess(time.monotonic() - start, 40)
            holder.rollback()
        self.check_done(job.run("--restart"), job)

    def test_four_loads_at_once(self):
        count = 20000 if load_cases.FULL else 2000
        jobs = []
        for number in range(4):
            folder = self.folder / str(number)
            folder.mkdir()
            source = write_rows(folder / "in.csv", count, number, start=number * count + 1)
            jobs.append(Job(folder, self.database, source, "--header", "--create", block=4096))
        feeds = [job.feed() for job in jobs]
        loads = [job.start() for job in jobs]
        outcomes = [harness.Outcome(load) for load in loads]
        for feed in feeds:
            feed.discard()
        for outcome in outcomes:
            self.assertEqual(outcome.status, 0, outcome)
        wanted = [row for job in jobs for row in read_rows(job.source)]
        self.assertEqual(table_rows(self.database, "rows"), wanted)

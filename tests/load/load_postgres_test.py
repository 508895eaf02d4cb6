#!/usr/bin/env python3
"""tallow-load into PostgreSQL."""

import threading
import time
import unittest

import harness
import load_cases
from harness import Job, read_rows, table_rows, write_rows
from tallow_tests.reports import main

SLOW_COMMIT = """
create function slow() returns trigger language plpgsql as
  'begin perform pg_sleep(case when new.id = ''{id}'' then 3 else 0 end); return new; end';
create constraint trigger slow after insert on rows deferrable initially deferred
  for each row execute function slow();
"""


class PostgresLoad(load_cases.Cases, unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = harness.PostgresServer()
        cls.addClassCleanup(cls.server.close)

    def database_factory(self):
        return harness.Postgres(self.server)

    def test_database_that_cannot_be_had(self):
        job = self.job(self.data("in.csv", b"1\n"))
        self.database.connection_string = self.database.address(port=1)
        outcome = job.run_alone("--retry", "1")
        self.check_refused(outcome, 3, "out of reach for 1 second")
        # There is no job to restart: the same command must be run again.
        self.assertNotIn("--restart", outcome.json["restart"])

    def test_server_that_accepts_and_says_nothing(self):
        with harness.silent_server() as port:
            job = self.job(self.data("in.csv", b"1\n"))
            self.database.connection_string = self.database.address(port=port)
            self.check_refused(job.run_alone("--retry", "1"), 3, "database")

    def test_writer_that_falls_silent(self):
        job = self.small_job(400)
        load = job.start("--wait", "2")
        with harness.SlowFeed(job) as feed:
            feed.send(job.source.read_bytes()[:6000])
            self.check_refused(harness.Outcome(load), 3, "took longer than 2 seconds for a block")
        self.check_done(job.run("--restart"), job)

    def test_login_that_is_refused(self):
        job = self.job(self.data("in.csv", b"1\n"))
        self.database.connection_string = self.database.address(user="nobody")
        self.check_refused(job.run_alone(), 1, "nobody", "check --to")
        self.check_refused(job.run_alone("--restart"), 4, "nobody", "check --to")

    def test_driver_that_is_missing(self):
        job = self.job(self.data("in.csv", b"1\n"))
        self.database.connection_string = "Driver={No such driver};Server=127.0.0.1"
        self.check_refused(job.run_alone("--restart"), 4, "check --to")

    def test_numbers_and_dates(self):
        self.database.execute("create table rows (id int, d date, n numeric(9,2), b boolean)")
        source = self.data("in.csv", b"1,2026-02-28,1.50,t\n2,,-7,\n")
        self.assertEqual(self.job(source).run().status, 0)
        rows = [("1", "2026-02-28", "1.50", "t"), ("2", None, "-7.00", None)]
        self.assertEqual(table_rows(self.database, "rows"), rows)

    def test_names_that_need_quotes(self):
        self.database.execute('create schema "S x"; create table "S x"."Order" ("User" text, "a b" text)')
        source = self.data("in.csv", b"a b,User\n1,2\n")
        job = self.job(source, "--header", table="S x.Order")
        outcome = job.run()
        self.assertEqual(outcome.status, 0, outcome)
        self.assertEqual(self.database.query('select "User", "a b" from "S x"."Order"'), [("2", "1")])

    def test_commit_that_ends_after_the_client_is_gone(self):
        source = write_rows(self.folder / "in.csv", 200)
        self.database.execute("create table rows (id text, c1 text, c2 text)")
        self.database.execute(SLOW_COMMIT.format(id=100))
        job = self.job(source, "--header")
        feed = job.feed()
        load = job.start()
        try:
            sleeping = (
                "select count(*) from pg_stat_activity where datname = current_database()"
                " and wait_event = 'PgSleep' and lower(query) like 'commit%'"
            )
            harness.wait_until(
                lambda: self.database.query(sleeping) == [("1",)], "the slow commit to begin"
            )
            load.discard()
        finally:
            feed.discard()
        before = job.record()[1]
        outcome = job.run("--restart")
        self.check_done(outcome, job)
        # The restart waited for the commit and continued from it.
        self.assertLess(outcome.json["rowsOfThisRun"], 200 - before)

    def fed_slowly(self, job, disturb, times):
        """Sends the data in pieces and disturbs the server between them."""
        content = job.source.read_bytes()
        piece = len(content) // (times + 1) + 1
        with harness.SlowFeed(job) as feed:
            load = job.start("--retry", "120")
            for number in range(times + 1):
                before = (job.record() or (0,))[0]
                feed.send(content[number * piece : (number + 1) * piece])
                if number < times:
                    harness.wait_until(lambda b=before: (job.record() or (0,))[0] > b, "progress")
                    disturb()
            feed.end()
            return harness.Outcome(load)

    def test_server_that_stops_at_once(self):
        def restart():
            self.server.stop("immediate")
            time.sleep(0.3)
            self.server.start()

        times = 20 if load_cases.FULL else 2
        job = self.small_job(200 * (times + 1))
        outcome = self.fed_slowly(job, restart, times)
        self.check_done(outcome, job)
        self.assertGreaterEqual(outcome.json["reconnections"], times)

    def test_connection_that_is_cut(self):
        cut = (
            "select pg_terminate_backend(pid) from pg_stat_activity"
            " where datname = current_database() and pid <> pg_backend_pid()"
        )
        times = 20 if load_cases.FULL else 3
        job = self.small_job(200 * (times + 1))
        outcome = self.fed_slowly(job, lambda: self.database.query(cut), times)
        self.check_done(outcome, job)
        self.assertGreaterEqual(outcome.json["reconnections"], times)

    def test_connection_that_is_cut_at_any_moment(self):
        cut = (
            "select pg_terminate_backend(pid) from pg_stat_activity"
            f" where datname = '{self.database.database}'"
        )
        source = write_rows(self.folder / "in.csv", 40000 if load_cases.FULL else 15000)
        job = self.job(source, "--header", "--create", block=4096, every=5)
        ended = threading.Event()
        cuts = 0

        def keep_cutting():
            nonlocal cuts
            while not ended.wait(0.25):
                self.server.psql("postgres", cut)
                cuts += 1

        feed = job.feed()
        load = job.start("--retry", "120")
        harness.wait_until(lambda: (job.record() or (0,))[0] > 0, "a checkpoint")
        cutter = threading.Thread(target=keep_cutting)
        cutter.start()
        try:
            outcome = harness.Outcome(load)
        finally:
            ended.set()
            cutter.join()
            feed.discard()
        self.check_done(outcome, job, f"{cuts} cuts")

    def test_server_that_stays_away(self):
        job = self.small_job(400)
        content = job.source.read_bytes()
        with harness.SlowFeed(job) as feed:
            load = job.start("--retry", "1")
            feed.send(content[:6000])
            harness.wait_until(lambda: (job.record() or (0,))[0] > 0, "a checkpoint")
            self.server.stop("immediate")
            try:
                feed.send(content[6000:])
                feed.end()
                outcome = harness.Outcome(load)
            finally:
                self.server.start()
        self.check_refused(outcome, 3, "out of reach for 1 second")
        self.check_done(job.run("--restart"), job)

    def test_commit_that_is_refused(self):
        self.database.execute(
            "create table rows (id text, c1 text, c2 text,"
            " constraint once unique (id) deferrable initially deferred)"
        )
        source = self.data("in.csv", b"id,c1,c2\n1,a,b\n1,c,d\n")
        outcome = self.job(source, "--header", "--max-rejects", "9", "--rejects", self.folder / "r").run()
        self.check_refused(outcome, 4, "23505")
        self.assertEqual(table_rows(self.database, "rows"), [])

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


if __name__ == "__main__":
    load_cases.FULL = harness.main_arguments()
    main()

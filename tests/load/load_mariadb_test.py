#!/usr/bin/env python3
"""tallow-load into MariaDB."""

import signal
import unittest

import harness
import load_cases
from harness import Outcome, table_rows, write_rows
from tallow_tests.reports import main


class MariadbLoad(load_cases.Cases, unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = harness.MariadbServer()
        cls.addClassCleanup(cls.server.close)

    def database_factory(self):
        return harness.Mariadb(self.server)

    # ------------------------------------------------------------------------ refused with a warning

    def test_values_that_the_driver_calls_a_warning(self):
        for kind, bad in (("enum('a', 'b')", "zzz"), ("int", "12abc"), ("tinyint", "999")):
            for mode in ("STRICT_TRANS_TABLES", ""):
                with self.subTest(kind=kind, mode=mode):
                    self.database = self.database_factory()
                    self.server.execute("", f"set global sql_mode = '{mode}'")
                    self.addCleanup(self.server.execute, "", "set global sql_mode = default")
                    self.database.execute(f"create table rows (id int primary key, v {kind})")
                    good = "a" if "enum" in kind else "7"
                    text = f"1,{good}\n2,{good}\n3,{bad}\n4,{good}\n"
                    rejects = self.folder / harness.unique("rejects")
                    job = self.job(
                        self.data("in.csv", text.encode()), "--rejects", rejects, "--batch", "3"
                    )
                    self.check_refused(job.run(), 4, "line 3")
                    outcome = job.run("--restart", "--max-rejects", "1")
                    self.assertEqual(outcome.status, 0, outcome)
                    rows = [("1", good), ("2", good), ("4", good)]
                    self.assertEqual(table_rows(self.database, "rows"), rows)
                    self.assertEqual(rejects.read_text(), f"3,{bad}\n")

    def test_values_that_are_rounded_as_everywhere(self):
        self.database.execute("create table rows (id int, n decimal(9,2))")
        outcome = self.job(self.data("in.csv", b"1,1.999\n2,2\n")).run()
        self.assertEqual(outcome.status, 0, outcome)
        self.assertEqual(table_rows(self.database, "rows"), [("1", "2.00"), ("2", "2.00")])

    # ------------------------------------------------------------------------------ no transactions

    def test_driver_that_connects_again_by_itself(self):
        good = self.database.connection_string
        for more in ("AUTO_RECONNECT=1", "auto_reconnect=1", "OPTION=4194304", "Option=4194307"):
            self.database.connection_string = f"{good};{more}"
            job = self.small_job()
            self.check_refused(job.run_alone(), 2, "connect again by itself")
            self.assertIsNone(job.record())

    def test_table_without_transactions(self):
        for engine in ("Aria", "MyISAM", "MEMORY"):
            self.database.execute(
                "drop table if exists rows", f"create table rows (id varchar(9)) engine={engine}"
            )
            job = self.job(self.data("in.csv", b"1\n"))
            self.check_refused(job.run_alone(), 1, "no transactions", "ENGINE=InnoDB")
            self.assertIsNone(job.record())

    def test_checkpoint_table_without_transactions(self):
        job = self.small_job()
        self.check_done(job.run(), job)
        self.database.execute("alter table tallow_checkpoint engine=Aria")
        again = self.job(job.source, "--header", pipe=None)
        self.check_refused(again.run_alone(), 1, "tallow_checkpoint", "ENGINE=InnoDB")

    # -------------------------------------------------------------------------- faults that pass

    def fed_slowly(self, job, disturb, times, *options):
        """Sends the data in pieces and disturbs the load between them."""
        content = job.source.read_bytes()
        piece = len(content) // (times + 1) + 1
        with harness.SlowFeed(job) as feed:
            load = job.start("--retry", "120", *options)
            for number in range(times + 1):
                before = (job.record() or (0,))[0]
                feed.send(content[number * piece : (number + 1) * piece])
                if number < times:
                    harness.wait_until(lambda b=before: (job.record() or (0,))[0] > b, "progress")
                    disturb()
            feed.end()
            return Outcome(load)

    def check_disturbed(self, disturb, times=2):
        job = self.small_job(200 * (times + 1))
        outcome = self.fed_slowly(job, disturb, times)
        self.check_done(outcome, job)
        self.assertGreaterEqual(outcome.json["reconnections"], times)

    def test_server_that_is_killed(self):
        def restart():
            self.server.kill()
            self.server.start()

        self.check_disturbed(restart, 20 if load_cases.FULL else 2)

    def connections(self):
        """Numbers of the load's connections."""
        listed = self.server.execute(
            "", "select id from information_schema.processlist where user = 'loader'"
            f" and db = '{self.database.database}'"
        )
        return listed.split()

    def test_connection_that_is_killed(self):
        def kill():
            for number in self.connections():
                self.server.execute("", f"kill {number}")

        self.check_disturbed(kill, 20 if load_cases.FULL else 3)

    def test_server_that_becomes_read_only(self):
        self.addCleanup(self.server.execute, "", "set global read_only = 0")
        job = self.small_job(400)
        content = job.source.read_bytes()
        with harness.SlowFeed(job) as feed:
            load = job.start("--retry", "120")
            feed.send(content[:6000])
            harness.wait_until(lambda: (job.record() or (0,))[0] > 0, "a checkpoint")
            seen = self.server.execute("", "show global status like 'Connections'")
            self.server.execute("", "set global read_only = 1")
            feed.send(content[6000:])
            feed.end()

            def tries_again():
                return len(self.refusals(seen)) > 8

            harness.wait_until(tries_again, "several attempts")
            self.server.execute("", "set global read_only = 0")
            outcome = Outcome(load)
        self.check_done(outcome, job)
        self.assertGreater(outcome.json["reconnections"], 0)

    def refusals(self, seen):
        """One item for each connection that was made since then."""
        now = self.server.execute("", "show global status like 'Connections'")
        return range(int(seen.split()[1]), int(now.split()[1]))

    def test_row_that_another_session_has_locked(self):
        job = self.small_job(400)
        content = job.source.read_bytes()
        with harness.SlowFeed(job) as feed:
            load = job.start("--retry", "4")
            feed.send(content[:6000])
            harness.wait_until(lambda: (job.record() or (0,))[0] > 0, "a checkpoint")
            with self.server.session(self.database.database) as session:
                session.send("begin; select count(*) from tallow_checkpoint for update;")
                feed.send(content[6000:])
                feed.end()
                outcome = Outcome(load)
                self.check_refused(outcome, 3, "locked by another program for 4 seconds")
        self.check_done(job.run("--restart"), job)

    def test_login_that_is_refused(self):
        job = self.job(self.data("in.csv", b"1\n"))
        good = self.database.connection_string
        for bad in (good.replace("Uid=loader", "Uid=nobody"), good + ";Pwd=x"):
            self.database.connection_string = bad
            self.check_refused(job.run_alone(), 1, "1045", "check --to")
            self.check_refused(job.run_alone("--restart"), 4, "1045", "check --to")

    def test_server_that_is_not_there(self):
        job = self.job(self.data("in.csv", b"1\n"))
        self.database.connection_string = "Driver={MariaDB Unicode};Server=127.0.0.1;Port=1"
        self.check_refused(job.run_alone("--retry", "1"), 3, "out of reach for 1 second")

    def test_server_that_accepts_and_says_nothing(self):
        with harness.silent_server() as port:
            job = self.job(self.data("in.csv", b"1\n"))
            self.database.connection_string = f"Driver={{MariaDB Unicode}};Server=127.0.0.1;Port={port}"
            self.check_refused(job.run_alone("--retry", "1"), 3, "database")

    def test_server_that_falls_silent(self):
        with self.load_half_way("--retry", "1") as (job, finish):
            self.server.process.send_signal(signal.SIGSTOP)
            self.addCleanup(self.server.process.send_signal, signal.SIGCONT)
            self.check_refused(finish(), 3, "has not answered for 31 seconds")
            self.server.process.send_signal(signal.SIGCONT)
        self.check_done(job.run("--restart"), job)

    # -------------------------------------------------------------------------------- long rows

    def test_row_that_the_server_cannot_take(self):
        text = b"id,v\n1,a\n2," + b"v" * (9 << 20) + b"\n3,c\n"
        source = self.data("in.csv", text)
        job = self.job(source, "--create", "--header", block=65536)
        self.check_refused(job.run(), 4, "line 3", "max_allowed_packet")
        self.server.execute("", "set global max_allowed_packet = 67108864")
        self.addCleanup(self.server.execute, "", "set global max_allowed_packet = default")
        self.check_done(job.run("--restart"), job)


if __name__ == "__main__":
    load_cases.FULL = harness.main_arguments()
    main()

#!/usr/bin/env python3
"""tallow-load into a file of SQLite, which it opens itself."""

import contextlib
import sqlite3
import subprocess
import unittest

import harness
import load_cases
import sqlite_cases
from harness import read_rows, table_rows, write_rows
from tallow_tests.machine import small_disk
from tallow_tests.reports import main

# What a column can be, and what can come into it.
TYPES = ["integer", "real", "numeric", "text", "blob", "", "int unsigned", "varchar(9)", "boolean",
         "date", "double precision", "decimal(9, 2)", "any"]
TEXTS = ["1", "-7", "1.5", "1.0", "1e3", "0x10", " 7 ", "+5", "007", "abc", "1abc", "", "true",
         "2026-02-28", "5000000000", "9223372036854775807", "9223372036854775808", "1e400", "inf",
         "0.1", "123456789.123456789", "\u00e9\u6f22\U0001f600", "x" * 300, "-0", "-0.0", ".5", "5.",
         "999999999999999999", "-999999999999999999", "-9223372036854775808", "-", "0", "00"]


class SqliteFileLoad(sqlite_cases.SqliteCases, unittest.TestCase):
    # SQLite says that the disk has failed, and the load ends.
    lost_answers_end_the_load = True
    # No more than ten blocks: with a row of the next one, the load would let nobody else write.
    half_way = 10 * 512

    # They are about statements of many rows, and about a driver.
    test_more_values_than_a_statement_holds = None
    test_driver_that_says_a_longer_name_than_it_gives = None

    def database_factory(self):
        return harness.SqliteFile(self.folder)

    # ----------------------------------------------------------------------------------- bad input

    def check_refused_at_the_start(self, *words, table="rows"):
        job = self.job(self.data("in.csv", b"1,2\n"), table=table)
        self.check_refused(job.run_alone("--retry", "1"), 1, *words)

    def test_database_that_cannot_be_had(self):
        self.database.connection_string = "sqlite:/nowhere/at/all.db"
        self.check_refused_at_the_start("database", "folder that is there", "check --to")

    def test_file_that_is_no_database(self):
        self.database.path.write_bytes(b"id,name\n" * 1000)
        before = self.database.path.read_bytes()
        self.check_refused_at_the_start("not a database", "another program", "check --to")
        self.assertEqual(self.database.path.read_bytes(), before)

    def test_file_that_is_damaged(self):
        self.database.execute("create table rows (a)", "insert into rows values (zeroblob(90000))")
        with open(self.database.path, "r+b") as file:
            file.truncate(8192)
        self.check_refused_at_the_start("malformed", "integrity_check")

    def test_file_that_can_only_be_read(self):
        # The rights of a file do not bind root.
        disk = small_disk(self, "1m")
        self.database = harness.SqliteFile(disk)
        self.database.execute("create table rows (a, b)")
        subprocess.run(["mount", "-o", "remount,ro", disk], check=True)
        self.check_refused_at_the_start("can only be read", "can write to")

    def test_address_without_a_file(self):
        for address in ("sqlite:", "sqlite::memory:"):
            self.database.connection_string = address
            job = self.job(self.data("in.csv", b"1\n"))
            self.check_refused(job.run_alone(), 2, "names no file", "sqlite:orders.db")

    def test_what_is_no_table_of_its_own(self):
        self.database.execute(
            "create table t (a, b, c as (a || b))",
            "create view v as select a, b from t",
            "create virtual table f using fts5(a, b)",
        )
        self.check_refused_at_the_start("is a view", table="v")
        self.check_refused_at_the_start("is a virtual table", table="f")
        self.check_refused_at_the_start('"c"', "generated", "--columns", table="t")
        job = self.job(self.data("in.csv", b"1,2\n"), "--columns", "a,b", table="t")
        self.assertEqual(job.run().status, 0)
        self.assertEqual(self.database.query("select * from t"), [("1", "2", "12")])

    # -------------------------------------------------------------------------------------- values

    def test_path_beyond_ascii_relative_to_the_folder(self):
        self.database.path = self.folder / "d\u00e9p\u00f4t \u6f22.sqlite"
        self.database.connection_string = f"sqlite:{self.database.path.name}"
        job = self.small_job()
        with contextlib.chdir(self.folder):
            self.check_done(job.run(), job)

    def test_values_become_what_they_become_through_odbc(self):
        columns = [f"c{i}" for i in range(len(TYPES))]
        names = ", ".join(f"{name} {kind}" for name, kind in zip(columns, TYPES))
        stored = {}
        lines = ["nil" + "," * (len(TYPES) - 1)]
        lines += [",".join(f'"{text}"' for _ in TYPES) for text in TEXTS]
        source = self.data("in.csv", "\n".join(lines).encode())
        for kind in (harness.Sqlite, harness.SqliteFile):
            self.database = kind(self.folder)
            self.database.execute(f"create table rows ({names})")
            job = self.job(source, "--null", "nil")
            outcome = job.run()
            self.assertEqual(outcome.status, 0, outcome)
            values = ", ".join(f"typeof({name}), quote({name})" for name in columns)
            stored[kind] = self.database.query(f"select {values} from rows order by rowid")
        self.assertEqual(len(stored[harness.Sqlite]), len(TEXTS) + 1)
        self.assertEqual(stored[harness.Sqlite], stored[harness.SqliteFile])

    def test_strict_table_refuses_what_it_refuses_through_odbc(self):
        kinds = ["int", "integer", "real", "text", "blob", "any"]
        names = ", ".join(f"c{i} {kind}" for i, kind in enumerate(kinds))
        # One value in each row, and nothing else.
        lines = ["," * n + f'"{text}"' + "," * (len(kinds) - n - 1)
                 for text in TEXTS for n in range(len(kinds))]
        source = self.data("in.csv", "\n".join(lines).encode())
        stored = {}
        for kind in (harness.Sqlite, harness.SqliteFile):
            self.database = kind(self.folder)
            self.database.execute(f"create table rows ({names}) strict")
            rejects = self.folder / f"{kind.name}.csv"
            job = self.job(source, "--rejects", rejects, "--max-rejects", "1000")
            outcome = job.run()
            self.assertEqual(outcome.status, 0, outcome)
            rows = self.database.query("select * from rows order by rowid")
            stored[kind] = (rows, rejects.read_bytes())
        self.assertGreater(len(stored[harness.Sqlite][1]), 100)
        self.assertEqual(stored[harness.Sqlite], stored[harness.SqliteFile])

    def test_size_of_a_statement_does_not_matter(self):
        job = self.small_job(40, 1, "--batch", "32767")
        self.check_done(job.run(), job)

    # ------------------------------------------------------------------------------------ bad rows

    def rejected_states(self, rejects):
        return [row[2] for row in read_rows(str(rejects) + ".reasons.csv")]

    def test_bad_rows_are_found_without_going_back(self):
        bad = {3, 20, 21, 45}
        job, lines, rejects = self.bad_row_job(bad, "--max-rejects", "4")
        outcome = job.run()
        self.assertEqual((outcome.status, outcome.json["rewinds"]), (0, 0), outcome)
        self.check_bad_rows(job, lines, rejects, bad)
        self.assertEqual(self.rejected_states(rejects), ["23514"] * 4)

    def test_reasons_say_what_kind_of_constraint(self):
        self.database.execute(
            "create table parent (id integer primary key)",
            "create table rows (id integer primary key, n text not null, u text unique,"
            " c int check (c > 0), p references parent (id))",
        )
        content = b"1,n,u,1,\n1,n,v,1,\n2,,v,1,\n2,n,u,1,\n2,n,v,0,\n2,n,v,1,9\nx,n,v,1,\n2,n,v,1,\n"
        rejects = self.folder / "rejects.csv"
        job = self.job(self.data("in.csv", content), "--rejects", rejects, "--max-rejects", "6")
        outcome = job.run()
        self.assertEqual((outcome.status, outcome.json["rewinds"]), (0, 0), outcome)
        states = ["23505", "23502", "23505", "23514", "23503", "22018"]
        self.assertEqual(self.rejected_states(rejects), states)
        self.assertEqual([row[0] for row in table_rows(self.database, "rows")], ["1", "2"])

    def test_row_that_undoes_the_transaction(self):
        self.database.execute("create table rows (id integer unique on conflict rollback, note)")
        lines = [f"{7 if i == 30 else i},{i}\n" for i in range(1, 61)]
        rejects = self.folder / "rejects.csv"
        job = self.job(self.data("in.csv", "".join(lines).encode()),
                       *("--rejects", rejects, "--max-rejects", "1"), block=64)
        outcome = job.run()
        self.assertEqual((outcome.status, outcome.json["rewinds"]), (0, 1), outcome)
        self.assertEqual(rejects.read_bytes(), b"7,30\n")
        self.assertEqual(len(table_rows(self.database, "rows")), 59)
        self.assertEqual(self.rejected_states(rejects), ["23505"])

    def test_row_that_a_trigger_refuses_leaves_nothing(self):
        for refusal in ("ignore", "fail, 'odd'", "abort, 'odd'", "rollback, 'odd'"):
            with self.subTest(refusal=refusal):
                self.database = self.database_factory()
                self.database.execute(
                    "create table noted (id)",
                    "create table rows (id integer, note text)",
                    "create trigger seen before insert on rows begin"
                    " insert into noted values (new.id);"
                    f" select raise({refusal}) where new.id in (7, 30); end",
                )
                content = "".join(f"{i},n\n" for i in range(1, 61)).encode()
                rejects = self.folder / f"{refusal[:4]}.csv"
                job = self.job(self.data("in.csv", content),
                               *("--rejects", rejects, "--max-rejects", "2"), block=64)
                outcome = job.run()
                self.assertEqual(outcome.status, 0, outcome)
                self.assertEqual(rejects.read_bytes(), b"7,n\n30,n\n")
                wanted = [(str(i),) for i in range(1, 61) if i not in (7, 30)]
                for table in ("rows", "noted"):
                    self.assertEqual(self.database.query(f"select id from {table}"), wanted)

    def test_deferred_foreign_key_fails_at_the_commit(self):
        self.database.execute(
            "create table parent (id integer primary key)",
            "create table rows (id integer,"
            " p references parent (id) deferrable initially deferred)",
        )
        job = self.job(self.data("in.csv", b"1,5\n2,6\n"))
        outcome = job.run()
        self.check_refused(outcome, 4, "FOREIGN KEY", "23503")
        self.assertEqual(table_rows(self.database, "rows"), [])
        self.database.execute("insert into parent values (5), (6)")
        self.assertEqual(job.run("--restart").status, 0)
        self.assertEqual(table_rows(self.database, "rows"), [("1", "5"), ("2", "6")])

    # ------------------------------------------------------------------------------------ the file

    def test_journal_mode_stays_as_the_file_has_it(self):
        for mode in ("wal", "delete"):
            self.database = self.database_factory()
            self.database.execute(f"pragma journal_mode = {mode}")
            job = self.small_job()
            self.check_done(job.run(), job)
            self.assertEqual(self.database.query("pragma journal_mode"), [(mode,)])

    def test_kills_with_a_log_written_ahead(self):
        def job():
            self.database = self.database_factory()
            self.database.execute("pragma journal_mode = wal")
            return self.small_job(24)

        calls, _ = self.count_calls(job())
        for call in range(3, calls + 1, 1 if load_cases.FULL else max(calls // 8, 1)):
            killed = job()
            self.check_killed(killed, call)
            self.check_done(killed.finish(), killed, f"killed at call {call}")

    def test_reader_delays_a_commit_and_does_not_prevent_it(self):
        job = self.small_job(400)
        content = job.source.read_bytes()
        load = job.start()
        with harness.SlowFeed(job) as feed:
            feed.send(content[:6000])
            harness.wait_until(lambda: (job.record() or (0,))[0] == 10, "the last checkpoint")
            reader = self.locked_during_a_load()
            feed.send(content[6000:])
            feed.end()
            harness.wait_until(self.lets_nobody_in, "the load to be about to commit")
            reader.rollback()
            self.check_done(harness.Outcome(load), job)

    def locked_during_a_load(self):
        """Somebody who reads: the load can have its rows in a transaction already."""
        reader = sqlite3.connect(self.database.path, isolation_level=None)
        self.addCleanup(reader.close)
        reader.execute("begin")
        reader.execute("select * from rows").fetchone()
        return reader

    def lets_nobody_in(self):
        # A process that has a lock may share it with itself.
        command = ["sqlite3", self.database.path, "select 1 from rows limit 1"]
        return subprocess.run(command, capture_output=True, check=False).returncode != 0


if __name__ == "__main__":
    load_cases.FULL = harness.main_arguments()
    main()

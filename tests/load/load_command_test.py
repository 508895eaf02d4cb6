#!/usr/bin/env python3
"""The command line of tallow-load, what it prints, and what it leaves alone."""

import shutil
import unittest

import harness
import load_cases
from harness import BIN, Outcome, Process
from tallow_tests.programs import TerminalProgram
from tallow_tests.reports import main

SECRET = "geheim4711"


class CommandTest(unittest.TestCase):
    """Runs into SQLite; each test has its own database and folder."""

    setUp = load_cases.Cases.setUp
    data = load_cases.Cases.data
    job = load_cases.Cases.job
    small_job = load_cases.Cases.small_job
    check_done = load_cases.Cases.check_done
    check_rows = load_cases.Cases.check_rows
    check_refused = load_cases.Cases.check_refused

    def database_factory(self):
        return harness.Sqlite(self.folder)

    def run_line(self, job, line):
        """Runs a printed command line as if a person had pasted it into cmd."""
        script = self.folder / "again.cmd"
        script.write_bytes(f"@cd /d Z:{BIN}\r\n@{line}\r\n".encode())
        feed = job.feed()
        try:
            return Outcome(Process("cmd", "/c", f"Z:{script}", **job.variables))
        finally:
            feed.discard()


class Secrets(CommandTest):
    def secret_job(self):
        """A job that stops at a bad row, until one is allowed."""
        source = self.data("in.csv", b"1,a\n2\n3,c\n")
        job = self.job(source, "--columns", "id,v", "--create", "--rejects", self.folder / "bad.csv")
        self.database.connection_string += f";Uid=loader;Pwd={SECRET}"
        return job

    def check_silent(self, outcome):
        self.assertNotIn(SECRET, outcome.out + outcome.err)

    def check_stops_and_goes_on(self, job):
        outcome = job.run()
        self.assertEqual(outcome.status, 4, outcome)
        self.check_silent(outcome)
        self.assertNotIn("Driver", outcome.json["restart"])
        again = self.run_line(job, outcome.json["restart"] + " --max-rejects 1")
        self.assertEqual((again.status, again.json["rows"]), (0, 2), again)
        self.check_silent(again)

    def test_string_from_the_environment(self):
        job = self.secret_job()
        job.to = []
        job.variables = {"TALLOW_TO": self.database.connection_string}
        self.check_stops_and_goes_on(job)

    def test_string_from_a_file(self):
        job = self.secret_job()
        content = b"\xef\xbb\xbf" + self.database.connection_string.encode() + b"\r\n"
        job.to = ["--to-file", f"Z:{self.data('to.txt', content)}"]
        job.variables = {"TALLOW_TO": "DSN=not this one"}
        self.check_stops_and_goes_on(job)

    def test_password_on_the_command_line_is_not_printed(self):
        outcome = self.secret_job().run()
        self.assertEqual(outcome.status, 4, outcome)
        self.check_silent(outcome)
        self.assertIn("Uid=loader;Pwd=***", outcome.err)
        self.assertIn("Uid=loader;Pwd=***", outcome.json["restart"])
        self.assertIn("the password in place of ***", outcome.err)

    def test_password_without_quotes_is_not_printed(self):
        job = self.secret_job()
        job.to = ["--to", "Driver={A", f"B}};Uid=loader;Pwd={SECRET}"]
        outcome = job.run_alone()
        self.check_refused(outcome, 2, "after --to", "quotes")
        self.check_silent(outcome)

    def test_failed_login_does_not_print_the_password(self):
        job = self.secret_job()
        self.database.connection_string = f"Driver={{SQLite3}};Database=/no/{SECRET}/x;Pwd={SECRET}"
        outcome = job.run_alone()
        self.assertNotEqual(outcome.status, 0)
        self.check_silent(outcome)

    def test_no_database_at_all(self):
        job = self.secret_job()
        job.to = []
        self.check_refused(job.run_alone(), 2, "--to-file", "TALLOW_TO")

    def test_two_databases(self):
        job = self.secret_job()
        job.to = ["--to", "DSN=a", "--to-file", "b"]
        self.check_refused(job.run_alone(), 2, "--to", "--to-file")

    def test_files_that_hold_no_string(self):
        job = self.secret_job()
        for content in (b"", b"\r\n", b"DSN=a\nDSN=b\n", "DSN=a".encode("utf-16")):
            job.to = ["--to-file", self.data("to.txt", content)]
            self.check_refused(job.run_alone(), 2, "--to-file", "only line")
        job.to = ["--to-file", self.folder / "nothing.txt"]
        self.check_refused(job.run_alone(), 2, "--to-file", "nothing.txt")


class Library(CommandTest):
    """The program in its own folder, with what a test puts beside it."""

    def run_beside(self, **libraries):
        folder = self.folder / "alone"
        folder.mkdir()
        shutil.copy(harness.BIN / "tallow-load.exe", folder)
        for name, source in libraries.items():
            shutil.copy(source, folder / f"{name}.dll")
        job = self.job(self.data("in.csv", b"1\n"), "--columns", "id", "--create")
        program, *arguments = job.command()
        self.assertEqual(program.name, "tallow-load.exe")
        outcome = Outcome(Process(f"Z:{folder / program.name}", *arguments))
        self.assertIsNone(job.record())
        shutil.rmtree(folder)
        return outcome

    def test_is_missing(self):
        self.check_refused(self.run_beside(), 2, r"alone\csv.dll does not exist", "put the csv.dll")

    def test_cannot_be_loaded(self):
        text = self.data("text", b"text")
        self.check_refused(self.run_beside(csv=text), 2, r"alone\csv.dll is not a DLL")
        other = harness.BIN / "call_faults.dll"
        self.check_refused(self.run_beside(csv=other), 2, "is another library", "csv_init")

    def test_another_build_serves(self):
        # Named as it is, the one that the test has put there is taken, and the module is missing.
        outcome = self.run_beside(csv=harness.BIN / "csv.dll")
        self.check_refused(outcome, 1, r"alone\tallowin.dll does not exist")


class Writer(CommandTest):
    """A load whose writer lets it wait."""

    def half_done(self):
        """A load that has committed its first rows and waits for the rest; its job and writer."""
        job = self.small_job(400)
        load = job.start("--wait", "3")
        feed = harness.SlowFeed(job)
        feed.send(job.source.read_bytes()[:6000])
        harness.wait_until(lambda: (job.record() or (0,))[0] == 10, "the last checkpoint")
        return job, load, feed

    def check_can_go_on(self, outcome, *words):
        self.check_refused(outcome, 3, *words)
        self.assertRegex(outcome.err.splitlines()[-1], "^go on with: tallow-load .* --restart$")

    def test_that_never_comes(self):
        job = self.small_job()
        outcome = job.run_alone("--wait", "1")
        self.check_can_go_on(outcome, f"no writer has come to {job.pipe} within 1 second")
        self.assertEqual((outcome.json["status"], outcome.json["rows"]), ("restartable", 0))
        self.assertIn("--wait 1 --restart", outcome.json["restart"])
        self.check_done(job.run("--restart", "--wait", "60"), job)

    def test_that_falls_silent(self):
        job, load, feed = self.half_done()
        outcome = Outcome(load)
        self.check_can_go_on(outcome, f"the writer at {job.pipe} took longer than 3 seconds")
        self.assertEqual(outcome.json["position"], 10)
        feed.discard()
        self.check_can_go_on(job.run_alone("--restart", "--wait", "1"), "no writer has come")
        with harness.SlowFeed(job) as again:
            load = job.start("--restart", "--wait", "1")
            again.send(job.source.read_bytes()[:2000])
            self.check_can_go_on(Outcome(load), "took longer than 1 second for a block")
        self.assertEqual(job.record()[0], 10)
        self.check_done(job.run("--restart"), job)

    def test_wait_that_is_no_number_of_seconds(self):
        job = self.job(self.data("in.csv", b""))
        for seconds in ("0", "-1", "soon"):
            self.check_refused(job.run_alone("--wait", seconds), 2, "--wait", seconds)

    def test_ctrl_c_prints_the_restart_command(self):
        job, load, feed = self.half_done()
        load.interrupt()
        outcome = Outcome(load)
        feed.discard()
        self.check_can_go_on(outcome, "interrupted")
        load = job.start("--restart")
        number = "select commit_number from tallow_checkpoint"
        before = self.database.query(number)
        harness.wait_until(lambda: self.database.query(number) != before, "the hold on the job")
        load.interrupt()
        self.check_can_go_on(Outcome(load), "interrupted")
        again = self.run_line(job, outcome.err.splitlines()[-1].removeprefix("go on with: "))
        self.check_done(again, job)

    def test_is_waited_for_in_words(self):
        job = self.small_job(400)
        for restart, words in (([], "waiting for data from a writer at "),
                               (["--restart"], "waiting for a writer at ")):
            program, *arguments = job.command(*restart)
            load = TerminalProgram(program, *arguments, cwd=self.folder)
            self.addCleanup(load.discard)
            load.wait_for((words + job.pipe).encode())
            self.assertNotIn(b"0 B", load.shown())
            if not restart:
                feed = harness.SlowFeed(job)
                feed.send(job.source.read_bytes()[:6000])
                load.wait_for(b"nothing new for 0:0")
                load.press_ctrl_c()
                load.wait_for(b"--restart")
                feed.discard()


class Numbers(CommandTest):
    def test_negative_numbers(self):
        job = self.job(self.data("in.csv", b""), "--rejects", self.folder / "bad.csv")
        for option in ("--max-rejects", "--retry", "--batch", "--checkpoint-every"):
            self.check_refused(job.run_alone(option, "-1"), 2, option, "-1")
        self.assertFalse((self.folder / "bad.csv").exists())


class Tables(CommandTest):
    def test_name_that_is_more_than_a_name(self):
        self.database.execute("create table other (id int)")
        job = self.job(self.data("in.csv", b"1\n"), "--columns", "id", "--create")
        for table in ('rows" (id int); drop table other; --', 'rows"; drop table other', "a..b", '"a'):
            job.table = table
            self.check_refused(job.run_alone(), 2, "--table")
        job.table = "rows; drop table other; --"
        self.assertEqual(job.run().status, 0)
        self.assertEqual(self.database.query("select * from other"), [])
        self.assertEqual(self.database.query('select * from "rows; drop table other; --"'), [("1",)])

    def test_name_in_quotes(self):
        job = self.job(self.data("in.csv", b"1\n"), "--columns", "id", "--create")
        job.table = 'main."my ""table.1"""'
        self.assertEqual(job.run().status, 0)
        self.assertEqual(self.database.query('select * from "my ""table.1"""'), [("1",)])


class OtherFiles(CommandTest):
    def test_starting_over_leaves_a_file_that_only_the_command_line_names(self):
        job = self.small_job(40)
        self.check_done(job.run(), job)
        self.database.execute("delete from rows")
        precious = job.fallback / "precious.txt"
        precious.write_bytes(b"precious")
        job.init += " Fallback_file=precious.txt"
        load = job.start("--start-over")
        harness.wait_until(lambda: job.record()[3] == 0, "the job to begin anew")
        load.kill()
        self.assertEqual(precious.read_bytes(), b"precious")


class Data(CommandTest):
    def test_data_in_another_format(self):
        formats = [(b"\x1f\x8b\x08" + bytes(40), "gzip"), ("id,v\n1,a\n".encode("utf-16"), "UTF-16")]
        formats += [("id,v\n1,a\n".encode("utf-16-le"), "UTF-16"), (b"PK\x03\x04" + bytes(40), "zip")]
        for content, name in formats:
            self.database = self.database_factory()
            job = self.job(self.data("in.csv", content), "--columns", "id,v", "--create")
            outcome = job.run()
            self.assertNotEqual(outcome.status, 0, outcome)
            self.assertIn("looks like", outcome.err)
            self.assertIn(name, outcome.err)

    def test_no_data_where_a_header_is_due(self):
        job = self.job(self.data("in.csv", b""), "--header", "--create")
        outcome = job.run()
        self.check_refused(outcome, 1, "empty", "header")
        self.assertIsNone(outcome.json["lastRowEndsWithLineBreak"])
        self.assertIsNone(job.record())

    def test_bad_row_reaches_no_terminal_raw(self):
        content = b"1,a\x1b[2J\xc2\x9b\n"
        outcome = self.job(self.data("in.csv", content), "--columns", "id", "--create").run()
        self.assertIn(r"a\x1B[2J\u009B", outcome.err)
        self.assertNotIn("\x1b", outcome.err + outcome.json["error"])

    def test_folder_for_the_rejects(self):
        self.database.execute("create table rows (id varchar(9))")
        job = self.job(self.data("in.csv", b"1\n"), "--rejects", self.folder)
        self.check_refused(job.run_alone(), 1, "is a folder")


if __name__ == "__main__":
    main()

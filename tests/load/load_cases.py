"""The cases that hold on every database. A test program mixes them into its own class."""

import contextlib
import os
import pathlib
import random
import tempfile

import harness
from harness import Job, Outcome, read_rows, table_rows, write_rows

FULL = False


class Cases:
    """setUpClass sets `database_factory`; every test has its own database and folder."""

    maxDiff = 2000
    # Whether a commit whose answer is lost ends the load, which a restart then goes on with.
    lost_answers_end_the_load = False
    # Bytes that take a load of small blocks to its tenth block, and some more.
    half_way = 6000

    def setUp(self):
        scratch = tempfile.TemporaryDirectory(prefix="tallow-load-")
        self.addCleanup(scratch.cleanup)
        self.addCleanup(harness.end_all)
        self.folder = pathlib.Path(scratch.name)
        self.database = self.database_factory()

    def data(self, name, content):
        path = self.folder / name
        path.write_bytes(content)
        return path

    def job(self, source, *options, **settings):
        return Job(self.folder, self.database, source, *options, **settings)

    def small_job(self, rows=40, seed=1, *options):
        source = write_rows(self.folder / "in.csv", rows, seed)
        return self.job(source, "--header", "--create", *options)

    def check_done(self, outcome, job, context=""):
        self.assertEqual(outcome.status, 0, f"{context}\n{outcome}")
        self.check_rows(job, context)

    def check_rows(self, job, context=""):
        self.assertEqual(table_rows(self.database, job.table), read_rows(job.source), context)

    # ------------------------------------------------------------------------------------- reading

    def test_plain_load(self):
        job = self.small_job(2000 if not FULL else 100000)
        outcome = job.run()
        self.check_done(outcome, job)
        self.assertEqual(outcome.json["bytes"], job.source.stat().st_size)
        self.assertEqual(outcome.json["lastRowEndsWithLineBreak"], True)

    def test_every_offset_of_a_block(self):
        size = 64 if FULL else 12
        for offset in range(size):
            text = "1," + "p" * offset + '\r\n2,"a ""\u00e9\r\n\u6f22"\n3,\r\n4,"last, one"'
            source = self.data(f"{offset}.csv", text.encode())
            settings = {"table": f"t{offset}", "block": size, "every": 1}
            job = self.job(source, "--columns", "id,c1", "--create", **settings)
            outcome = job.run()
            self.assertEqual(outcome.status, 0, f"offset {offset}\n{outcome}")
            rows = table_rows(self.database, job.table)
            self.assertEqual(rows, read_rows(source, header=False), f"offset {offset}")
            self.assertEqual(outcome.json["lastRowEndsWithLineBreak"], False)

    def test_nulls_and_empty_texts(self):
        source = self.data("in.csv", b'\xef\xbb\xbf1;;""\n2;nil;"nil"\n3;x;"; y"\n')
        job = self.job(source, "--columns", "id,a,b", "--create", "--delimiter", ";", "--null", "nil")
        self.assertEqual(job.run().status, 0)
        self.assertEqual(
            table_rows(self.database, "rows"), [("1", None, ""), ("2", None, None), ("3", "x", "; y")]
        )

    def test_columns_in_another_order(self):
        self.database.execute("create table rows (id varchar(9), a varchar(9), b varchar(9))")
        source = self.data("in.csv", b"B,Id\r\nx,1\r\n")
        self.assertEqual(self.job(source, "--header").run().status, 0)
        self.assertEqual(table_rows(self.database, "rows"), [("1", None, "x")])

    def test_long_values(self):
        values = ["v" * 5000, "\u6f22" * 30000, "w" * 200000]
        text = "".join(f"{i},{value}\n" for i, value in enumerate(values, 1))
        source = self.data("in.csv", text.encode())
        job = self.job(source, "--columns", "id,v", "--create")
        self.assertEqual(job.run().status, 0)
        self.assertEqual(table_rows(self.database, "rows"), read_rows(source, header=False))

    def test_restart_inside_a_long_row(self):
        text = "1,a\n2," + "v" * 20000 + "\u6f22" * 5000 + "\n3,c\n"
        source = self.data("in.csv", b"id,v\n" + text.encode())

        def job():
            self.database = self.database_factory()
            return self.job(source, "--create", "--header")

        calls, _ = self.count_calls(job())
        positions = []
        for call in (calls // 2, *range(calls - 24, calls, 1 if FULL else 4)):
            killed = job()
            self.check_killed(killed, call)
            positions.append(killed.record()[0])
            self.check_done(killed.finish(), killed, f"killed at call {call}")
        # While the row is open there is no checkpoint, and there is one as soon as it has ended.
        self.assertEqual(positions[0], 0)
        self.assertGreater(positions[-1], 60)

    def test_no_data_at_all(self):
        job = self.job(self.data("in.csv", b""), "--columns", "id", "--create")
        outcome = job.run()
        self.assertEqual((outcome.status, outcome.json["rows"]), (0, 0), outcome)

    # --------------------------------------------------------------------------------- exactly once

    def test_random_kills(self):
        for number in range(50 if FULL else 2):
            seed = random.randrange(1 << 30)
            chance = random.Random(seed)
            self.database = self.database_factory()
            source = write_rows(self.folder / "in.csv", 30000, seed)
            job = self.job(source, "--header", "--create", block=16384)
            kills = 0
            while True:
                restart = [] if job.record() is None else ["--restart"]
                outcome = job.run(*restart, kill_after=chance.uniform(0.05, 1.2) + kills * 0.1)
                if outcome.status == 0:
                    break
                kills += 1
                self.assertLess(kills, 40, f"seed {seed}: no progress\n{outcome}")
                self.assertNotEqual(outcome.status, 2, outcome)
            self.check_rows(job, f"load {number}, seed {seed}, {kills} kills")

    def check_killed(self, job, call):
        outcome = job.run(fault=f"die {call}")
        self.assertEqual(outcome.status, harness.KILLED, f"killed at call {call}: {outcome}")

    def count_calls(self, job):
        outcome = job.run(fault="count")
        self.check_done(outcome, job)
        return job.calls()

    def fresh_small_job(self):
        self.database = self.database_factory()
        return self.small_job(24)

    def killed_job(self, call):
        job = self.fresh_small_job()
        self.check_killed(job, call)
        return job

    def test_kill_at_every_call(self):
        calls, _ = self.count_calls(self.fresh_small_job())
        self.assertGreater(calls, 40)
        for call in range(1, calls + 1, 1 if FULL else 7):
            job = self.killed_job(call)
            self.check_done(job.finish(), job, f"killed at call {call}")

    def test_restart_of_a_load_that_died_behind_its_last_commit(self):
        calls, _ = self.count_calls(self.fresh_small_job())
        left = 0
        for call in range(calls - 9, calls + 1):
            job = self.killed_job(call)
            if job.record()[3]:
                left += len(job.fallback_files())
                self.check_done(job.run_alone("--restart"), job)
                self.assertEqual(job.fallback_files(), [])
        self.assertGreater(left, 0, "no death left a fallback file behind")

    def test_second_kill_at_every_call_of_the_restart(self):
        calls, _ = self.count_calls(self.fresh_small_job())
        # A restart depends only on what the first kill has left, and most kills leave the same as
        # the kill before. So each state is tested once.
        states = set()
        for first in range(1, calls + 1) if FULL else [calls // 2, calls - 8]:
            state = self.killed_job(first).state()
            if state not in states:
                states.add(state)
                self.kill_restart_at_every_call(first)
        if FULL:
            self.assertGreater(len(states), 5)

    def kill_restart_at_every_call(self, first):
        second = 1
        while True:
            job = self.killed_job(first)
            restart = [] if job.record() is None else ["--restart"]
            outcome = job.run(*restart, fault=f"die {second}")
            context = f"killed at call {first}, then at {second}"
            if outcome.status != harness.KILLED:
                self.check_done(outcome, job, context)
                return
            if job.record() is None or not job.record()[3]:
                outcome = job.finish()
                self.assertEqual(outcome.status, 0, f"{context}\n{outcome}")
            self.check_rows(job, context)
            second += 1 if FULL else 9

    def test_lost_commits(self):
        _, commits = self.count_calls(self.fresh_small_job())
        for kind in ("commit-lost", "commit-undone"):
            for amount in (1, 2, 3) if FULL else (2, 3):
                for first in range(1, commits + 1, 1 if FULL else 3):
                    job = self.fresh_small_job()
                    outcome = job.run(fault=f"{kind} {first} {amount}")
                    context = f"{kind} {first} {amount}\n{outcome}"
                    if outcome.status != 0:
                        # Otherwise only a fault before the loader owns the job may end the run.
                        if not self.lost_answers_end_the_load:
                            self.assertLessEqual(first, 3, context)
                        outcome = job.finish()
                    self.check_done(outcome, job, context)

    @contextlib.contextmanager
    def load_half_way(self, *options):
        """A job that has committed its first rows, and a function that sends the rest and waits."""
        job = self.small_job(400, 1, *options)
        content = job.source.read_bytes()
        load = job.start()
        with harness.SlowFeed(job) as feed:
            feed.send(content[: self.half_way])
            harness.wait_until(lambda: (job.record() or (0,))[0] == 10, "the last checkpoint")

            def finish():
                feed.send(content[self.half_way :])
                feed.end()
                return harness.Outcome(load)

            yield job, finish

    def test_another_loader_takes_the_job(self):
        with self.load_half_way() as (job, finish):
            self.database.execute("update tallow_checkpoint set commit_number = commit_number + 1")
            before = job.record()
            self.check_refused(finish(), 1, "another loader")
        self.assertEqual(job.record(), before)
        self.assertEqual(len(table_rows(self.database, "rows")), before[1])
        self.check_done(job.run("--restart"), job)

    def test_database_that_has_gone_back_in_time(self):
        with self.load_half_way() as (job, finish):
            self.database.execute("update tallow_checkpoint set commit_number = commit_number - 1")
            before = job.record()
            self.check_refused(finish(), 4, "gone back to an earlier state", "--start-over")
        self.assertEqual(job.record(), before)
        self.assertEqual(len(table_rows(self.database, "rows")), before[1])

    def test_a_second_loader_beside_the_first(self):
        with self.load_half_way() as (job, finish):
            before = job.record()
            # The pipe is in use; the second loader finds out before it takes the job.
            second = job.run_alone("--restart")
            self.check_refused(second, 3)
            self.assertEqual(job.record(), before)
            self.check_done(finish(), job)

    def test_restart_of_a_job_that_is_done(self):
        job = self.small_job()
        self.check_done(job.run(), job)
        outcome = job.run_alone("--restart")
        self.check_done(outcome, job)

    # ------------------------------------------------------------------------------------- bad rows

    def bad_row_job(self, bad, *options, rows=60):
        """Rows of a number table; those in `bad` have a text where a number belongs."""
        self.database.number_table("rows")
        lines = [f"{i},{'bad' if i in bad else i * 10},note {i}\r\n" for i in range(1, rows + 1)]
        source = self.data("in.csv", "".join(lines).encode())
        rejects = self.folder / "rejects.csv"
        job = self.job(source, "--rejects", rejects, "--batch", "8", *options)
        return job, lines, rejects

    def check_bad_rows(self, job, lines, rejects, bad):
        good = [str(i) for i in range(1, len(lines) + 1) if i not in bad]
        self.assertEqual([row[0] for row in table_rows(self.database, "rows")], good)
        self.assertEqual(rejects.read_bytes().decode(), "".join(lines[i - 1] for i in sorted(bad)))
        reasons = read_rows(str(rejects) + ".reasons.csv")
        self.assertEqual([int(row[0]) for row in reasons], sorted(bad))
        offsets = [sum(len(line) for line in lines[: i - 1]) for i in sorted(bad)]
        self.assertEqual([int(row[1]) for row in reasons], offsets)
        for row in reasons:
            self.assertEqual(len(row[2]), 5)
            self.assertTrue(row[3])

    def test_bad_rows(self):
        kinds = [{1}, {60}, {17, 18, 19}, set(range(25, 33)), {1, 8, 9, 40, 60}]
        # With a checkpoint at each block no row is read ahead; with one at every ninth block all
        # are.
        for bad, every in [(bad, every) for bad in kinds for every in (1, 2, 9)]:
            with self.subTest(bad=sorted(bad), every=every):
                self.database = self.database_factory()
                job, lines, rejects = self.bad_row_job(bad, "--max-rejects", len(bad))
                job.every, job.init = every, job.init.replace("=512", "=256")
                for leftover in self.folder.glob("rejects*"):
                    leftover.unlink()
                outcome = job.run()
                self.assertEqual(outcome.status, 0, outcome)
                self.assertEqual(outcome.json["rejects"], len(bad))
                self.check_bad_rows(job, lines, rejects, bad)

    def test_first_bad_row_stops_the_load(self):
        job, lines, rejects = self.bad_row_job({30})
        outcome = job.run()
        self.assertEqual(outcome.status, 4, outcome)
        self.assertIn("line 30", outcome.err)
        self.assertIn("30,bad,note 30", outcome.err)
        self.assertIn("--restart", outcome.json["restart"])
        outcome = job.run("--restart", "--max-rejects", "1")
        self.assertEqual(outcome.status, 0, outcome)
        self.check_bad_rows(job, lines, rejects, {30})

    def test_share_of_bad_rows(self):
        # Of 60 rows; three are 5%.
        for bad, limit, status in (({1, 2, 60}, "5%", 0), ({1, 2, 3}, "4.9%", 4)):
            with self.subTest(limit=limit):
                self.database = self.database_factory()
                for leftover in self.folder.glob("rejects*"):
                    leftover.unlink()
                job, lines, rejects = self.bad_row_job(bad, "--max-rejects", limit)
                outcome = job.run()
                self.assertEqual(outcome.status, status, outcome)
                if status != 0:
                    self.assertIn(f"3 of 60 rows cannot be loaded, more than --max-rejects {limit}", outcome.err)
                    # A restart comes to the same end.
                    self.check_refused(job.run("--restart"), 4, "3 of 60 rows")
                    job.options[job.options.index(limit)] = "3"
                    outcome = job.run("--restart")
                    self.assertEqual(outcome.status, 0, outcome)
                self.check_bad_rows(job, lines, rejects, bad)

    def test_share_of_bad_rows_stops_the_load_on_the_way(self):
        job, lines, rejects = self.bad_row_job(set(range(1, 13)), "--max-rejects", "5%")
        outcome = job.run()
        self.assertEqual(outcome.status, 4, outcome)
        self.assertIn("line 11 ", outcome.err)
        self.check_refused(job.run("--restart"), 4, "line 11 ")

    def test_failure_while_the_writer_is_silent(self):
        content = b"1,a\n2\n" + b"".join(b"%d,note\n" % i for i in range(3, 90))
        job = self.job(self.data("in.csv", content), "--columns", "id,v", "--create", every=9)
        load = job.start()
        with harness.SlowFeed(job) as feed:
            # The second block is being read ahead and never becomes full.
            feed.send(content)
            self.check_refused(harness.Outcome(load), 4, "line 2")

    def test_rejects_are_written_once(self):
        bad = {3, 20, 21, 45}
        calls = None
        for call in range(30, 400, 11 if FULL else 60):
            self.database = self.database_factory()
            for leftover in self.folder.glob("rejects*"):
                leftover.unlink()
            job, lines, rejects = self.bad_row_job(bad, "--max-rejects", "4")
            outcome = job.run(fault=f"die {call}")
            if outcome.status == harness.KILLED:
                outcome = job.finish()
            else:
                calls = call
            self.assertEqual(outcome.status, 0, f"call {call}\n{outcome}")
            self.check_bad_rows(job, lines, rejects, bad)
            if calls:
                break

    def test_rows_that_are_no_rows(self):
        content = b'1,a\n2\n3,b,c\n4,"x"y\n5,\xff\n6,\x00\n7,"l\n\n"\n8,z\n'
        job = self.job(
            self.data("in.csv", content),
            *("--columns", "id,v", "--create", "--max-rejects", "5"),
            *("--rejects", self.folder / "rejects.csv"),
        )
        outcome = job.run()
        self.assertEqual(outcome.status, 0, outcome)
        self.assertEqual(
            table_rows(self.database, "rows"), [("1", "a"), ("7", "l\n\n"), ("8", "z")]
        )
        rejected = (self.folder / "rejects.csv").read_bytes()
        self.assertEqual(rejected, b'2\n3,b,c\n4,"x"y\n5,\xff\n6,\x00\n')
        states = [row[2] for row in read_rows(self.folder / "rejects.csv.reasons.csv")]
        self.assertEqual(states, ["21S01", "21S01", "22000", "22021", "22021"])

    # ------------------------------------------------------------------------------------ bad input

    def check_refused(self, outcome, status, *words):
        """One line says what happened and what to do; a second one has the command to continue."""
        self.assertEqual(outcome.status, status, outcome)
        for word in words:
            self.assertIn(word, outcome.err)
        self.assertLessEqual(len(outcome.err.splitlines()), 2 if status in (3, 4) else 1, outcome)

    def test_missing_table(self):
        job = self.job(self.data("in.csv", b"1\n"))
        self.check_refused(job.run_alone(), 1, "rows", "--create")
        self.assertIsNone(job.record())

    def test_missing_column(self):
        self.database.execute("create table rows (id varchar(9))")
        job = self.job(self.data("in.csv", b"1\n"), "--columns", "id,nothing")
        self.check_refused(job.run_alone(), 1, "nothing")
        self.assertIsNone(job.record())

    def test_missing_column_in_the_header(self):
        self.database.execute("create table rows (id varchar(9))")
        job = self.job(self.data("in.csv", b"id,nothing\n1,2\n"), "--header")
        self.check_refused(job.run(), 1, "nothing")
        self.assertIsNone(job.record())

    def test_wrong_number_of_columns_in_the_header(self):
        job = self.job(self.data("in.csv", b"a,b\n"), "--header", "--columns", "a", "--create")
        self.check_refused(job.run(), 1, "2 fields")
        self.assertIsNone(job.record())

    def test_table_that_cannot_be_created(self):
        job = self.job(self.data("in.csv", b"1\n"), "--columns", "a,a", "--create")
        self.check_refused(job.run_alone(), 1, "cannot be created")

    def test_rejects_file_that_cannot_be_written(self):
        self.database.execute("create table rows (id varchar(9))")
        job = self.job(
            self.data("in.csv", b"1\n"),
            *("--rejects", self.folder / "nowhere" / "x.csv", "--max-rejects", "1"),
        )
        self.check_refused(job.run_alone(), 1, "x.csv")
        self.assertIsNone(job.record())

    def test_restart_without_checkpoint(self):
        self.database.execute("create table rows (id varchar(9))")
        job = self.job(self.data("in.csv", b"1\n"))
        self.check_refused(job.run_alone("--restart"), 1, "no checkpoint")

    def interrupted_job(self):
        """A job that is killed with rows in the table."""
        job = self.small_job(400)
        calls, _ = self.count_calls(job)
        self.database = self.database_factory()
        job = self.small_job(400)
        self.assertEqual(job.run(fault=f"die {calls * 2 // 3}").status, harness.KILLED)
        self.assertGreater(job.record()[1], 0)
        return job

    def test_restart_with_other_settings(self):
        job = self.interrupted_job()
        for change in (["--null", "x"], ["--delimiter", ";"]):
            outcome = job.run_alone("--restart", *change)
            self.check_refused(outcome, 1, "another load")
        self.check_done(job.run("--restart"), job)

    def test_restart_of_another_table(self):
        job = self.interrupted_job()
        self.database.execute("create table other (id varchar(9))")
        job.table = "other"
        self.check_refused(job.run_alone("--restart"), 1, "the table was")

    def test_new_run_of_a_job_that_is_not_done(self):
        job = self.interrupted_job()
        self.check_refused(job.run_alone(), 1, "--restart", "--start-over")
        self.check_done(job.run("--restart"), job)

    def test_starting_over(self):
        job = self.interrupted_job()
        rows = job.record()[1]
        self.check_refused(job.run_alone("--start-over"), 1, f"remove those {rows}")
        self.database.execute("delete from rows")
        self.check_done(job.run("--start-over"), job)

    def test_starting_over_beside_rows_of_another_job(self):
        job = self.interrupted_job()
        self.database.execute("delete from rows", "insert into rows (id) values ('99999')")
        self.check_refused(job.run_alone("--start-over"), 1, "--rows-removed")
        self.assertEqual(job.run("--start-over", "--rows-removed").status, 0)
        ids = [row[0] for row in table_rows(self.database, "rows")]
        self.assertEqual(ids, [str(number) for number in range(1, 401)] + ["99999"])

    def test_starting_over_removes_the_rejects_of_the_job_alone(self):
        rejects = self.folder / "bad.csv"
        content = b"1,a\n2\n3,c\n4\n"
        options = ("--columns", "id,v", "--create", "--rejects", rejects)
        job = self.job(self.data("in.csv", content), *options, block=4, every=1)
        self.assertEqual(job.run("--max-rejects", "1").status, 4)
        self.assertEqual(rejects.read_bytes(), b"2\n")
        self.database.execute("delete from rows")
        other = self.data("other.csv", b"not ours")
        job.options[-1] = other
        self.check_refused(job.run_alone("--start-over"), 1, "other.csv", "name another file")
        self.assertEqual((other.read_bytes(), rejects.read_bytes()), (b"not ours", b"2\n"))
        job.options[-1] = rejects
        outcome = job.run("--start-over", "--max-rejects", "2")
        self.assertEqual((outcome.status, outcome.json["rejects"]), (0, 2), outcome)
        self.assertEqual(rejects.read_bytes(), b"2\n4\n")

    def test_table_of_jobs_of_an_earlier_release(self):
        job = self.interrupted_job()
        self.database.execute("alter table tallow_checkpoint drop column rejects_file")
        self.check_done(job.run("--restart"), job)

    def test_restart_with_another_log(self):
        job = self.interrupted_job()
        job.init += f" Log_level=2 Log_directory=Z:{self.folder}"
        self.check_done(job.run("--restart"), job)

    def test_starting_over_removes_the_fallback_file(self):
        job = self.interrupted_job()
        self.database.execute("delete from rows")
        self.assertNotEqual(job.fallback_files(), [])
        load = job.start("--start-over")
        # No new file takes its place until a writer connects.
        harness.wait_until(lambda: not job.fallback_files(), "the removal")
        load.kill()
        self.check_done(job.run("--restart"), job)

    def test_fallback_file_that_is_lost_during_the_load(self):
        with self.load_half_way() as (job, finish):
            for file in job.fallback_files():
                file.unlink()
            outcome = finish()
        self.assertEqual(outcome.err.count("warning"), 1, outcome)
        self.assertIn("is gone; the load goes on, but it could not be restarted", outcome.err)
        self.check_done(outcome, job)

    def test_restart_with_a_fallback_file_that_cannot_be_used(self):
        job = self.interrupted_job()
        before = job.record()
        (file,) = job.fallback_files()
        content = file.read_bytes()
        file.write_bytes(content[:20])
        self.check_refused(job.run("--restart"), 4, "cannot be used", "nothing was changed")
        self.assertEqual(job.record(), before)
        file.write_bytes(content)
        self.check_done(job.run("--restart"), job)

    def test_restart_with_other_data(self):
        job = self.interrupted_job()
        before = job.record()
        content = bytearray(job.source.read_bytes())
        content[100] ^= 1
        outcome = job.run("--restart", source=self.data("other.csv", bytes(content)))
        self.check_refused(outcome, 4, "other data", "--start-over")
        self.assertEqual(job.record(), before)
        self.check_done(job.run("--restart"), job)

    def test_restart_with_less_data(self):
        job = self.interrupted_job()
        before = job.record()
        part = self.data("part.csv", job.source.read_bytes()[:600])
        self.check_refused(job.run("--restart", source=part), 4, "sent less")
        self.assertEqual(job.record(), before)
        self.check_done(job.run("--restart"), job)

    def test_restart_without_fallback_file(self):
        job = self.interrupted_job()
        for file in job.fallback_files():
            file.unlink()
        outcome = job.run("--restart")
        self.check_refused(outcome, 1, "--start-over")
        self.assertEqual(outcome.err.count("fallback file"), 1, outcome)

    def test_more_values_than_a_statement_holds(self):
        self.database.execute("create table rows (id varchar(9), a varchar(9), b varchar(9))")
        source = self.data("in.csv", b"".join(b"%d,a,b\n" % i for i in range(1, 30001)))
        before = self.job(source, "--columns", "id,a,b", "--batch", "32767")
        self.check_refused(before.run_alone(), 2, "--batch 21845")
        after = self.job(source, "--batch", "32767", block=65536)
        outcome = after.run_alone()
        self.check_refused(outcome, 2, "at most --batch")
        self.assertIsNone(after.record())
        most = outcome.err.split("at most --batch ")[1].split()[0]
        full = self.job(source, "--batch", most, block=65536)
        outcome = full.run()
        self.assertEqual(outcome.status, 0, outcome)
        self.assertEqual(self.database.query("select count(*) from rows"), [("30000",)])

    def test_driver_that_says_a_longer_name_than_it_gives(self):
        self.database.execute("create table rows (id varchar(9))")
        job = self.job(self.data("in.csv", b"1\n"))
        self.check_refused(Outcome(job.start(fault="long-name")), 1, "longer than 511")

    def test_open_quote_at_the_end(self):
        source = self.data("in.csv", b'1,a\n2,"b\n3,c\n')
        outcome = self.job(source, "--columns", "id,v", "--create").run()
        self.check_refused(outcome, 4, "line 2")
        self.assertEqual(table_rows(self.database, "rows"), [])

    def test_init_strings_that_a_load_cannot_use(self):
        for init in ("Need_Full_Block=no", "No_FallBack", "Nonsense=1", "Block_size="):
            job = self.job(self.data("in.csv", b""), init=init)
            self.check_refused(job.run_alone(), 2, "--init")

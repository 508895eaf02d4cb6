#!/usr/bin/env python3
"""tallow-host with a writer of its own, and with a known amount of data."""

import os
import pathlib
import random
import signal
import subprocess

from tallow_tests import BIN
from tallow_tests.reports import main
from tallow_tests.tools import OPTIONS, ToolTest, data_of
from tallow_tests.waiting import wait_until

STATE = ["--state", "job.json", "--checkpoint-every", "10"]
DYING = "Z:" + str(BIN / "dying_writer.exe").replace("/", "\\")


def running(words):
    """The processes with these words in their command line."""
    found = []
    for path in pathlib.Path("/proc").glob("[0-9]*/cmdline"):
        try:
            line = path.read_bytes().replace(b"\0", b" ").decode("utf-8", "replace")
        except OSError:
            continue
        if all(word in line for word in words):
            found.append(int(path.parent.name))
    return found


class WriterTest(ToolTest):
    DATA = data_of(60_500)

    def setUp(self):
        super().setUp()
        self.write("data", self.DATA)

    def writer(self, length, *end):
        return ["--writer", " ".join(map(str, [DYING, "{pipe}", "data", length, *end]))]

    def restart(self, *arguments):
        return self.run_tool("tallow-host", "--state", "job.json", "--restart", *arguments)

    def assertWhole(self, outcome):
        self.assertEnded(outcome, 0)
        self.assertEqual(self.read("out"), self.DATA)
        self.assertFalse(self.exists("job.json.fbf"))

    def assertNotDone(self, outcome, *words):
        self.assertFault(outcome, 3, "tallow-host --state job.json --restart", *words)
        self.assertFalse(self.state()["finished"])


class Writers(WriterTest):
    def test_takes_the_data_of_a_writer_that_ends_with_0(self):
        outcome = self.host(*STATE, *self.writer(60_500, "exit", 0)).outcome()
        self.assertWhole(outcome)
        self.assertEqual(outcome.err, "")

    def test_sends_a_file(self):
        self.write("a file", self.DATA)
        self.assertWhole(self.host("--in", "a file").outcome())
        self.write("-x", self.DATA)
        self.assertWhole(self.host("--in=-x").outcome())

    def test_sends_its_standard_input(self):
        host = self.host("--in", "-", stdin=subprocess.PIPE)
        host.stdin.write(self.DATA)
        host.stdin.close()
        self.assertWhole(host.outcome())

    def test_names_the_pipe_in_the_environment(self):
        command = f"cmd /c {DYING} %TALLOW_PIPE% data 60500 exit 0"
        self.assertWhole(self.host("--writer", command).outcome())

    def test_takes_what_a_shell_sends(self):
        self.DATA = self.DATA.hex().encode()
        self.write("data", self.DATA)
        self.assertWhole(self.host("--writer", "cmd /c type data > {pipe}").outcome())

    def test_is_not_done_when_the_writer_failed(self):
        for end, status in ((["exit", 5], "5"), (["kill"], "77"), (["flood", 3], "9")):
            with self.subTest(end):
                outcome = self.host(*STATE, "--new", *self.writer(35_500, *end)).outcome()
                self.assertEnded(outcome, 3)
                self.assertIn(f"dying_writer ended with status {status}", outcome.err)
                self.assertIn("tallow-host --state job.json --restart --writer", outcome.err)
                self.assertEqual((self.state()["position"], self.state()["finished"]), (30, False))
                self.assertTrue(self.exists("job.json.fbf"))
                self.assertWhole(self.restart(*self.writer(60_500, "exit", 0)))

    def test_keeps_nothing_of_a_failed_writer_without_a_state(self):
        self.write("out", "yesterday's")
        outcome = self.host(*self.writer(35_500, "exit", 5)).outcome()
        self.assertFault(outcome, 1, "ended with status 5")
        self.assertEqual(self.read("out"), b"yesterday's")
        self.assertFalse(self.exists("out.part"))

    def test_restarts_after_a_death_within_a_checkpoints_block(self):
        outcome = self.host("--state", "job.json", "--checkpoint-every", 1,
                            *self.writer(35_500, "kill")).outcome()
        self.assertNotDone(outcome)
        self.assertEqual(self.state()["position"], 35)
        self.assertWhole(self.restart(*self.writer(60_500, "exit", 0)))

    def test_is_not_done_when_the_writer_fails_again_at_a_restart(self):
        self.host(*STATE, *self.writer(35_500, "kill")).outcome()
        before = self.read("out"), self.read("job.json")
        for length in (0, 12_000, 29_500, 29_999):
            with self.subTest(length):
                outcome = self.restart(*self.writer(length, "kill"))
                self.assertEnded(outcome, 3)
                self.assertIn("ended with status 77", outcome.err)
                self.assertEqual((self.read("out"), self.read("job.json")), before)
        self.assertWhole(self.restart(*self.writer(60_500, "exit", 0)))

    def test_blames_the_data_when_the_writer_is_well(self):
        self.host(*STATE, *self.writer(35_500, "kill")).outcome()
        self.write("data", data_of(60_500, seed=8))
        outcome = self.restart(*self.writer(60_500, "exit", 0))
        self.assertEnded(outcome, 4)
        self.assertIn("differs from that of the first run", outcome.err)

    def test_ends_with_a_writer_that_never_opens_the_pipe(self):
        for status in (0, 7):
            with self.subTest(status):
                outcome = self.host(*STATE, "--new", "--writer", f"cmd /c exit {status}").outcome()
                self.assertNotDone(outcome, f"the writer cmd ended with status {status}",
                                   "has not opened " + self.pipe)
        outcome = self.restart("--writer", "cmd /c exit 7")
        self.assertEnded(outcome, 3)
        self.assertIn("has not opened", outcome.err)
        self.assertWhole(self.restart(*self.writer(60_500, "exit", 0)))

    def test_changes_nothing_when_the_writer_cannot_be_started(self):
        self.write("out", "yesterday's")
        outcome = self.host("--writer", "no-such-program {pipe}").outcome()
        self.assertFault(outcome, 2, "cannot start the writer no-such-program")
        self.assertEqual(self.read("out"), b"yesterday's")
        self.host(*STATE, *self.writer(35_500, "kill")).outcome()
        before = self.read("out"), self.read("job.json")
        self.assertFault(self.restart("--writer", "no-such-program"), 4, "cannot start", "mend")
        self.assertEqual((self.read("out"), self.read("job.json")), before)

    def test_is_not_done_when_the_writer_opens_the_pipe_twice(self):
        outcome = self.host(*STATE, *self.writer(35_500, "twice")).outcome()
        self.assertNotDone(outcome, "dying_writer ended with status ")
        self.assertWhole(self.restart(*self.writer(60_500, "exit", 0)))

    def test_waits_for_a_writer_that_outlives_its_data_as_long_as_told(self):
        outcome = self.host(*STATE, "--wait", 1, *self.writer(60_500, "hang")).outcome()
        self.assertNotDone(outcome, "closed the pipe but not ended within 1 second")
        self.assertEqual(running([self.pipe, "dying_writer", "hang"]), [])
        self.assertWhole(self.restart(*self.writer(60_500, "exit", 0)))

    def test_ends_a_writer_that_does_not_come_in_time(self):
        outcome = self.host(*STATE, "--wait", 1, *self.writer(0, "absent")).outcome()
        self.assertNotDone(outcome, "dying_writer has not opened " + self.pipe)
        self.assertWhole(self.restart(*self.writer(60_500, "exit", 0)))

    def test_passes_on_what_the_writer_says_and_no_flood(self):
        outcome = self.host(*self.writer(60_500, "flood", 3)).outcome()
        self.assertEqual(outcome.error_lines[:3], [f"dying_writer: line {i}" for i in (1, 2, 3)])
        self.assertIn('having said "line 3"', outcome.err)
        outcome = self.host(*self.writer(60_500, "flood", 200_000)).outcome()
        self.assertEqual(len(outcome.error_lines), 1002)
        self.assertIn("199,000 lines left out; the last: line 200000", outcome.error_lines[-2])
        self.assertIn('ended with status 9, having said "line 200000"', outcome.error_lines[-1])

    def test_stops_by_ctrl_c_with_its_writer(self):
        for end, length in (("stall", 25_000), ("hang", 25_000), ("absent", 0)):
            with self.subTest(end):
                host = self.host(*STATE, *self.writer(length, end))
                self.wait_for_length("out", length)
                wait_until(lambda: self.exists("job.json"), "the state")
                host.interrupt()
                self.assertNotDone(host.outcome(), "stopped by Ctrl-C")
                self.assertEqual(running([self.pipe, "dying_writer", end]), [])
                self.assertWhole(self.restart(*self.writer(60_500, "exit", 0)))
                # The next wait must see its own run's state, which comes after the writer's start:
                # while a thread is being made, Wine can't take Ctrl-C.
                os.remove(self.folder / "out")
                os.remove(self.folder / "job.json")

    def test_takes_the_writer_along_when_it_is_killed(self):
        host = self.host(*STATE, *self.writer(25_000, "stall"))
        self.wait_for_length("out", 25_000)
        words = [self.pipe, "dying_writer.exe {pipe}".split()[0], "stall"]
        self.assertTrue(running(words))
        os.kill(host.process.pid, signal.SIGKILL)
        wait_until(lambda: not running(words), "the end of the writer")
        self.assertWhole(self.restart(*self.writer(60_500, "exit", 0)))

    def test_refuses_two_writers(self):
        self.assertFault(self.host("--in", "x", "--writer", "y").outcome(), 2, "--in", "--writer")

    def test_reaches_the_exact_file_whenever_the_writer_is_killed(self):
        seed = random.randrange(2**32)
        chance = random.Random(seed)
        with self.subTest(seed=seed):
            for _ in range(2):
                arguments = [*STATE[:2], "--checkpoint-every", chance.randint(1, 12), "--new"]
                outcome = self.host(*arguments, *self.writer(chance.randint(0, 60_499),
                                                             "kill")).outcome()
                for _ in range(4):
                    self.assertEnded(outcome, 3)
                    outcome = self.restart(*self.writer(chance.randint(0, 60_499), "kill"))
                self.assertEnded(outcome, 3)
                self.assertWhole(self.restart(*self.writer(60_500, "exit", 0)))


class Resumes(WriterTest):
    def resume(self, *arguments):
        return self.host(*STATE, "--resume", *arguments).outcome()

    def test_needs_one_command_line_for_every_run(self):
        outcome = self.resume(*self.writer(35_500, "kill"))
        self.assertEnded(outcome, 3)
        self.assertIn("starts a new job, kept in job.json", outcome.err)
        outcome = self.resume(*self.writer(60_500, "exit", 0))
        self.assertWhole(outcome)
        self.assertIn("goes on with the job in job.json", outcome.err)
        self.assertIn("restarted from block 30", outcome.text)
        before = self.read("out"), self.read("job.json")
        outcome = self.resume(*self.writer(0, "kill"))
        self.assertEnded(outcome, 0)
        self.assertEqual((outcome.err, outcome.text),
                         ("", "the job in job.json is done already: nothing to restart\n"))
        self.assertEqual((self.read("out"), self.read("job.json")), before)

    def test_touches_nothing_of_another_job(self):
        self.resume(*self.writer(35_500, "kill"))
        before = self.read("out"), self.read("job.json")
        for arguments in (["--out", "other"], ["--pipe", self.pipe + "x"]):
            with self.subTest(arguments):
                outcome = self.run_tool("tallow-host", "--state", "job.json", "--resume",
                                        *arguments)
                self.assertEnded(outcome, 2)
                self.assertIn("leave " + arguments[0], outcome.err)
                self.assertEqual((self.read("out"), self.read("job.json")), before)
                self.assertFalse(self.exists("other"))

    def test_reaches_the_exact_file_whenever_the_writer_is_killed(self):
        seed = random.randrange(2**32)
        chance = random.Random(seed)
        with self.subTest(seed=seed):
            for _ in range(5):
                outcome = self.resume(*self.writer(chance.randint(0, 60_499), "kill"))
                self.assertEnded(outcome, 3)
            self.assertWhole(self.resume(*self.writer(60_500, "exit", 0)))

    def test_tries_again_by_itself(self):
        # The second of the two, which stands in a file of its own, sends everything.
        self.write("writer.cmd", f"@if exist tried goto whole\r\n@echo x>tried\r\n"
                   f"@{DYING} %1 data 35500 exit 5\r\n@exit /b 5\r\n"
                   f":whole\r\n@{DYING} %1 data 60500 exit 0\r\n")
        outcome = self.resume("--attempts", 3, "--writer", "cmd /c writer.cmd {pipe}")
        self.assertWhole(outcome)
        self.assertIn("attempt 1 of 3 failed; the next begins in 1 second", outcome.err)
        self.assertNotIn("attempt 2", outcome.err)

    def test_gives_up_after_the_last_attempt(self):
        outcome = self.resume("--attempts", 2, *self.writer(35_500, "kill"))
        self.assertEnded(outcome, 3)
        self.assertEqual(outcome.err.count("ended with status 77"), 2)
        self.assertNotIn("attempt 2 of 2 failed", outcome.err)
        self.assertIn("go on with: tallow-host --state job.json --restart", outcome.error_lines[-1])

    def test_tries_again_when_no_writer_has_come(self):
        outcome = self.resume("--attempts", 2, "--wait", 1)
        self.assertEnded(outcome, 3)
        self.assertEqual(outcome.err.count("no writer has come"), 2)

    def test_does_not_try_again_what_a_person_must_mend_or_has_stopped(self):
        outcome = self.resume("--attempts", 3, "--writer", "no-such-program")
        self.assertEnded(outcome, 2)
        self.assertNotIn("attempt", outcome.err)
        host = self.host(*STATE, "--resume", "--attempts", 3, *self.writer(25_000, "stall"))
        self.wait_for_length("out", 25_000)
        host.interrupt()
        outcome = host.outcome()
        self.assertEnded(outcome, 3)
        self.assertNotIn("attempt", outcome.err)

    def test_refuses_what_cannot_be_meant(self):
        for arguments, word in ((["--restart"], "--resume"), (["--attempts", 0], "--attempts"),
                                (["--attempts", 2, "--in", "-"], "standard input")):
            with self.subTest(arguments):
                self.assertFault(self.resume(*arguments), 2, word)
        self.assertFault(self.host("--resume").outcome(), 2, "--state")
        self.assertFault(self.host("--attempts", 2).outcome(), 2, "--resume")
        self.assertEnded(self.run_tool("tallow-host", "--state", "job.json", "--resume"), 2)


class ExpectedBytes(WriterTest):
    def test_takes_no_early_end_for_the_end(self):
        self.feed(self.DATA[:35_500])
        outcome = self.host(*STATE, "--expect-bytes", 60_500).outcome()
        self.assertNotDone(outcome, "--expect-bytes 60500",
                           "ended after 35500 bytes, and 60500 were expected")
        self.feed(self.DATA)
        self.assertWhole(self.restart("--expect-bytes", 60_500))

    def test_refuses_more_than_was_expected(self):
        self.feed(self.DATA)
        outcome = self.host(*STATE, "--expect-bytes", 60_499).outcome()
        self.assertFault(outcome, 4, "60500 bytes, and 60499 were expected")
        self.assertFalse(self.state()["finished"])
        self.feed(self.DATA)
        self.assertWhole(self.restart())


if __name__ == "__main__":
    main()

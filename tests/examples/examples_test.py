#!/usr/bin/env python3
"""The examples and the commands of README.md and the host guide do what the documents say."""

import random
import re
import shlex
import shutil
import subprocess
import threading

from tallow_tests import BIN, LIMIT, SOURCE
from tallow_tests.machine import koffi, node
from tallow_tests.programs import Program
from tallow_tests.reports import main
from tallow_tests.tools import ToolTest
from tallow_tests.waiting import wait_until

BLOCK = 4096
BLOCKS_PER_CHECKPOINT = 64
DATA = random.Random(1).randbytes(300 * BLOCK + 1234)


class Example(ToolTest):
    """Starts the programs of examples/ and the tools in a folder of its own."""

    program = "minimal_host"

    def setUp(self):
        super().setUp()
        self.write("data.bin", DATA)

    def start_program(self, *arguments):
        return self.start(self.program, *arguments)

    def start_host(self, options=f"Log_directory=. Log_level=4 Block_size={BLOCK}"):
        return self.start_program(self.pipe, "out.bin", ".", options)

    def start_writer(self, file="data.bin"):
        return self.start("minimal_writer", self.pipe, file)

    def output(self):
        return self.read("out.bin")

    def kill_half_way(self, host, data, reached):
        """Feeds a host these first bytes of its data, and kills it when `reached` says so."""
        feed = self.start("tallow-feed", "--pipe", self.pipe, "--in", "-", "--chunk", BLOCK,
                          stdin=subprocess.PIPE)

        def write():
            feed.stdin.write(data)
            feed.stdin.flush()

        def half_way():
            self.assertTrue(host.running(), "the host ended")
            return reached()

        writing = threading.Thread(target=write)
        writing.start()
        writing.join(LIMIT)
        wait_until(half_way, "the checkpoint")
        host.kill()
        feed.stdin.close()
        feed.wait()


class CppHost(Example):
    said_of_a_bad_option = r"pmrcUnknownOption \(21\): .*an option that does not exist"

    def kill_host_half_way(self):
        """The host, killed after three checkpoints while it waits for data."""
        position = f"position {3 * BLOCKS_PER_CHECKPOINT}\n".encode()
        self.kill_half_way(self.start_host(), DATA[:(3 * BLOCKS_PER_CHECKPOINT + 10) * BLOCK],
                           lambda: self.exists("job.note") and position in self.read("job.note"))

    def test_host_and_writer_move_a_file(self):
        host, writer = self.start_host(), self.start_writer()
        self.assertEnded(host.outcome(), 0)
        self.assertEnded(writer.outcome(), 0)
        self.assertEqual(self.output(), DATA)
        self.assertFalse(self.exists("job.fbf"), "the fallback file must be gone")

    def test_host_goes_on_after_it_was_killed(self):
        self.kill_host_half_way()
        host, writer = self.start_host(), self.start_writer()
        self.assertEqual(host.wait(), 0)
        self.assertEqual(writer.wait(), 0)
        self.assertEqual(self.output(), DATA)
        self.assertIn(" EVENT 95 ", self.log(), "the job must have been restarted, not begun again")

    def test_host_keeps_what_it_has_when_the_data_is_not_the_same(self):
        self.kill_host_half_way()
        before = self.output()
        self.write("other.bin", b"x" + DATA[1:])
        host, writer = self.start_host(), self.start_writer("other.bin")
        outcome = host.outcome()
        self.assertEnded(outcome, 1)
        self.assertRegex(outcome.err, r"failed with.*\b16\b")
        writer.wait()
        self.assertTrue(self.exists("job.fbf"))
        kept = len(self.output())
        self.assertGreaterEqual(kept, (3 * BLOCKS_PER_CHECKPOINT - 1) * BLOCK)
        self.assertEqual(self.output(), before[:kept])

    def test_host_does_nothing_when_the_job_is_done(self):
        host, writer = self.start_host(), self.start_writer()
        self.assertEqual((host.wait(), writer.wait()), (0, 0))
        self.assertEqual(self.start_host().wait(), 0)
        self.assertEqual(self.output(), DATA)

    def test_host_deletes_the_file_that_a_death_before_close_has_left(self):
        host, writer = self.start_host(), self.start_writer()
        self.assertEqual((host.wait(), writer.wait()), (0, 0))
        self.write("job.fbf", "left")
        self.assertEqual(self.start_host().wait(), 0)
        self.assertFalse(self.exists("job.fbf"))

    def test_host_does_not_begin_anew_because_its_note_is_damaged(self):
        self.kill_host_half_way()
        before = self.output()
        self.write("job.note", "tallow note 1\nposition ")
        outcome = self.start_host().outcome()
        self.assertEnded(outcome, 1)
        self.assertIn("note", outcome.err)
        self.assertEqual(self.output(), before)

    def test_host_does_not_go_on_in_an_output_that_is_not_its_own(self):
        self.kill_host_half_way()
        self.write("out.bin", "short")
        outcome = self.start_host().outcome()
        self.assertEnded(outcome, 1)
        self.assertIn("out", outcome.err)
        self.assertTrue(self.exists("job.fbf"))

    def test_host_says_what_is_wrong_with_its_options(self):
        outcome = self.start_host("Nonsense=1").outcome()
        self.assertEnded(outcome, 1)
        self.assertRegex(outcome.err, self.said_of_a_bad_option)

    def test_host_says_how_it_is_used(self):
        outcome = self.start_program().outcome()
        self.assertEnded(outcome, 2)
        self.assertIn("PIPE OUTPUT FOLDER [OPTIONS]", outcome.err)


class CHost(CppHost):
    program = "minimal_host_c"


class JavaScriptHost(CppHost):
    said_of_a_bad_option = r"failed with 21: see the module's log"

    def start_program(self, *arguments):
        module = [f"Z:{BIN / 'tallowin.dll'}"] if arguments else []
        return Program(node(self), SOURCE / "examples" / "minimal_host.js", *module, *arguments,
                       cwd=self.folder, NODE_PATH=f"Z:{koffi(self)}")


class Guides(Example):
    def test_the_job_of_the_readme_runs_in_a_console(self):
        readme = (SOURCE / "README.md").read_text(encoding="utf-8")
        lines = re.search(r"^```bat\n(.*?)^```$", readme, re.MULTILINE | re.DOTALL).group(1)
        self.assertEqual(len(lines.splitlines()), 5)
        name = self.pipe.rsplit("\\", 1)[1]
        lines = lines.replace(r"\\.\pipe\orders", rf"\\.\pipe\{name}").replace("\n", "\r\n")
        self.write("job.bat", lines)
        self.write("orders.csv", DATA)
        for program in ("tallow-feed.exe", "tallow-host.exe", "tallowin.dll", "tallowinenu.dll"):
            shutil.copy(BIN / program, self.folder)
        said = Program("cmd", "/c", "job.bat", cwd=self.folder).outcome().text
        self.assertIn("done: 2 blocks", said)
        self.assertIn(" 72 Log opened by ", said)
        self.assertEqual(self.read("loaded.csv"), DATA)

    def test_the_operator_guides_commands_restart_a_job(self):
        guide = (SOURCE / "docs" / "operator-guide.md").read_text(encoding="utf-8")
        section = guide.partition("## A job that died")[2].partition("\n## ")[0]
        commands = re.findall(r"^tallow-.*", section, re.MULTILINE)
        self.assertEqual([command.split()[0] for command in commands],
                         ["tallow-host", "tallow-host", "tallow-feed"])

        def start(command):
            words = shlex.split(command.replace(r"\\.\pipe\orders", self.pipe), posix=False)
            return self.start(words[0], *(word.strip('"') for word in words[1:]))

        def reached():
            try:
                return self.state("orders.json")["position"] == 16
            except FileNotFoundError:
                return False

        data = random.Random(2).randbytes(20_000_000)
        self.write("orders.csv", data)
        (self.folder / "logs").mkdir()
        self.kill_half_way(start(commands[0]), data[:18_000_000], reached)
        self.assertIn("accepts position 8 or 16",
                      self.run_tool("tallow-inspect", "orders.json.fbf").text)
        host, writer = start(commands[1]), start(commands[2])
        outcome = host.outcome()
        self.assertIn("restarted from block 16", outcome.text)
        self.assertEnded(outcome, 0)
        writer.wait()
        self.assertEqual(self.read("loaded.csv"), data)
        self.assertEqual([number for number in re.findall(r" EVENT (\d+) ", self.log("logs"))
                          if number not in ("72", "98")], ["80", "88", "95", "86"])

    def test_the_guides_line_for_node_moves_a_file(self):
        program = node(self)
        guide = (SOURCE / "docs" / "host-guide.md").read_text(encoding="utf-8")
        script = re.search(r'^node -e "(.*)"$', guide, re.MULTILINE).group(1)
        self.assertIn(r"\\\\.\\pipe\\load1", script)
        script = script.replace(r"\\pipe\\load1", "\\\\pipe\\\\" + self.pipe.rsplit("\\", 1)[1])
        host = self.start_host()

        def sent():  # the line is for a host that already waits
            outcome = Program(program, "-e", script, cwd=self.folder).outcome()
            if outcome.status != 0:
                self.assertIn("ENOENT", outcome.err + outcome.text)
            return outcome.status == 0

        wait_until(sent, "the host")
        self.assertEnded(host.outcome(), 0)
        self.assertEqual(self.output(), DATA)


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""The examples and the commands of README.md and the host guide do what the documents say."""

import json
import os
import pathlib
import random
import re
import shlex
import shutil
import signal
import subprocess
import tempfile
import threading
import time
import unittest

ROOT = pathlib.Path(os.environ["TALLOW_SOURCE_DIR"])
BIN = pathlib.Path(os.environ["TALLOW_BINARY_DIR"], "bin")
NODE = pathlib.Path(os.environ.get("XDG_CACHE_HOME", pathlib.Path.home() / ".cache"),
                    "tallow", "node", "node.exe")
SECONDS = 120
BLOCK = 4096
BLOCKS_PER_CHECKPOINT = 64
DATA = random.Random(1).randbytes(300 * BLOCK + 1234)


class Examples(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.folder = pathlib.Path(holder.name)
        (self.folder / "data.bin").write_bytes(DATA)
        self.pipe = f"\\\\.\\pipe\\example{os.getpid()}{self.id().rsplit('.', 1)[-1]}"
        # The module takes longer pipe names, but this host takes 259 bytes at most.
        self.assertLess(len(self.pipe), 260)

    def start(self, program, *arguments, **options):
        process = subprocess.Popen(["wine", BIN / program, *arguments], cwd=self.folder,
                                   stderr=subprocess.PIPE, text=True, **options)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.wait, SECONDS)
        self.addCleanup(process.kill)
        return process

    def start_host(self):
        return self.start("minimal_host.exe", self.pipe, "out.bin", "state",
                          f"Block_size={BLOCK} Fallback_Directory=. Fallback_file=job.fbf "
                          "Log_level=4 Log_directory=.")

    def start_writer(self, file="data.bin"):
        return self.start("minimal_writer.exe", self.pipe, file)

    def output(self):
        return (self.folder / "out.bin").read_bytes()

    def kill_half_way(self, host, data, reached):
        """Feeds a host these first bytes of its data, and kills it when `reached` says so."""
        feed = self.start("tallow-feed.exe", "--pipe", self.pipe, "--in", "-", "--chunk", str(BLOCK),
                          stdin=subprocess.PIPE)

        def write():
            feed.stdin.buffer.write(data)
            feed.stdin.buffer.flush()

        writing = threading.Thread(target=write)
        writing.start()
        writing.join(SECONDS)
        deadline = time.monotonic() + SECONDS
        while not reached():
            self.assertIsNone(host.poll(), "the host ended")
            self.assertLess(time.monotonic(), deadline, "no such checkpoint")
            time.sleep(0.02)
        host.send_signal(signal.SIGKILL)
        host.wait(SECONDS)
        feed.stdin.close()
        feed.wait(SECONDS)

    def kill_host_half_way(self):
        """The minimal host, killed after three checkpoints while it waits for data."""
        state = self.folder / "state"
        position = (3 * BLOCKS_PER_CHECKPOINT).to_bytes(8, "little")
        self.kill_half_way(self.start_host(), DATA[:(3 * BLOCKS_PER_CHECKPOINT + 10) * BLOCK],
                           lambda: state.exists() and state.read_bytes()[8:16] == position)

    def test_host_and_writer_move_a_file(self):
        host, writer = self.start_host(), self.start_writer()
        self.assertEqual(host.wait(SECONDS), 0, host.stderr.read() if host.poll() else "")
        self.assertEqual(writer.wait(SECONDS), 0)
        self.assertEqual(self.output(), DATA)
        self.assertFalse((self.folder / "job.fbf").exists(), "the fallback file must be gone")

    def test_host_goes_on_after_it_was_killed(self):
        self.kill_host_half_way()
        host, writer = self.start_host(), self.start_writer()
        self.assertEqual(host.wait(SECONDS), 0)
        self.assertEqual(writer.wait(SECONDS), 0)
        self.assertEqual(self.output(), DATA)
        log = (self.folder / "namedpipes.log").read_text(encoding="cp1252")
        self.assertIn(" EVENT 95 ", log, "the job must have been restarted, not begun again")

    def test_host_keeps_what_it_has_when_the_data_is_not_the_same(self):
        self.kill_host_half_way()
        before = self.output()
        (self.folder / "other.bin").write_bytes(b"x" + DATA[1:])
        host, writer = self.start_host(), self.start_writer("other.bin")
        self.assertEqual(host.wait(SECONDS), 1)
        self.assertIn("return code 16", host.stderr.read())
        writer.wait(SECONDS)
        self.assertTrue((self.folder / "job.fbf").exists())
        kept = len(self.output())
        self.assertGreaterEqual(kept, (3 * BLOCKS_PER_CHECKPOINT - 1) * BLOCK)
        self.assertEqual(self.output(), before[:kept])

    def test_host_does_nothing_when_the_job_is_done(self):
        host, writer = self.start_host(), self.start_writer()
        self.assertEqual((host.wait(SECONDS), writer.wait(SECONDS)), (0, 0))
        self.assertEqual(self.start_host().wait(SECONDS), 0)
        self.assertEqual(self.output(), DATA)

    def test_the_job_of_the_readme_runs_in_a_console(self):
        readme = (ROOT / "README.md").read_text(encoding="utf-8")
        lines = re.search(r"^```bat\n(.*?)^```$", readme, re.MULTILINE | re.DOTALL).group(1)
        self.assertEqual(len(lines.splitlines()), 5)
        name = self.pipe.rsplit("\\", 1)[1]
        lines = lines.replace(r"\\.\pipe\orders", rf"\\.\pipe\{name}").replace("\n", "\r\n")
        (self.folder / "job.bat").write_bytes(lines.encode())
        (self.folder / "orders.csv").write_bytes(DATA)
        for program in ("tallow-feed.exe", "tallow-host.exe", "tallowin.dll", "tallowinenu.dll"):
            shutil.copy(BIN / program, self.folder)
        run = subprocess.run(["wine", "cmd", "/c", "job.bat"], cwd=self.folder, text=True,
                             stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, timeout=SECONDS,
                             check=False)
        self.assertIn("done: 2 blocks", run.stdout)
        self.assertIn(" 72 Log opened by ", run.stdout)
        self.assertEqual((self.folder / "loaded.csv").read_bytes(), DATA)

    def test_the_operator_guides_commands_restart_a_job(self):
        guide = (ROOT / "docs" / "operator-guide.md").read_text(encoding="utf-8")
        section = guide.partition("## A job that died")[2].partition("\n## ")[0]
        commands = re.findall(r"^tallow-.*", section, re.MULTILINE)
        self.assertEqual([command.split()[0] for command in commands],
                         ["tallow-host", "tallow-host", "tallow-feed"])

        def start(command):
            words = shlex.split(command.replace(r"\\.\pipe\orders", self.pipe), posix=False)
            return self.start(words[0] + ".exe", *(word.strip('"') for word in words[1:]),
                              stdout=subprocess.PIPE)

        def reached():
            try:
                return json.loads(state.read_text(encoding="utf-8"))["position"] == 16
            except FileNotFoundError:
                return False

        data = random.Random(2).randbytes(20_000_000)
        (self.folder / "orders.csv").write_bytes(data)
        (self.folder / "logs").mkdir()
        state = self.folder / "orders.json"
        first = start(commands[0])
        self.kill_half_way(first, data[:18_000_000], reached)
        first.stdout.close()
        inspect = self.start("tallow-inspect.exe", "orders.json.fbf", stdout=subprocess.PIPE)
        self.assertIn("accepts position 8 or 16", inspect.communicate(timeout=SECONDS)[0])
        host, writer = start(commands[1]), start(commands[2])
        self.assertIn("restarted from block 16", host.communicate(timeout=SECONDS)[0])
        self.assertEqual(host.returncode, 0)
        writer.communicate(timeout=SECONDS)
        self.assertEqual((self.folder / "loaded.csv").read_bytes(), data)
        log = (self.folder / "logs" / "namedpipes.log").read_text(encoding="cp1252")
        self.assertEqual([number for number in re.findall(r" EVENT (\d+) ", log)
                          if number not in ("72", "98")], ["80", "88", "95", "86"])

    def test_the_guides_line_for_node_moves_a_file(self):
        if not NODE.exists():
            self.skipTest("node.exe has not been fetched; scripts/test --full does it, given npm")
        guide = (ROOT / "docs" / "host-guide.md").read_text(encoding="utf-8")
        script = re.search(r'^node -e "(.*)"$', guide, re.MULTILINE).group(1)
        self.assertIn(r"\\\\.\\pipe\\load1", script)
        script = script.replace(r"\\pipe\\load1", "\\\\pipe\\\\" + self.pipe.rsplit("\\", 1)[1])
        subprocess.run(["wine", "reg", "add", r"HKCU\Software\Wine\AppDefaults\node.exe", "/v",
                        "Version", "/d", "win10", "/f"], check=True, timeout=SECONDS,
                       stdout=subprocess.DEVNULL)
        host = self.start_host()
        deadline = time.monotonic() + SECONDS
        while True:  # the line is for a host that already waits
            with open(self.folder / "said", "w+b") as said:  # it cannot write to a Unix pipe
                node = subprocess.run(["wine", NODE, "-e", script], cwd=self.folder,
                                      stdin=subprocess.DEVNULL, stdout=said, stderr=said,
                                      timeout=SECONDS, check=False)
            if node.returncode == 0:
                break
            self.assertIn(b"ENOENT", (self.folder / "said").read_bytes())
            self.assertLess(time.monotonic(), deadline)
        self.assertEqual(host.wait(SECONDS), 0)
        self.assertEqual(self.output(), DATA)


if __name__ == "__main__":
    unittest.main(verbosity=2)

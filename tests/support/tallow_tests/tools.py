"""The fixture of the tests that run our programs as a person would."""

import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

from . import BIN
from .programs import Program, TerminalProgram, end_all
from .waiting import unique, wait_until

BLOCK = 1000
OPTIONS = f"Block_size={BLOCK}"


def pipe_name():
    """A pipe that nobody else uses."""
    return rf"\\.\pipe\{unique('tallow')}"


def data_of(length, seed=7):
    """Bytes that do not repeat."""
    state, out = seed, bytearray()
    while len(out) < length:
        state = (state * 6364136223846793005 + 1442695040888963407) % 2**64
        out += state.to_bytes(8, "little")
    return bytes(out[:length])


class ToolTest(unittest.TestCase):
    """Each test has its own folder, and no program outlives it."""

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tools-", dir=os.getcwd()))
        self.pipe = pipe_name()
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.addCleanup(end_all)

    def start(self, name, *arguments, program=None, **keywords):
        return Program(program or BIN / f"{name}.exe", *arguments, cwd=self.folder, **keywords)

    def run_tool(self, name, *arguments, **keywords):
        return self.start(name, *arguments, **keywords).outcome()

    def on_terminal(self, name, *arguments):
        program = TerminalProgram(BIN / f"{name}.exe", *arguments, cwd=self.folder)
        self.addCleanup(program.discard)
        return program

    def host(self, *arguments, init=OPTIONS, output="out", **keywords):
        """Starts a host on this test's pipe."""
        command = ["--pipe", self.pipe, "--out", output, "--init", init, *arguments]
        return self.start("tallow-host", *command, **keywords)

    def feed(self, data, *arguments):
        """Starts a writer on this test's pipe."""
        name = self.write(unique("in"), data)
        return self.start("tallow-feed", "--pipe", self.pipe, "--in", name, *arguments)

    def slow_feed(self, data):
        """Starts a writer that sends `data` and then waits until its standard input ends."""
        program = self.start("tallow-feed", "--pipe", self.pipe, "--in", "-",
                             stdin=subprocess.PIPE)
        program.process.stdin.write(data)
        program.process.stdin.flush()
        return program

    def write(self, name, content):
        path = self.folder / name
        path.write_bytes(content if isinstance(content, bytes) else content.encode())
        return name

    def read(self, name):
        return (self.folder / name).read_bytes()

    def exists(self, name):
        return (self.folder / name).exists()

    def state(self, name="job.json"):
        return json.loads(self.read(name))

    def log(self, folder="."):
        return (self.folder / folder / "namedpipes.log").read_text(encoding="latin-1")

    def wait_for_length(self, name, length):
        path = self.folder / name
        wait_until(lambda: path.exists() and path.stat().st_size >= length,
                   f"{length} bytes in {name}")

    def assertEnded(self, outcome, status):
        self.assertEqual(outcome.status, status, outcome.err + outcome.text)

    def assertFault(self, outcome, status, *words):
        """Expects one line on standard error that contains these words."""
        self.assertEnded(outcome, status)
        self.assertEqual(len(outcome.error_lines), 1, outcome.err)
        for word in words:
            self.assertIn(word, outcome.err)

"""What the tests of the programs share: starting them as a person would, under Wine."""

import contextlib
import fcntl
import itertools
import json
import os
import pathlib
import pty
import re
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import termios
import time
import unittest
import xml.etree.ElementTree

BIN = pathlib.Path(os.environ["TALLOW_BINARY_DIR"]) / "bin"
LIMIT = 60  # seconds before anything counts as hanging
BLOCK = 1000
OPTIONS = f"Block_size={BLOCK}"

# A message box would wait for a person; without a display it returns at once.
_ENVIRONMENT = {name: value for name, value in os.environ.items() if name != "DISPLAY"}

_numbers = itertools.count(1)


def pipe_name():
    """A pipe that nobody else uses."""
    return rf"\\.\pipe\tallow-{os.getpid()}-{next(_numbers)}"


def data_of(length, seed=7):
    """Bytes that do not repeat."""
    state, out = seed, bytearray()
    while len(out) < length:
        state = (state * 6364136223846793005 + 1442695040888963407) % 2**64
        out += state.to_bytes(8, "little")
    return bytes(out[:length])


def wait_until(condition, what):
    """Waits for an event in another process. It polls, since there is nothing to wait on."""
    deadline = time.monotonic() + LIMIT
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f"waited in vain for {what}")
        time.sleep(0.01)


class Outcome:
    """How a program ended."""

    def __init__(self, status, out, err):
        self.status, self.out = status, out
        self.err = err.decode("utf-8")

    @property
    def text(self):
        return self.out.decode("utf-8", "replace")

    @property
    def json(self):
        return json.loads(self.out)

    @property
    def error_lines(self):
        return self.err.splitlines()


class Program:
    """A program of ours that runs in a folder."""

    def __init__(self, folder, name, arguments, stdin=subprocess.DEVNULL, program=None):
        command = ["wine", str(program or BIN / (name + ".exe")), *map(str, arguments)]
        # Files, not pipes: Wine's own background processes inherit these and may live on.
        self.out, self.err = tempfile.TemporaryFile(), tempfile.TemporaryFile()
        self.process = subprocess.Popen(command, cwd=folder, stdin=stdin, stdout=self.out,
                                        stderr=self.err, env=_ENVIRONMENT)

    def interrupt(self):
        """Sends Ctrl-C."""
        self.process.send_signal(signal.SIGINT)

    def terminate(self):
        """Ends it without a Close."""
        self.process.kill()

    def outcome(self):
        self.process.wait(LIMIT)
        return Outcome(self.process.returncode, self._content(self.out), self._content(self.err))

    def said(self):
        """What it has written to standard error so far."""
        return os.pread(self.err.fileno(), 1 << 20, 0).decode("utf-8")

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait(LIMIT)
        for stream in (self.process.stdin, self.out, self.err):
            if stream:
                with contextlib.suppress(BrokenPipeError):
                    stream.close()

    @staticmethod
    def _content(file):
        file.seek(0)
        return file.read()


class TerminalProgram:
    """A program of ours on its own terminal."""

    def __init__(self, folder, name, arguments):
        self.master, terminal = pty.openpty()
        self.seen = b""
        self.process = subprocess.Popen(
            ["wine", str(BIN / (name + ".exe")), *map(str, arguments)], cwd=folder, stdin=terminal,
            stdout=terminal, stderr=terminal, env=_ENVIRONMENT, start_new_session=True,
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
        os.close(terminal)

    def press_ctrl_c(self):
        os.write(self.master, b"\x03")

    def wait_for(self, words):
        """Waits until these bytes have been shown."""
        deadline = time.monotonic() + LIMIT
        while words not in self.shown():
            ready, _, _ = select.select([self.master], [], [], deadline - time.monotonic())
            if not ready:
                raise AssertionError(f"waited in vain for {words} in {self.shown()[-2000:]}")
            self.seen += os.read(self.master, 4096)

    def shown(self):
        # Wine hides the cursor while it writes, and skips blanks on an empty line.
        plain = re.sub(rb"\x1b\[\?25[lh]", b"", self.seen)
        return plain.replace(b"\x1b[K\x1b[1C", b" ")

    def close(self):
        os.close(self.master)
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait(LIMIT)


class ToolTest(unittest.TestCase):
    """Each test has its own folder, and no program outlives it."""

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tools-", dir=os.getcwd()))
        self.programs = []
        self.pipe = pipe_name()
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.addCleanup(self.end_programs)

    def end_programs(self):
        for program in self.programs:
            program.close()

    def start(self, name, *arguments, **keywords):
        program = Program(self.folder, name, arguments, **keywords)
        self.programs.append(program)
        return program

    def run_tool(self, name, *arguments, **keywords):
        return self.start(name, *arguments, **keywords).outcome()

    def on_terminal(self, name, *arguments):
        program = TerminalProgram(self.folder, name, arguments)
        self.programs.append(program)
        return program

    def host(self, *arguments, init=OPTIONS, output="out", **keywords):
        """Starts a host on this test's pipe."""
        command = ["--pipe", self.pipe, "--out", output, "--init", init, *arguments]
        return self.start("tallow-host", *command, **keywords)

    def feed(self, data, *arguments):
        """Starts a writer on this test's pipe."""
        name = self.write(f"in-{next(_numbers)}", data)
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


class _XmlResult(unittest.TextTestResult):
    """Collects the cases as scripts/count_tests reads them."""

    def __init__(self, *arguments):
        super().__init__(*arguments)
        self.suite = xml.etree.ElementTree.Element("testsuite")

    def _case(self, test):
        parts = test.id().split(".")
        return xml.etree.ElementTree.SubElement(self.suite, "testcase", classname=parts[-2],
                                                name=parts[-1], status="run", result="completed")

    def addSuccess(self, test):
        super().addSuccess(test)
        self._case(test)

    def addFailure(self, test, err):
        super().addFailure(test, err)
        xml.etree.ElementTree.SubElement(self._case(test), "failure")

    def addError(self, test, err):
        super().addError(test, err)
        xml.etree.ElementTree.SubElement(self._case(test), "failure")

    def addSkip(self, test, reason):
        super().addSkip(test, reason)
        self._case(test).set("result", "skipped")


def main():
    """Runs the calling script's tests and writes a report for the count."""
    runner = unittest.TextTestRunner(resultclass=_XmlResult, verbosity=1)
    program = unittest.main(module="__main__", testRunner=runner, exit=False)
    results = pathlib.Path(os.environ["TALLOW_BINARY_DIR"]) / "test-results"
    results.mkdir(exist_ok=True)
    report = xml.etree.ElementTree.ElementTree(program.result.suite)
    report.write(results / (pathlib.Path(sys.argv[0]).stem + ".xml"))
    sys.exit(0 if program.result.wasSuccessful() else 1)

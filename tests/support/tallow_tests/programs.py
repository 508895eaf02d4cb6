"""Windows programs under Wine, with files or a terminal for their output."""

import contextlib
import fcntl
import functools
import json
import os
import pty
import re
import select
import signal
import subprocess
import tempfile
import termios
import time

from . import BUILD, LIMIT

CANNOT_START = 126

_started = []  # programs of the test at hand


def environment(**more):
    """The variables that a program starts with."""
    variables = dict(os.environ, WINEDEBUG="-all")
    variables.setdefault("WINEPREFIX", str(BUILD.parent / "wine"))
    # A message box would wait for a person; without a display it returns at once.
    variables.pop("DISPLAY", None)
    return {**variables, **more}


@functools.cache
def wake_wine():
    """Starts what Wine keeps running, outside every process group that a test kills."""
    # Not through a pipe: what is started here would keep its end open.
    silence = {"stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL,
               "stderr": subprocess.DEVNULL}
    subprocess.run(["wineserver", "-p60"], env=environment(), check=False, timeout=LIMIT, **silence)
    subprocess.run(["wine", "cmd", "/c", "exit"], env=environment(), check=True, timeout=LIMIT,
                   **silence)


class Program:
    """A program in its own process group."""

    def __init__(self, *command, cwd=None, stdin=subprocess.DEVNULL, **variables):
        wake_wine()
        # Files, not pipes: Wine's own background processes inherit these and may live on.
        self.out, self.err = tempfile.TemporaryFile(), tempfile.TemporaryFile()
        self.process = subprocess.Popen(["wine", *map(str, command)], cwd=cwd, stdin=stdin,
                                        stdout=self.out, stderr=self.err,
                                        env=environment(**variables), start_new_session=True)
        _started.append(self)

    @property
    def stdin(self):
        return self.process.stdin

    def running(self):
        return self.process.poll() is None

    def never_began(self):
        """True if Wine failed to start it, which happens now and then (see scripts/lib.sh). Our
        programs give a reason for status 1, and start_with has its own status."""
        silent = not any(os.fstat(file.fileno()).st_size for file in (self.out, self.err))
        return self.process.poll() == CANNOT_START or (self.process.poll() == 1 and silent)

    def interrupt(self):
        """Ctrl-C."""
        self.process.send_signal(signal.SIGINT)

    def kill(self):
        """Ends it without warning."""
        # After a wait for it, its id may belong to another process.
        if self.process.returncode is None:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(self.process.pid, signal.SIGKILL)
            self.process.wait(LIMIT)
        if self.process.stdin:
            with contextlib.suppress(BrokenPipeError):
                self.process.stdin.close()

    def discard(self):
        """Ends it and ignores its output."""
        self.kill()
        self.out.close()
        self.err.close()

    def wait(self):
        """Its status, once it has ended."""
        try:
            return self.process.wait(LIMIT)
        except subprocess.TimeoutExpired:
            self.kill()
            raise AssertionError(f"the program does not end: {self.outputs()}") from None

    def said(self):
        """What it has written to standard error so far."""
        return os.pread(self.err.fileno(), 1 << 20, 0).decode("utf-8")

    def outputs(self):
        """The bytes of standard output and of standard error."""
        contents = []
        for file in (self.out, self.err):
            file.seek(0)
            contents.append(file.read())
        return contents

    def outcome(self):
        return Outcome(self)


def end_all():
    """Ends the programs that a test has left running."""
    for program in _started:
        program.discard()
    _started.clear()


class Outcome:
    """How a program ended. Our programs write UTF-8 to standard error."""

    def __init__(self, program):
        self.status = program.wait()
        self.out, err = program.outputs()
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

    def __repr__(self):
        return f"status {self.status}\n{self.text}\n{self.err}"


class TerminalProgram:
    """A program on its own terminal."""

    def __init__(self, *command, cwd=None):
        wake_wine()
        self.master, terminal = pty.openpty()
        self.seen = b""
        self.process = subprocess.Popen(
            ["wine", *map(str, command)], cwd=cwd, stdin=terminal, stdout=terminal,
            stderr=terminal, env=environment(), start_new_session=True,
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
        os.close(terminal)

    def press_ctrl_c(self):
        os.write(self.master, b"\x03")

    def wait_for(self, words):
        """Waits until these bytes have been shown."""
        deadline = time.monotonic() + LIMIT
        while words not in self.shown():
            ready, _, _ = select.select([self.master], [], [],
                                        max(0, deadline - time.monotonic()))
            if not ready:
                raise AssertionError(f"waited in vain for {words} in {self.shown()[-2000:]}")
            self.seen += os.read(self.master, 4096)

    def shown(self):
        # Wine hides the cursor while it writes, and skips blanks on an empty line.
        plain = re.sub(rb"\x1b\[\?25[lh]", b"", self.seen)
        return plain.replace(b"\x1b[K\x1b[1C", b" ")

    def wait(self):
        return self.process.wait(LIMIT)

    def discard(self):
        os.close(self.master)
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait(LIMIT)

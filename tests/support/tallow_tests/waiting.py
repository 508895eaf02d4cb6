"""Waiting for what another process does, and names that no other process uses."""

import itertools
import os
import time

from . import LIMIT

_numbers = itertools.count(1)


def unique(word):
    """A name that no other test, and no other run of this one, uses."""
    return f"{word}-{os.getpid()}-{next(_numbers)}"


def wait_until(condition, what):
    """Waits for an event in another process. It polls, since there is nothing to wait on."""
    deadline = time.monotonic() + LIMIT
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f"waited in vain for {what}")
        time.sleep(0.01)

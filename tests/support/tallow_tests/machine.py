"""What not every machine lets a test have; without it the test is skipped."""

import os
import pathlib
import subprocess

from . import LIMIT
from .programs import environment

_CACHE = os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache"
_NODE = pathlib.Path(_CACHE, "tallow", "node", "node.exe")
_KOFFI = pathlib.Path(_CACHE, "tallow", "koffi", "node_modules")


def small_disk(test, size):
    """A folder of the test on a memory disk of this size, such as "64k"."""
    disk = test.folder / "disk"
    disk.mkdir()
    mount = subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "tallow-test", disk],
                           capture_output=True, check=False)
    if mount.returncode != 0:
        test.skipTest("this user may not mount a small disk")
    test.addCleanup(subprocess.run, ["umount", "--lazy", disk], check=True)
    return disk


def resize_disk(disk, size):
    subprocess.run(["mount", "-o", f"remount,size={size}", disk], check=True)


def node(test):
    """Node for Windows, a writer that is not ours."""
    if not _NODE.exists():
        test.skipTest("node.exe is not here; scripts/setup node fetches it")
    # It starts only on Windows 10; the other programs keep the prefix's version.
    subprocess.run(["wine", "reg", "add", r"HKCU\Software\Wine\AppDefaults\node.exe", "/v",
                    "Version", "/d", "win10", "/f"], env=environment(), check=True, timeout=LIMIT,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return _NODE


def koffi(test):
    """The folder of modules in which Node finds its foreign function interface."""
    if not _KOFFI.exists():
        test.skipTest("koffi is not here; scripts/setup node fetches it with npm")
    return _KOFFI

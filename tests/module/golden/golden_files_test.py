#!/usr/bin/env python3
"""Makes the golden fallback files from the description of their format alone.

Without an argument it compares them with the files beside it, byte for byte; with --write it writes
them. The job: 89 bytes in blocks of 16 from the pipe tallow-golden, checkpoints after block 2 and
block 3, read to its end.
"""

import hashlib
import struct
import sys
import unittest
from pathlib import Path

PIPE = rb"\\.\pipe\tallow-golden"
BLOCK_SIZE = 16
DATA = bytes((i * 7 + 3) % 256 for i in range(5 * BLOCK_SIZE + 9))


def header():
    text = b"Varnholt Fallback File 01.03.00\n\0"
    return text + struct.pack("<IB260s", BLOCK_SIZE, 1, PIPE)


def sync_point(block):
    return struct.pack("<Q16s", block, hashlib.md5(DATA[: block * BLOCK_SIZE]).digest())


def records(with_lengths):
    """Blocks 3 to 6. The last has 9 bytes; those of the block before follow them."""
    result = b""
    for block in range(3, 7):
        data = DATA[(block - 1) * BLOCK_SIZE : block * BLOCK_SIZE]
        before = DATA[(block - 2) * BLOCK_SIZE : (block - 1) * BLOCK_SIZE]
        if with_lengths:
            result += struct.pack("<I", len(data))
        result += data + before[len(data) :]
    return result


def image(with_lengths):
    return header() + sync_point(2) + sync_point(3) + records(with_lengths)


FOLDER = Path(__file__).parent
IMAGES = {"full_blocks.fbf": image(False), "sized_blocks.fbf": image(True)}


class GoldenFiles(unittest.TestCase):
    def test_are_what_their_format_says(self):
        for name, wanted in IMAGES.items():
            with self.subTest(name):
                self.assertEqual((FOLDER / name).read_bytes(), wanted)


if __name__ == "__main__":
    if "--write" in sys.argv:
        for name, wanted in IMAGES.items():
            (FOLDER / name).write_bytes(wanted)
    else:
        from tallow_tests.reports import main
        main()

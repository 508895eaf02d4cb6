#!/usr/bin/env python3
"""A job whose fallback file fills its disk: a memory disk of half a megabyte."""

import contextlib
import os

from tallow_tests.machine import small_disk
from tallow_tests.reports import main
from tallow_tests.tools import ToolTest, data_of


class FullDisk(ToolTest):
    def setUp(self):
        super().setUp()
        self.disk = small_disk(self, "512k")

    def run_job(self, data, checkpoint_every):
        options = ("Block_size=8000 Log_level=4 Log_directory=. Fallback_Directory=disk "
                   "Fallback_file=job.fbf")
        self.feed(data)
        outcome = self.host("--state", "job.json", "--checkpoint-every", checkpoint_every,
                            init=options).outcome()
        self.assertEnded(outcome, 0)
        self.assertEqual(self.read("out"), data)

    def logged(self, message):
        return sum(f" {message} " in line for line in self.log().splitlines())

    def left(self):
        return [path.name for path in self.disk.iterdir()]

    def test_costs_the_restart_and_not_the_data(self):
        # The file begins at the start and anew at the checkpoint of block 80. Each time the disk is
        # full before the next checkpoint.
        self.run_job(data_of(1_400_000), 80)
        self.assertEqual(self.logged(51), 2)
        self.assertEqual(self.left(), [])

    def test_full_from_the_start_costs_no_data(self):
        stuffing = os.open(self.disk / "stuffing", os.O_CREAT | os.O_WRONLY)
        with contextlib.suppress(OSError):
            while True:
                os.write(stuffing, bytes(4096))
        os.close(stuffing)
        self.run_job(data_of(200_000), 10)
        self.assertGreater(self.logged(51) + self.logged(79), 0)
        self.assertEqual(self.left(), ["stuffing"])


if __name__ == "__main__":
    main()

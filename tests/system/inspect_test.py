#!/usr/bin/env python3
"""tallow-inspect as a person uses it, on a file that a killed job left behind."""

import hashlib
import os

from tallow_tests.reports import main
from tallow_tests.tools import BLOCK, OPTIONS, ToolTest, data_of

DATA = data_of(40_000)
DATA_START = 346


class Inspect(ToolTest):
    def leave_file(self, init=OPTIONS):
        """A job with checkpoints at blocks 10 and 20, killed after block 25 had been written."""
        feed = self.slow_feed(DATA[:25_500])
        host = self.host("--state", "job.json", "--checkpoint-every", 10, init=init)
        self.wait_for_length("out", 25_000)
        host.kill()
        feed.discard()
        self.write("data", DATA)
        return "job.json.fbf"

    def inspect(self, *arguments):
        return self.run_tool("tallow-inspect", *arguments)

    def test_marks_guesses(self):
        outcome = self.inspect(self.leave_file())
        self.assertEnded(outcome, 0)
        self.assertEqual(outcome.err, "")
        for words in (self.pipe, "1,000 bytes", "older: block 10", "newer: block 20",
                      "full blocks on (guess", "first block 20 (guess", "block 21 (guess)",
                      "accepts position 10 or 20", "[head][sync: 10 20][N"):
            self.assertIn(words, outcome.text)
        self.assertNotIn("proved", outcome.text)
        self.assertNotIn("\x1b", outcome.text, "colour only on a terminal")

    def test_takes_a_path_that_begins_with_a_slash(self):
        self.assertEnded(self.inspect(str(self.folder / self.leave_file())), 0)

    def test_paints_the_picture_on_a_terminal(self):
        program = self.on_terminal("tallow-inspect", self.leave_file())
        program.wait_for(b"\x1b[32mN\x1b[0m")

    def test_marks_proofs(self):
        outcome = self.inspect(self.leave_file(), "--verify", "data")
        self.assertEnded(outcome, 0)
        self.assertIn("first block 20 (proved)", outcome.text)
        self.assertNotIn("guess", outcome.text)

    def test_proves_what_an_independent_digest_proves(self):
        report = self.inspect(self.leave_file(), "--verify", "data", "--json").json
        self.assertTrue(report["sound"])
        for point in report["syncPoints"]:
            self.assertEqual(point["proof"], "matches")
            self.assertEqual(point["signature"],
                             hashlib.md5(DATA[:point["block"] * BLOCK]).hexdigest())
        # The latest delivered block may not be written yet.
        fresh = report["slots"][:report["verification"]["freshSlots"]]
        self.assertEqual([slot["block"] for slot in fresh][:5], [20, 21, 22, 23, 24])

    def test_says_when_the_data_is_another(self):
        file = self.leave_file()
        other = bytearray(DATA)
        other[15_000] ^= 1
        self.write("other", bytes(other))
        outcome = self.inspect(file, "--verify", "other", "--json")
        self.assertEnded(outcome, 1)
        self.assertEqual([point["proof"] for point in outcome.json["syncPoints"]],
                         ["matches", "differs"])

    def test_finds_a_damaged_record(self):
        file = self.leave_file()
        whole = bytearray(self.read(file))
        whole[DATA_START + 2 * BLOCK + 5] ^= 1
        self.write(file, bytes(whole))
        self.assertEnded(self.inspect(file), 0)
        outcome = self.inspect(file, "--verify", "data")
        self.assertEnded(outcome, 1)
        self.assertIn("1 damaged", outcome.text)
        self.assertIn("block 23 (proved), 1,000 valid bytes", outcome.text)
        self.assertRegex(outcome.text, r"\]\[N=!=")
        slots = self.inspect(file, "--verify", "data", "--json").json["slots"]
        self.assertEqual([slot["damaged"] for slot in slots[:4]], [False, False, True, False])
        self.assertFalse(slots[3]["leftOver"])

    def test_does_not_offer_a_position_that_the_data_disproves(self):
        file = self.leave_file()
        other = bytearray(DATA)
        other[15_000] ^= 1
        self.write("other", bytes(other))
        outcome = self.inspect(file, "--verify", "other")
        self.assertEnded(outcome, 1)
        self.assertIn("accepts position 10, with this pipe", outcome.text)
        self.assertIn("refuses position 20", outcome.text)
        restart = self.inspect(file, "--verify", "other", "--json").json["restart"]
        self.assertEqual((restart["positions"], restart["disproved"]), ([10], [20]))
        other[5_000] ^= 1
        self.write("other", bytes(other))
        outcome = self.inspect(file, "--verify", "other")
        self.assertNotIn("accepts", outcome.text)
        self.assertIn("refuses position 10 or 20", outcome.text)

    def test_notes_swapped_and_absurd_sync_points(self):
        whole = self.read(self.leave_file())
        head, older, newer, data = (whole[:298], whole[298:322], whole[322:346], whole[346:])
        self.write("swapped.fbf", head + newer + older + data)
        self.assertRegex(self.inspect("swapped.fbf").text, "note .*block 20, lies after")
        self.write("absurd.fbf", head + older + b"\xfe" + b"\xff" * 7 + newer[8:] + data)
        outcome = self.inspect("absurd.fbf")
        self.assertRegex(outcome.text, "note .*18446744073709551614, which no job can reach")
        self.assertIn("first block unknown", outcome.text)

    def test_says_once_that_a_header_is_damaged(self):
        whole = bytearray(self.read(self.leave_file()))
        whole[33:37] = bytes(4)
        self.write("header.fbf", bytes(whole))
        outcome = self.inspect("header.fbf")
        self.assertEnded(outcome, 1)
        self.assertRegex(outcome.text, "state +damaged: the header names a block size of 0 bytes")
        self.assertFault(self.inspect("header.fbf", "--extract", 0), 1, "header.fbf: the header")

    def test_shows_no_terminal_what_to_do(self):
        whole = bytearray(self.read(self.leave_file()))
        name = b"\\\\.\\pipe\\x\x1b[2Jy"
        whole[38:38 + len(name)] = name
        self.write("named.fbf", bytes(whole))
        for arguments in ([], ["--json"]):
            outcome = self.inspect("named.fbf", *arguments)
            self.assertEnded(outcome, 0)
            self.assertRegex(outcome.text, r"(?i)x\\(x|u00)1b\[2Jy")
            self.assertNotIn(b"\x1b", outcome.out)

    def test_extracts_a_record(self):
        file = self.leave_file()
        outcome = self.inspect(file, "--extract", 1)
        self.assertEnded(outcome, 0)
        self.assertEqual(outcome.out, DATA[20 * BLOCK:21 * BLOCK])

    def test_extracts_the_valid_bytes_of_a_record_with_a_length(self):
        self.feed(DATA[:5_000], "--chunk", 300)
        host = self.host("--checkpoint-every", 1, "--attribute", "PRESERVE_RESTART_INFO=YES",
                         init=f"b={BLOCK} nfb=no FD=. Ff=kept.fbf")
        self.assertEnded(host.outcome(), 0)
        outcome = self.inspect("kept.fbf", "--extract", 0, "--full-blocks", "off")
        self.assertEnded(outcome, 0)
        self.assertEqual(outcome.out, DATA[5_000 - len(outcome.out):5_000])
        self.assertGreater(len(outcome.out), 0)
        report = self.inspect("kept.fbf", "--json").json
        self.assertFalse(report["needFullBlock"]["value"])

    def test_names_a_slot_that_is_not_there(self):
        self.assertFault(self.inspect(self.leave_file(), "--extract", 999), 1, "no slot 999")

    def test_survives_truncation(self):
        # tool_core_test tries each length; this runs the program itself at the edges.
        whole = self.read(self.leave_file())
        for length in (0, 1, 31, 32, 297, 298, 299, 345, 346, 347, 1345, 1346, 1347):
            with self.subTest(length):
                self.write("cut.fbf", whole[:length])
                report = self.inspect("cut.fbf", "--json")
                self.assertEnded(report, 1 if length < DATA_START else 0)
                self.assertEqual(report.json["state"],
                                 "truncated" if length < DATA_START else "valid")
                self.assertEnded(self.inspect("cut.fbf"), 1 if length < DATA_START else 0)

    def test_calls_another_file_foreign(self):
        self.write("other", b"some other file")
        outcome = self.inspect("other")
        self.assertEnded(outcome, 1)
        self.assertIn("foreign: not a fallback file", outcome.text)
        self.assertFault(self.inspect("other", "--extract", 0), 1, "not a fallback file")

    def test_reads_behind_two_gigabytes(self):
        whole = self.read(self.leave_file())
        path = self.folder / "large.fbf"
        path.write_bytes(whole[:DATA_START])
        os.truncate(path, DATA_START + 3_000_000 * BLOCK)
        with open(path, "r+b") as file:
            file.seek(DATA_START + 2_999_999 * BLOCK)
            file.write(b"A" * BLOCK)
        outcome = self.inspect("large.fbf", "--extract", 2_999_999)
        self.assertEqual(outcome.out, b"A" * BLOCK)

    def test_names_files_that_cannot_be_read(self):
        self.assertFault(self.inspect("absent"), 2, "there is no file absent")
        self.assertFault(self.inspect("."), 2, "is a folder")
        self.assertFault(self.inspect(self.leave_file(), "--verify", "absent"), 2,
                         "there is no file absent")

    def test_refuses_a_command_line_that_is_wrong(self):
        for words, arguments in (("FILE", []), ("--full-blocks", ["x", "--full-blocks", "maybe"]),
                                 ("--first", ["x", "--first", "0"]),
                                 ("--extract", ["x", "--extract", "first"]),
                                 ("--extract", ["x", "--extract", "-1"]),
                                 ("--nonsense", ["x", "--nonsense"])):
            with self.subTest(arguments):
                self.assertFault(self.inspect(*arguments), 2, words, "--help")

    def test_helps(self):
        outcome = self.inspect("--help")
        self.assertEnded(outcome, 0)
        for words in ("Examples:", "--json", "--full-blocks", "--first", "--verify", "--extract",
                      "Exit status"):
            self.assertIn(words, outcome.text)

    def test_knows_its_version(self):
        self.assertRegex(self.inspect("--version").text, r"^tallow-inspect \d+\.\d+")


if __name__ == "__main__":
    main()

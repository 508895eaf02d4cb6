#!/usr/bin/env python3
"""tallow-feed as a person uses it."""

import subprocess

from tallow_tests.reports import main
from tallow_tests.tools import ToolTest, data_of
from tallow_tests.waiting import wait_until


class Feed(ToolTest):
    def wait_for_server(self):
        """Once the pipe exists, a second writer is refused and takes nothing."""
        wait_until(
            lambda: "cannot open" in self.feed(b"", "--wait", 0).outcome().err, "the server end")

    def test_sends_a_file_whole(self):
        data = data_of(250_123)
        feed = self.feed(data)
        self.assertEnded(self.host().outcome(), 0)
        outcome = feed.outcome()
        self.assertEnded(outcome, 0)
        self.assertEqual((outcome.out, outcome.err), (b"", ""))
        self.assertEqual(self.read("out"), data)

    def test_sends_an_empty_file(self):
        feed = self.feed(b"")
        self.assertEnded(self.host().outcome(), 0)
        self.assertEnded(feed.outcome(), 0)
        self.assertEqual(self.read("out"), b"")

    def test_sends_its_standard_input(self):
        data = data_of(70_000)
        host = self.host()
        feed = self.start("tallow-feed", "--pipe", self.pipe, "--in", "-", stdin=subprocess.PIPE)
        feed.stdin.write(data)
        feed.stdin.close()
        self.assertEnded(feed.outcome(), 0)
        self.assertEnded(host.outcome(), 0)
        self.assertEqual(self.read("out"), data)

    def test_sends_in_chunks_of_any_size(self):
        data = data_of(5_000)
        feed = self.feed(data, "--chunk", 7)
        self.assertEnded(self.host().outcome(), 0)
        self.assertEnded(feed.outcome(), 0)
        self.assertEqual(self.read("out"), data)

    def test_serves_the_pipe_to_a_module_that_connects(self):
        data = data_of(123_456)
        feed = self.feed(data, "--serve")
        self.wait_for_server()
        self.assertEnded(self.host().outcome(), 0)
        self.assertEnded(feed.outcome(), 0)
        self.assertEqual(self.read("out"), data)

    def test_refuses_to_serve_a_pipe_that_is_there(self):
        server = self.feed(b"", "--serve")
        self.wait_for_server()
        self.assertFault(self.feed(b"", "--serve", "--wait", 0).outcome(), 2, "cannot create",
                         "--serve")
        server.discard()

    def test_prints_its_outcome_as_json(self):
        feed = self.feed(data_of(4_000), "--json")
        self.assertEnded(self.host().outcome(), 0)
        outcome = feed.outcome().json
        self.assertEqual(outcome["bytes"], 4_000)
        self.assertEqual(outcome["pipe"], self.pipe)
        self.assertGreaterEqual(outcome["seconds"], 0)

    def test_says_when_nobody_creates_the_pipe(self):
        self.assertFault(self.feed(b"x", "--wait", 0).outcome(), 3, "nobody created", "--wait")

    def test_says_when_another_writer_holds_the_pipe(self):
        host = self.host()
        first = self.slow_feed(data_of(5_000))
        self.wait_for_length("out.part", 4_000)
        self.assertFault(self.feed(b"x", "--wait", 0).outcome(), 3, "no room", "another holds it")
        first.stdin.close()
        self.assertEnded(host.outcome(), 0)

    def test_serves_a_host_of_another_account_if_told(self):
        data = data_of(10_000)
        feed = self.feed(data, "--serve", "--allow", r"NT AUTHORITY\LOCAL SERVICE")
        self.wait_for_server()
        self.assertEnded(self.host().outcome(), 0)
        self.assertEnded(feed.outcome(), 0)
        self.assertEqual(self.read("out"), data)

    def test_knows_the_account_that_it_allows(self):
        self.assertFault(self.feed(b"x", "--serve", "--allow", "nobody there").outcome(), 2,
                         "nobody there", "--allow")

    def test_says_when_nobody_connects(self):
        outcome = self.feed(b"x", "--serve", "--wait", 0).outcome()
        self.assertFault(outcome, 3, "nobody opened", "--wait")

    def test_says_when_the_reader_goes_away(self):
        host = self.host()
        feed = self.feed(data_of(30_000_000))
        self.wait_for_length("out.part", 100_000)
        host.kill()
        self.assertFault(feed.outcome(), 1, "the reader closed")

    def test_says_which_input_cannot_be_read(self):
        outcome = self.run_tool("tallow-feed", "--pipe", self.pipe, "--in", "absent")
        self.assertFault(outcome, 2, "cannot read absent", "--in")

    def test_says_that_a_folder_is_no_input(self):
        outcome = self.run_tool("tallow-feed", "--pipe", self.pipe, "--in", ".")
        self.assertFault(outcome, 2, ". is a folder", "--in")

    def test_never_opens_an_ordinary_file(self):
        self.write("precious", "content")
        outcome = self.run_tool("tallow-feed", "--pipe", "precious", "--in", "precious")
        self.assertFault(outcome, 2, "precious", r"\\.\pipe\NAME")
        self.assertEqual(self.read("precious"), b"content")

    def test_refuses_a_command_line_that_is_wrong(self):
        for words, arguments in (("--pipe", ["--in", "x"]),
                                 ("--in", ["--pipe", self.pipe]),
                                 ("--chunk", ["--pipe", self.pipe, "--in", "x", "--chunk", "0"]),
                                 ("--wait", ["--pipe", self.pipe, "--in", "x", "--wait", "soon"]),
                                 ("--serve", ["--pipe", self.pipe, "--in", "x", "--allow", "y"]),
                                 ("--tempo", ["--pipe", self.pipe, "--in", "x", "--tempo"]),
                                 ("--in", ["--pipe", self.pipe, "--in"])):
            with self.subTest(arguments):
                self.assertFault(self.run_tool("tallow-feed", *arguments), 2, words, "--help")

    def test_helps(self):
        outcome = self.run_tool("tallow-feed", "--help")
        self.assertEnded(outcome, 0)
        for words in ("Examples:", "--pipe", "--in", "--chunk", "--wait", "--serve", "--allow",
                      "Exit status"):
            self.assertIn(words, outcome.text)

    def test_knows_its_version(self):
        self.assertRegex(self.run_tool("tallow-feed", "--version").text, r"^tallow-feed \d+\.\d+")


if __name__ == "__main__":
    main()

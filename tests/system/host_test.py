#!/usr/bin/env python3
"""tallow-host as a person uses it: jobs, options, failures, Ctrl-C."""

import json
import os
import shutil

from tallow_tests import BIN
from tallow_tests.machine import node, resize_disk, small_disk
from tallow_tests.reports import main
from tallow_tests.tools import BLOCK, OPTIONS, ToolTest, data_of, pipe_name
from tallow_tests.waiting import wait_until

STATE = ["--state", "job.json", "--checkpoint-every", "10"]


class Jobs(ToolTest):
    def test_delivers_the_data(self):
        data = data_of(123_456)
        self.feed(data)
        outcome = self.host().outcome()
        self.assertEnded(outcome, 0)
        self.assertEqual(self.read("out"), data)
        self.assertIn("124 blocks", outcome.text)
        self.assertEqual(outcome.err, "", "quiet where no terminal is")
        self.assertFalse(self.exists("out.part"))

    def test_delivers_no_data(self):
        self.feed(b"")
        self.assertEnded(self.host().outcome(), 0)
        self.assertEqual(self.read("out"), b"")

    def test_replaces_an_output_only_when_the_data_is_whole(self):
        self.write("out", "yesterday's")
        feed = self.slow_feed(data_of(20_000))
        host = self.host()
        self.wait_for_length("out.part", 20_000)
        self.assertEqual(self.read("out"), b"yesterday's")
        feed.stdin.close()
        self.assertEnded(host.outcome(), 0)
        self.assertEqual(self.read("out"), data_of(20_000))

    def test_writes_to_standard_output(self):
        data = data_of(10_500)
        self.feed(data)
        outcome = self.host(output="-").outcome()
        self.assertEnded(outcome, 0)
        self.assertEqual(outcome.out, data)
        self.assertIn("11 blocks", outcome.err)

    def test_prints_its_outcome_as_json(self):
        self.feed(data_of(10_500))
        outcome = self.host("--json").outcome()
        self.assertEnded(outcome, 0)
        report = outcome.json
        self.assertEqual(list(report), [
            "status", "exitStatus", "module", "pipe", "output", "init", "blockSize", "blocks",
            "bytes", "seconds", "bytesPerSecond", "checkpoints", "rewound", "restartedFrom",
            "recordedPosition", "restart", "warnings", "error"])
        self.assertEqual((report["status"], report["exitStatus"]), ("done", 0))
        self.assertEqual((report["blocks"], report["bytes"]), (11, 10_500))
        self.assertEqual(report["blockSize"], BLOCK)
        self.assertEqual(report["module"]["name"].lower(), "tallowin.dll")
        self.assertEqual(len(report["module"]["components"]), 7)
        self.assertIsNone(report["error"])

    def test_keeps_json_apart_from_the_data(self):
        self.feed(data_of(100))
        outcome = self.host("--json", output="-").outcome()
        self.assertEqual(outcome.out, data_of(100))
        self.assertIn('"status": "done"', outcome.err)

    def test_asks_in_the_order_of_the_interface(self):
        self.feed(data_of(1_500))
        self.host("--attribute", "BYTE_ORDER=1",
                  init=OPTIONS + " Log_level=6 Log_directory=.").outcome()
        requests = [line.split("pmiPIDMOpt")[1].split()[0] for line in self.log().splitlines()
                    if "Request Received" in line]
        self.assertEqual(requests, ["PutA_A", "Open", "Read", "Read", "Read", "Close", "Shut"])

    def test_ends_with_close_r_when_asked(self):
        self.feed(data_of(1_500))
        self.host("--close-r", init=OPTIONS + " Log_level=6 Log_directory=.").outcome()
        self.assertIn("pmiPIDMOptCloseR", self.log())

    def test_reads_blocks_as_they_come(self):
        data = data_of(54_321)
        self.feed(data, "--chunk", 777)
        self.assertEnded(self.host(init=OPTIONS + " nfb=no").outcome(), 0)
        self.assertEqual(self.read("out"), data)

    def test_takes_the_module_from_another_folder(self):
        os.mkdir(self.folder / "elsewhere")
        for name in ("tallowin.dll", "tallowinenu.dll"):
            shutil.copy(BIN / name, self.folder / "elsewhere")
        self.feed(data_of(100))
        outcome = self.host("--module", "elsewhere/tallowin.dll").outcome()
        self.assertEnded(outcome, 0)

    def test_reads_a_pipe_whose_name_is_not_ascii(self):
        self.pipe += "-größe"
        self.feed(data_of(3_000))
        outcome = self.host("--attribute", "CHARSET_NAME=UTF8").outcome()
        self.assertEnded(outcome, 0)
        self.assertEqual(self.read("out"), data_of(3_000))

    def test_takes_a_third_partys_data(self):
        program = node(self)
        data = data_of(300_000)
        self.write("data", data)
        host = self.host()
        self.write("writer.js", r"""
          const fs = require('fs');
          function send() {
            const pipe = fs.createWriteStream(process.argv[2], {flags: 'r+'});
            pipe.on('error', (e) => { if (e.code !== 'ENOENT') throw e; setTimeout(send, 20); });
            pipe.on('open', () => fs.createReadStream('data').pipe(pipe));
          }
          send();""")
        writer = self.start("node", "writer.js", self.pipe, program=program)
        self.assertEnded(host.outcome(), 0)
        self.assertEnded(writer.outcome(), 0)
        self.assertEqual(self.read("out"), data)


class Checkpoints(ToolTest):
    DATA = data_of(60_000)

    def stop_half_way(self, *arguments, init=OPTIONS, length=25_000):
        """Runs a job with a state and stops it by Ctrl-C after `length` bytes."""
        feed = self.slow_feed(self.DATA[:length + 500])
        host = self.host(*STATE, *arguments, init=init)
        self.wait_for_length("out", length)
        host.interrupt()
        outcome = host.outcome()
        feed.discard()
        return outcome

    def restart(self, *arguments):
        return self.start("tallow-host", "--state", "job.json", "--restart", *arguments)

    def test_notes_the_end_of_the_data(self):
        self.feed(data_of(30_000) + b"x")
        self.assertEnded(self.host(*STATE).outcome(), 0)
        state = self.state()
        self.assertEqual((state["position"], state["outputLength"]), (31, 30_001))
        self.assertEqual(state["finished"], True)

    def test_records_the_length_before_the_block_that_comes_again(self):
        outcome = self.stop_half_way()
        self.assertEnded(outcome, 3)
        state = self.state()
        self.assertEqual((state["position"], state["outputLength"]), (25, 24_000))
        self.assertEqual(state["finished"], False)

    def test_goes_on_after_ctrl_c(self):
        outcome = self.stop_half_way()
        self.assertEnded(outcome, 3)
        self.assertIn("--state job.json --restart", outcome.err)
        self.feed(self.DATA)
        outcome = self.restart("--json").outcome()
        self.assertEnded(outcome, 0)
        self.assertEqual(self.read("out"), self.DATA)
        self.assertEqual(outcome.json["restartedFrom"], 25)
        self.assertFalse(self.exists("job.json.fbf"))

    def test_goes_on_when_stopped_before_the_first_block(self):
        feed = self.slow_feed(self.DATA[:500])
        host = self.host(*STATE, init=OPTIONS + " Log_level=6 Log_directory=.")
        wait_until(lambda: self.exists("namedpipes.log") and "Read 500 bytes" in self.log(),
                   "the first bytes")
        host.interrupt()
        self.assertEnded(host.outcome(), 3)
        feed.discard()
        self.assertEqual((self.state()["position"], self.state()["outputLength"]), (0, 0))
        self.feed(self.DATA)
        self.assertEnded(self.restart().outcome(), 0)
        self.assertEqual(self.read("out"), self.DATA)

    def test_goes_on_after_its_process_was_terminated(self):
        feed = self.slow_feed(self.DATA[:25_500])
        host = self.host(*STATE)
        self.wait_for_length("out", 25_000)
        host.kill()
        feed.discard()
        self.assertEqual(self.state()["position"], 20)
        self.feed(self.DATA)
        self.assertEnded(self.restart().outcome(), 0)
        self.assertEqual(self.read("out"), self.DATA)

    def test_confirms_the_position_once_when_its_block_has_come_again(self):
        self.stop_half_way(init=OPTIONS + " Log_level=6 Log_directory=.")
        (self.folder / "namedpipes.log").unlink()
        self.feed(self.DATA)
        self.assertEnded(self.restart("--checkpoint-every", 1000).outcome(), 0)
        requests = [line.split("pmiPIDMOpt")[1].split()[0] for line in self.log().splitlines()
                    if "Request Received" in line]
        self.assertEqual(requests[:5], ["Open", "SetPos", "Read", "GetPos", "Read"])
        self.assertEqual(requests.count("GetPos"), 1)

    def test_names_the_fallback_file_beside_the_state(self):
        os.mkdir(self.folder / "a folder")
        feed = self.slow_feed(self.DATA[:25_500])
        host = self.host("--state", "a folder/job.json", "--checkpoint-every", 10)
        self.wait_for_length("out", 25_000)
        self.assertTrue(self.exists("a folder/job.json.fbf"))
        host.interrupt()
        self.assertEnded(host.outcome(), 3)
        feed.discard()

    def test_leaves_a_fallback_file_of_the_users_own_alone(self):
        outcome = self.stop_half_way(init=OPTIONS + " Ff=mine.fbf FD=.")
        self.assertEnded(outcome, 3)
        self.assertTrue(self.exists("mine.fbf"))
        self.assertFalse(self.exists("job.json.fbf"))

    def test_refuses_to_spend_a_restart_by_mistake(self):
        self.stop_half_way()
        before = self.read("out"), self.read("job.json")
        outcome = self.host(*STATE).outcome()
        self.assertFault(outcome, 2, "job.json", "--restart", "--new")
        self.assertEqual((self.read("out"), self.read("job.json")), before)

    def test_starts_over_when_told_so(self):
        self.stop_half_way()
        other = data_of(33_333, seed=99)
        self.feed(other)
        self.assertEnded(self.host(*STATE, "--new").outcome(), 0)
        self.assertEqual(self.read("out"), other)

    def test_has_nothing_to_restart_when_the_job_is_done(self):
        self.feed(self.DATA)
        self.host(*STATE).outcome()
        outcome = self.restart().outcome()
        self.assertEnded(outcome, 0)
        self.assertIn("done already", outcome.text)
        self.assertEqual(self.restart("--json").outcome().json["status"], "done")

    def restart_of_a_done_job(self, *arguments, init=OPTIONS, left="job.json.fbf"):
        """Restarts a job whose process died after it had noted the end, but before Close."""
        self.feed(self.DATA)
        self.assertEnded(self.host(*STATE, *arguments, init=init).outcome(), 0)
        header = b"Varnholt Fallback File 01.03.00\n\0" + BLOCK.to_bytes(4, "little") + b"\1"
        header += self.pipe.encode().ljust(260, b"\0")
        self.write(left, header + b"\0" * 48)
        self.assertEnded(self.restart().outcome(), 0)

    def test_deletes_the_fallback_file_that_a_done_job_left(self):
        self.restart_of_a_done_job()
        self.assertFalse(self.exists("job.json.fbf"))

    def test_deletes_the_file_that_a_done_job_left_in_the_folder_named(self):
        os.mkdir(self.folder / "there")
        self.restart_of_a_done_job(init=OPTIONS + " FD=there", left="there/job.json.fbf")
        self.assertFalse(self.exists("there/job.json.fbf"))

    def test_keeps_the_fallback_file_of_a_done_job_when_asked(self):
        self.restart_of_a_done_job("--attribute", "PRESERVE_RESTART_INFO=YES")
        self.assertTrue(self.exists("job.json.fbf"))

    def test_keeps_a_fallback_file_of_the_users_own_behind_a_done_job(self):
        self.restart_of_a_done_job(init=OPTIONS + " Ff=mine.fbf FD=.", left="mine.fbf")
        self.assertTrue(self.exists("mine.fbf"))

    def test_keeps_a_file_that_only_has_the_name_of_what_a_done_job_left(self):
        self.feed(self.DATA)
        self.assertEnded(self.host(*STATE).outcome(), 0)
        self.write("job.json.fbf", b"somebody's")
        self.assertEnded(self.restart().outcome(), 0)
        self.assertEqual(self.read("job.json.fbf"), b"somebody's")

    def change_state(self, **changes):
        state = self.state()
        state.update(changes)
        self.write("job.json", json.dumps(state))

    def test_touches_no_file_that_a_forged_state_names(self):
        self.stop_half_way()
        victim = self.DATA[:10_000] + data_of(30_000, seed=5)
        self.write("victim", victim)
        forged = self.state()["output"][:-len("out")] + "victim"
        for changes in ({}, {"outputLength": 10_000}, {"position": 0, "outputLength": 0}):
            with self.subTest(changes):
                self.change_state(output=forged, **changes)
                self.feed(self.DATA, "--wait", 5)
                outcome = self.restart("--wait", 5).outcome()
                self.assertIn(outcome.status, (1, 4), outcome.err)
                self.assertEqual(self.read("victim"), victim)

    def test_refuses_numbers_that_are_none(self):
        self.stop_half_way()
        good = self.state()
        for changes in ({"position": -3}, {"position": 25.0}, {"position": 2**63},
                        {"outputLength": -1}, {"outputLength": 25_000}, {"blockSize": 0},
                        {"blockSize": 2**32 + BLOCK}, {"checkpointEvery": 0},
                        {"finished": 0}, {"position": True}):
            with self.subTest(changes):
                self.write("job.json", json.dumps({**good, **changes}))
                self.assertFault(self.restart("--wait", 5).outcome(), 1, "job.json is damaged")

    def test_takes_another_log_level_at_a_restart(self):
        self.stop_half_way()
        self.feed(self.DATA)
        outcome = self.restart("--init", OPTIONS + " Log_level=6 Log_directory=.").outcome()
        self.assertEnded(outcome, 0)
        self.assertEqual(self.read("out"), self.DATA)
        self.assertIn("GetPos", self.log())

    def test_keeps_a_second_host_away_from_its_state(self):
        feed = self.slow_feed(self.DATA[:25_500])
        host = self.host(*STATE)
        self.wait_for_length("out", 25_000)
        before = self.read("out"), self.read("job.json")
        other = self.start("tallow-host", "--pipe", self.pipe + "-2", "--out", "out2", *STATE,
                           "--new").outcome()
        self.assertFault(other, 2, "another tallow-host (process ")
        self.assertFault(self.restart().outcome(), 3, "another tallow-host (process ")
        self.assertEqual((self.read("out"), self.read("job.json")), before)
        self.assertFalse(self.exists("out2"))
        host.kill()
        feed.discard()
        self.feed(self.DATA)
        self.assertEnded(self.restart().outcome(), 0)
        self.assertEqual(self.read("out"), self.DATA)
        self.assertFalse(self.exists("job.json.lock"))

    def test_quotes_the_restart_command(self):
        feed = self.slow_feed(self.DATA[:25_500])
        host = self.host("--state", "a&b.json", "--wait", 500, "--json")
        self.wait_for_length("out", 25_000)
        host.interrupt()
        outcome = host.outcome()
        feed.discard()
        self.assertEnded(outcome, 3)
        command = 'tallow-host --state "a&b.json" --restart --wait 500'
        self.assertIn(command, outcome.err)
        self.assertEqual(outcome.json["restart"], command)

    def test_refuses_changed_data_and_touches_nothing(self):
        self.stop_half_way()
        before = self.read("out"), self.read("job.json")
        changed = bytearray(self.DATA)
        changed[5_000] ^= 1
        self.feed(bytes(changed))
        outcome = self.restart("--json").outcome()
        self.assertEnded(outcome, 4)
        self.assertIn("pmrcDelivery (16)", outcome.err)
        self.assertEqual(outcome.json["status"], "mendFirst")
        self.assertEqual(outcome.json["error"]["request"]["returnCode"], 16)
        self.assertEqual((self.read("out"), self.read("job.json")), before)
        self.feed(self.DATA)
        self.assertEnded(self.restart().outcome(), 0)
        self.assertEqual(self.read("out"), self.DATA)

    def test_refuses_data_that_ends_before_the_position(self):
        self.stop_half_way()
        self.feed(self.DATA[:20_000])
        self.assertIn("pmrcBadPosition (32)", self.restart().outcome().err)

    def test_refuses_a_position_that_the_file_does_not_know(self):
        self.stop_half_way()
        self.write("job.json", self.read("job.json").replace(b'"position": 25', b'"position": 26'))
        self.assertFault(self.restart().outcome(), 1, "has no checkpoint at block 26", "--new")

    def test_refuses_a_restart_without_the_fallback_file(self):
        self.stop_half_way()
        os.remove(self.folder / "job.json.fbf")
        outcome = self.restart().outcome()
        self.assertFault(outcome, 1, "job.json.fbf is not there", "--new")

    def test_refuses_a_restart_that_cannot_work(self):
        self.stop_half_way()
        for init, words in ((OPTIONS + " nfb=no", "Need_Full_Block"),
                            (OPTIONS + " No_FallBack", "No_FallBack"),
                            ("Block_size=2000", "Block_size=1000")):
            with self.subTest(init):
                self.assertFault(self.restart("--init", init).outcome(), 2, words)
        self.assertFault(self.restart("--pipe", "other").outcome(), 2, "--pipe")
        self.assertFault(self.restart("--out", "other").outcome(), 2, "--out")

    def test_refuses_an_output_that_is_shorter_than_recorded(self):
        self.stop_half_way()
        os.truncate(self.folder / "out", 10_000)
        self.assertFault(self.restart().outcome(), 4, "out", "10000", "--new")

    def test_refuses_a_damaged_or_foreign_state(self):
        self.stop_half_way()
        good = self.read("job.json")
        for content in (b"", b"{}", b"[]", b'{"format": 7}', good[:60], b"\0" * 50,
                        good.replace(b'"position": 25', b'"position": "x"'),
                        good.replace(b"state 2", b"state 9"), b"\xff\xfe"):
            with self.subTest(content):
                self.write("job.json", content)
                self.assertFault(self.restart().outcome(), 1, "job.json is damaged", "--new")

    def test_refuses_a_state_that_is_not_there(self):
        self.assertFault(self.restart().outcome(), 2, "there is no state file job.json")

    def test_says_when_the_state_cannot_be_written(self):
        self.feed(self.DATA)
        outcome = self.host("--state", "absent/job.json", init=OPTIONS + " FD=.").outcome()
        self.assertFault(outcome, 2, "job.json", "folder does not exist")

    def test_warns_when_a_restart_is_impossible(self):
        for init, words in ((OPTIONS + " nfb=no", "Need_Full_Block is off"),
                            (OPTIONS + " No_FallBack", "No_FallBack is set")):
            with self.subTest(init):
                self.feed(b"data")
                outcome = self.host(*STATE, "--new", init=init).outcome()
                self.assertEnded(outcome, 0)
                self.assertIn("warning: this job cannot be restarted: " + words, outcome.err)

    def test_warns_when_a_pause_can_pass_for_the_end(self):
        self.feed(b"data")
        outcome = self.host("--attribute", "TIMEOUT_SECONDS=30", init="nfb=no").outcome()
        self.assertIn("warning: a writer that pauses longer than TIMEOUT_SECONDS", outcome.err)

    def test_rewinds_once_and_delivers_the_same(self):
        self.feed(self.DATA)
        outcome = self.host("--checkpoint-every", 7, "--rewind", 2, "--json",
                            init=OPTIONS + " Log_level=6 Log_directory=.").outcome()
        self.assertEnded(outcome, 0)
        self.assertTrue(outcome.json["rewound"])
        self.assertEqual(self.read("out"), self.DATA)
        self.assertIn("SetPos to block no. 14.", self.log())
        self.assertIn("from fallback file", self.log())

    def test_rewinds_at_the_end_when_no_more_blocks_come(self):
        self.feed(self.DATA)
        outcome = self.host("--checkpoint-every", 25, "--rewind", 2, "--json").outcome()
        self.assertEnded(outcome, 0)
        self.assertTrue(outcome.json["rewound"])
        self.assertEqual(self.read("out"), self.DATA)

    def test_rewinds_blocks_that_came_as_they_came(self):
        self.feed(self.DATA, "--chunk", 333)
        outcome = self.host("--checkpoint-every", 20, "--rewind", 1, "--json",
                            init=OPTIONS + " nfb=no").outcome()
        self.assertEnded(outcome, 0)
        self.assertTrue(outcome.json["rewound"])
        self.assertEqual(self.read("out"), self.DATA)

    def test_keeps_the_state_when_ctrl_c_comes_while_data_is_dropped(self):
        self.stop_half_way(init=OPTIONS + " Log_level=6 Log_directory=.")
        (self.folder / "namedpipes.log").unlink()
        before = self.read("out"), self.read("job.json")
        feed = self.slow_feed(self.DATA[:5_500])
        host = self.restart()
        wait_until(lambda: self.exists("namedpipes.log") and "for block no. 5." in self.log(),
                   "the re-sent blocks")
        host.interrupt()
        outcome = host.outcome()
        feed.discard()
        self.assertEnded(outcome, 3)
        self.assertEqual((self.read("out"), self.read("job.json")), before)
        self.feed(self.DATA)
        self.assertEnded(self.restart().outcome(), 0)
        self.assertEqual(self.read("out"), self.DATA)


class Unprotected(ToolTest):
    """Jobs whose fallback file cannot be made."""
    DATA = data_of(60_000)

    def assertUnprotected(self, outcome, *words):
        self.assertEnded(outcome, 0)
        self.assertFault(outcome, 0, "warning: the job goes on, but it cannot be restarted", *words)
        report = outcome.json
        self.assertEqual((report["checkpoints"], report["restart"]), (0, None))
        self.assertEqual(len(report["warnings"]), 1)
        self.assertEqual(self.read("out"), self.DATA)

    def test_warns_of_a_folder_that_is_not_there(self):
        self.feed(self.DATA)
        outcome = self.host(*STATE, "--json", init=OPTIONS + " Ff=sub/a.fbf FD=.").outcome()
        self.assertUnprotected(outcome, "sub/a.fbf is not there")

    def test_offers_no_restart_that_would_be_refused(self):
        feed = self.slow_feed(self.DATA[:25_500])
        host = self.host(*STATE, init=OPTIONS + " Ff=sub/a.fbf FD=.")
        self.wait_for_length("out", 25_000)
        host.interrupt()
        outcome = host.outcome()
        feed.discard()
        self.assertEnded(outcome, 1)
        self.assertIn("has to start over", outcome.err)
        self.assertNotIn("--restart", outcome.err)
        self.assertFalse(self.exists("job.json"))

    def test_warns_of_a_file_that_another_job_holds(self):
        feed = self.slow_feed(self.DATA[:25_500])
        holder = self.host("--state", "holder.json", output="held",
                           init=OPTIONS + " Ff=held.fbf FD=.")
        self.wait_for_length("held", 25_000)
        self.pipe = pipe_name()
        self.feed(self.DATA)
        outcome = self.host(*STATE, "--json", init=OPTIONS + " Ff=held.fbf FD=.").outcome()
        self.assertUnprotected(outcome, "held.fbf belongs to a job with another pipe")
        holder.interrupt()
        self.assertEnded(holder.outcome(), 3)
        feed.discard()

    def test_warns_when_the_disk_of_the_file_is_full(self):
        small_disk(self, "8k")
        self.feed(self.DATA)
        outcome = self.host("--state", "job.json", "--checkpoint-every", 30, "--json",
                            init=OPTIONS + " FD=disk").outcome()
        self.assertEnded(outcome, 0)
        self.assertFault(outcome, 0, "warning: the job goes on, but it cannot be restarted")
        self.assertEqual(self.read("out"), self.DATA)

    def test_counts_no_checkpoint_without_a_fallback_file(self):
        self.feed(self.DATA)
        outcome = self.host("--checkpoint-every", 10, "--json",
                            init=OPTIONS + " No_FallBack").outcome()
        self.assertEqual(outcome.json["checkpoints"], 0)


class Waits(ToolTest):
    def test_ends_when_no_writer_comes(self):
        for init in (OPTIONS, OPTIONS + " nfb=no"):
            with self.subTest(init):
                outcome = self.host("--wait", 1, "--json", init=init).outcome()
                self.assertFault(outcome, 1, "no writer has come to " + self.pipe)
                self.assertEqual(outcome.json["status"], "failed")
                self.assertEqual(sorted(os.listdir(self.folder)), [])

    def test_can_be_restarted_when_no_writer_has_come(self):
        data = data_of(20_000)
        outcome = self.host(*STATE, "--wait", 1).outcome()
        self.assertEnded(outcome, 3)
        self.assertIn("go on with: tallow-host --state job.json --restart --wait 1", outcome.err)
        restart = ["--state", "job.json", "--restart"]
        self.feed(data)
        self.assertEnded(self.run_tool("tallow-host", *restart, "--wait", 20), 0)
        self.assertEqual(self.read("out"), data)

    def test_ends_when_the_writer_falls_silent(self):
        data = data_of(25_500)
        feed = self.slow_feed(data)
        outcome = self.host(*STATE, "--wait", 2).outcome()
        feed.discard()
        self.assertEnded(outcome, 3)
        self.assertIn("took longer than 2 seconds for a block", outcome.err)
        self.feed(data)
        self.assertEnded(self.run_tool("tallow-host", "--state", "job.json", "--restart"), 0)
        self.assertEqual(self.read("out"), data)

    def test_ends_a_restart_to_which_no_writer_comes(self):
        self.feed(data_of(25_500)).discard()
        outcome = self.host(*STATE, "--wait", 1).outcome()
        self.assertEnded(outcome, 3)
        outcome = self.run_tool("tallow-host", "--state", "job.json", "--restart", "--wait", 1)
        self.assertEnded(outcome, 3)
        self.assertIn("no writer has come", outcome.err)

    def test_takes_its_time_while_blocks_come(self):
        data = data_of(3_000)
        feed = self.slow_feed(b"")
        host = self.host("--wait", 2)
        for start in range(0, 3_000, 1_000):
            feed.stdin.write(data[start:start + 1_000])
            feed.stdin.flush()
            self.wait_for_length("out.part", start + 1_000)
        feed.stdin.close()
        self.assertEnded(host.outcome(), 0)
        self.assertEqual(self.read("out"), data)


class ExitStatuses(ToolTest):
    """The one table: what happens to a job, and what a loop may conclude from the exit status."""
    DATA = data_of(60_000)
    RESTART = ["--state", "job.json", "--restart"]

    def begun_job(self):
        """A job that has a checkpoint at block 20 and was killed."""
        for name in ("job.json", "job.json.fbf", "out"):
            (self.folder / name).unlink(missing_ok=True)
        self.pipe = pipe_name()
        feed = self.slow_feed(self.DATA[:25_500])
        host = self.host(*STATE)
        self.wait_for_length("out", 25_000)
        host.kill()
        feed.discard()

    def first_start(self, *arguments, **keywords):
        return self.host(*arguments, **keywords).outcome()

    def restart(self, *arguments):
        return self.run_tool("tallow-host", *self.RESTART, *arguments)

    def test_of_a_first_start(self):
        os.mkdir(self.folder / "folder")
        self.write("plain", "a file")
        rows = (
            ("an unknown option", 2, [], {"init": "Block_sze=1"}),
            ("a bad value", 2, [], {"init": "Signature_check=3"}),
            ("a log folder that is not there", 2, [], {"init": "Log_directory=nowhere"}),
            ("an unknown attribute", 2, ["--attribute", "SPEED=1"], {}),
            ("no module", 2, ["--module", "absent.dll"], {}),
            ("a pipe that is none", 2, ["--pipe", "orders"], {}),
            ("an output in no folder", 2, [], {"output": "absent/out"}),
            ("a folder as output", 2, [], {"output": "folder"}),
            ("a folder as state", 2, ["--state", "folder"], {}),
            ("a state in no folder", 2, ["--state", "absent/job.json"], {}),
            ("another file as state", 2, ["--state", "plain"], {}),
            ("a device as output of a state", 2, STATE, {"output": "NUL"}),
            ("no writer, no state", 1, ["--wait", 1], {}),
            ("no writer, a state", 3, [*STATE, "--wait", 1], {}),
        )
        for what, status, arguments, keywords in rows:
            with self.subTest(what):
                pipe = self.pipe
                if "--pipe" in arguments:
                    self.pipe, arguments = arguments[1], arguments[2:]
                self.assertEnded(self.first_start(*arguments, **keywords), status)
                self.pipe = pipe

    def test_of_a_restart(self):
        def cut_output():
            os.truncate(self.folder / "out", 5_000)

        def change_output():
            self.write("out", data_of(30_000, seed=3))

        def remove(name):
            return lambda: (self.folder / name).unlink()

        def write(name, content):
            return lambda: self.write(name, content)

        other = bytearray(self.DATA)
        other[5_000] ^= 1
        rows = (
            ("the same data", 0, None, self.DATA, []),
            ("other data", 4, None, bytes(other), []),
            ("less data", 4, None, self.DATA[:10_000], []),
            ("no writer", 3, None, None, ["--wait", 1]),
            ("a cut output", 4, cut_output, None, []),
            ("another output", 4, change_output, None, []),
            ("no output", 4, remove("out"), None, []),
            ("no fallback file", 1, remove("job.json.fbf"), None, []),
            ("another fallback file", 1, write("job.json.fbf", b"x" * 5_000), None, []),
            ("a damaged state", 1, write("job.json", b"{}"), None, []),
            ("no state", 2, remove("job.json"), None, []),
            ("wrong options", 4, None, None, ["--init", OPTIONS + " Speed=1"]),
            ("another block size", 2, None, None, ["--init", "Block_size=7"]),
            ("another pipe", 2, None, None, ["--pipe", r"\\.\pipe\other"]),
            ("no module", 4, None, None, ["--module", "absent.dll"]),
        )
        for what, status, change, data, arguments in rows:
            with self.subTest(what):
                self.begun_job()
                if change:
                    change()
                writer = None if data is None else self.feed(data)
                outcome = self.restart(*arguments)
                self.assertEnded(outcome, status)
                if status in (3, 4):
                    self.assertIn("tallow-host --state job.json --restart", outcome.err)
                else:
                    self.assertNotIn("go on with", outcome.err)
                if writer:
                    writer.discard()


class CtrlC(ToolTest):
    def test_leaves_nothing_of_a_job_without_a_state(self):
        feed = self.slow_feed(data_of(5_500))
        host = self.host()
        self.wait_for_length("out.part", 5_000)
        host.interrupt()
        outcome = host.outcome()
        feed.discard()
        self.assertFault(outcome, 1, "Ctrl-C", "start over")
        self.assertFalse(self.exists("out"))
        self.assertFalse(self.exists("out.part"))

    def test_says_that_it_cannot_end_a_wait_for_a_writer(self):
        host = self.host(*STATE, init=OPTIONS + " Log_level=6 Log_directory=.")
        wait_until(lambda: self.exists("namedpipes.log") and "pmiPIDMOptRead" in self.log(),
                   "the first Read")
        host.interrupt()
        wait_until(lambda: "press Ctrl-C again" in host.said(), "the advice")
        host.interrupt()
        outcome = host.outcome()
        self.assertEnded(outcome, 3)
        self.assertIn("tallow-host --state job.json --restart", outcome.err)
        self.assertEqual(outcome.text.splitlines()[0][:9], "stopped: ")

    def test_ends_at_once_the_second_time_and_can_be_restarted(self):
        data = data_of(20_000)
        feed = self.slow_feed(data[:12_500])
        host = self.host(*STATE)
        self.wait_for_length("out", 12_000)
        host.interrupt()
        self.assertEnded(host.outcome(), 3)
        feed.discard()
        host = self.start("tallow-host", "--state", "job.json", "--restart")
        wait_until(lambda: "dropping" in host.said(), "the restart")
        host.interrupt()
        wait_until(lambda: "press Ctrl-C again" in host.said(), "the advice")
        host.interrupt()
        self.assertEnded(host.outcome(), 3)
        self.feed(data)
        self.assertEnded(
            self.start("tallow-host", "--state", "job.json", "--restart").outcome(), 0)
        self.assertEqual(self.read("out"), data)


class Failures(ToolTest):
    def test_names_a_module_that_is_not_there(self):
        self.assertFault(self.host("--module", "absent.dll").outcome(), 2, "absent.dll",
                         "does not exist", "--module")

    def test_names_what_is_no_module(self):
        self.write("text.dll", "not a library at all")
        self.write("short.dll", b"MZ")
        library = bytearray((BIN / "tallowin.dll").read_bytes())
        offset = int.from_bytes(library[0x3c:0x40], "little")
        library[offset + 4:offset + 6] = (0x14c).to_bytes(2, "little")
        self.write("small.dll", bytes(library))
        for path, words in (("text.dll", "is not a DLL"), ("short.dll", "is not a DLL"),
                            (".", "is a folder"), ("small.dll", "is not for 64-bit Windows"),
                            (BIN / "tallow-feed.exe", "is a program"),
                            (BIN / "tallowinenu.dll", "exports no PIDMMain")):
            with self.subTest(path):
                self.assertFault(self.host("--module", path).outcome(), 2, words, "--module")

    def test_names_the_language_library_when_it_is_missing(self):
        self.assertFault(self.host("--module", BIN / "refusing_module.dll").outcome(), 2,
                         "refused to start", "tallowinenu.dll")

    def test_shows_the_modules_text_for_a_name_that_is_no_pipe(self):
        self.pipe = "orders"
        outcome = self.host("--json").outcome()
        self.assertFault(outcome, 2, "Open failed with pmrcFailed (34)", "orders")
        request = outcome.json["error"]["request"]
        self.assertEqual((request["name"], request["returnCode"], request["returnCodeName"]),
                         ("Open", 34, "pmrcFailed"))
        self.assertIn("orders", request["failureText"])
        self.assertFalse(self.exists("out"))
        self.assertEnded(self.host(*STATE).outcome(), 2)
        self.assertFalse(self.exists("out"))

    def test_names_the_option_that_is_wrong(self):
        for init, words in (("Block_sze=1", "did you mean Block_size?"),
                            ("Log_level=", "has no value"),
                            ("Signature_check=3", "must be 0, 1 or 2"),
                            ("Block_size=0", "pmrcFailed (34)"),
                            ("Ff='x", "no closing quote")):
            with self.subTest(init):
                self.assertFault(self.host(init=init).outcome(), 2, "Init failed", words,
                                 "--explain")

    def test_names_an_attribute_that_the_module_does_not_know(self):
        self.assertFault(self.host("--attribute", "SPEED=high").outcome(), 2,
                         "pmrcBadAttribute (33)")

    def test_names_an_output_that_cannot_be_written(self):
        os.mkdir(self.folder / "folder")
        self.assertFault(self.host(output="absent/out").outcome(), 2, "out", "folder exists")
        self.assertFault(self.host(output="folder").outcome(), 2, "is a folder; name a file")
        self.assertFault(self.host(*STATE, output="folder").outcome(), 2, "is a folder; name a file")
        self.assertFault(self.host(output="").outcome(), 2, "--out has an empty name")

    def test_leaves_no_output_on_a_full_disk(self):
        self.feed(data_of(50_000))
        outcome = self.host(output="/dev/full").outcome()
        self.assertFault(outcome, 1, "cannot write", "full")

    def test_leaves_no_part_of_an_output_on_a_full_disk(self):
        disk = small_disk(self, "64k")
        self.feed(data_of(200_000))
        outcome = self.host(output="disk/out").outcome()
        self.assertFault(outcome, 1, "cannot write", "make room on the disk")
        self.assertEqual(os.listdir(disk), [])

    def test_says_how_to_go_on_after_a_full_disk(self):
        disk = small_disk(self, "64k")
        data = data_of(200_000)
        self.feed(data)
        outcome = self.host(*STATE, output="disk/out").outcome()
        self.assertFault(outcome, 4, "cannot write", "holds only a part", "--restart")
        resize_disk(disk, "1m")
        self.feed(data)
        self.assertEnded(
            self.start("tallow-host", "--state", "job.json", "--restart").outcome(), 0)
        self.assertEqual(self.read("disk/out"), data)

    def test_refuses_a_command_line_that_is_wrong(self):
        both = ["--pipe", self.pipe, "--out", "out"]
        for words, arguments in (
                ("--pipe", []), ("--out", ["--pipe", self.pipe]), ("--fast", [*both, "--fast"]),
                ("--state", [*both, "--restart"]), ("--state", [*both, "--new"]),
                ("choose one", [*both, "--state", "s", "--new", "--restart"]),
                ("--checkpoint-every", [*both, "--checkpoint-every", "0"]),
                ("--checkpoint-every", [*both, "--rewind", "1"]),
                ("NAME=VALUE", [*both, "--attribute", "X"]),
                ("NAME=VALUE", [*both, "--attribute", "=X"]),
                ("cut back", ["--pipe", self.pipe, "--out", "-", "--state", "s"]),
                ("its own", [*both, "--state", "OUT"]),
                ("--pipe has an empty name", ["--pipe", "", "--out", "out"]),
                ("--state", [*both, "--state", ""]),
                ("is a folder", [*both, "--state", "."]),
                ("--wait", [*both, "--wait", "0"]), ("--wait", [*both, "--wait", "-1"]), ("--init", [*both, "--init"])):
            with self.subTest(arguments):
                self.assertFault(self.run_tool("tallow-host", *arguments), 2, words)


class Explanations(ToolTest):
    def explain(self, text, *arguments):
        return self.run_tool("tallow-host", "--explain", text, *arguments)

    def test_explains_every_option(self):
        outcome = self.explain("Ll=6 Ld=. b=4096 pw=5 Sc=1 FD=. Ff=x.fbf Cfd=yes nfb=yes nf")
        self.assertEnded(outcome, 0)
        lines = outcome.text.splitlines()
        self.assertEqual(len(lines), 11)
        self.assertTrue(all(line.startswith("ok ") for line in lines[:10]), outcome.text)
        self.assertFalse(self.exists("namedpipes.log"), "nothing is opened")

    def test_shows_what_is_wrong(self):
        outcome = self.explain("Block_sze=1 FD=/nowhere")
        self.assertEnded(outcome, 1)
        self.assertIn("did you mean Block_size?", outcome.text)
        self.assertIn("is not a folder", outcome.text)
        self.assertIn("refuses", outcome.text)

    def test_judges_a_folder_as_the_module_does(self):
        os.mkdir(self.folder / "logs")
        os.mkdir(self.folder / "sealed")
        os.chmod(self.folder / "sealed", 0o555)
        open(self.folder / "file", "w").close()
        for option in ("Ld", "FD"):
            for name in ("logs", "logs\\", "logs/", r".\logs", "file", "sealed", "c:", "c:\\"):
                with self.subTest(option + "=" + name):
                    text = f"{option}='{name}'"
                    status = self.explain(text).status
                    # This is no pipe's name, so a module that takes the string refuses Open.
                    refusal = self.run_tool("tallow-host", "--pipe", "no-pipe", "--out", "out",
                                            "--init", text).err
                    self.assertRegex(refusal, "Init failed" if status else "Open failed")

    def test_shows_why_a_folder_with_a_separator_at_its_end_is_refused(self):
        os.mkdir(self.folder / "logs")
        for separator in "\\/":
            outcome = self.explain("Log_directory=logs" + separator)
            self.assertEnded(outcome, 1)
            self.assertIn(f"leave out the {separator} at its end", outcome.text)

    def test_calls_a_folder_in_the_name_of_the_fallback_file_wrong(self):
        for name in ("sub/a.fbf", r"sub\a.fbf", "..", r"..\a.fbf", "c:a.fbf"):
            with self.subTest(name):
                outcome = self.explain("Ff=" + name)
                self.assertEnded(outcome, 1)
                self.assertIn("WRONG", outcome.text)
                self.assertIn("Fallback_Directory", outcome.text)
                self.assertTrue(self.explain("Ff=" + name, "--json").json["accepted"])

    def test_explains_as_json(self):
        report = self.explain("b=7 speed=1", "--json").json
        self.assertFalse(report["accepted"])
        self.assertEqual([option["good"] for option in report["options"]], [True, False])
        self.assertEqual(report["options"][0]["option"], "Block_size")
        self.assertIsNone(report["options"][1]["option"])
        self.assertEqual(report["inForce"]["Block_size"], 7)

    def test_explains_an_empty_string(self):
        self.assertIn("all defaults", self.explain("").text)

    def test_helps(self):
        outcome = self.run_tool("tallow-host", "--help")
        self.assertEnded(outcome, 0)
        for words in ("Examples:", "--pipe", "--out", "--init", "--attribute", "--module", "--json",
                      "--checkpoint-every", "--state", "--restart", "--new", "--rewind",
                      "--close-r", "--explain", "--writer", "--in FILE", "--expect-bytes", "--resume",
                      "--attempts", "Exit status"):
            self.assertIn(words, outcome.text)

    def test_knows_its_version(self):
        self.assertRegex(self.run_tool("tallow-host", "--version").text, r"^tallow-host \d+\.\d+")


class Terminal(ToolTest):
    def test_shows_progress_where_a_terminal_is(self):
        feed = self.slow_feed(data_of(12_500))
        host = self.on_terminal("tallow-host", "--pipe", self.pipe, "--out", "out", "--init",
                                OPTIONS)
        host.wait_for(b"read 12.0 KB, 12 blocks")
        feed.stdin.close()
        host.wait_for(b"done: 13 blocks")

    def test_shows_what_it_waits_for(self):
        host = self.on_terminal("tallow-host", "--pipe", self.pipe, "--out", "out", "--init",
                                OPTIONS)
        host.wait_for(b"waiting for data from a writer at " + self.pipe.encode())
        self.assertNotIn(b"0 B", host.shown())
        feed = self.slow_feed(data_of(12_500))
        host.wait_for(b"read 12.0 KB, 12 blocks")
        host.wait_for(b"nothing new for 0:0")
        feed.stdin.close()
        host.wait_for(b"done: 13 blocks")

    def test_stops_at_ctrl_c(self):
        feed = self.slow_feed(data_of(12_500))
        host = self.on_terminal("tallow-host", "--pipe", self.pipe, "--out", "out", "--init",
                                OPTIONS, *STATE)
        host.wait_for(b"read 12.0 KB, 12 blocks")
        host.press_ctrl_c()
        host.wait_for(b"--restart")
        self.assertEqual(host.wait(), 3)
        feed.discard()


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""velarixctl as an operator runs it: on a terminal and on none, and following a log that is being written.

    program_test.py VELARIXCTL [UNITTEST OPTIONS]
"""

import json
import os
import pathlib
import pty
import signal
import subprocess
import sys
import tempfile
import termios
import unittest

PROGRAM = sys.argv[1]
SETTINGS = """[AGENT]
VIRTUAL_IP_START_COMMAND = raise
VIRTUAL_IP_STOP_COMMAND = drop
[ADVENCE]
PROCESS_KILL_COMMAND = killall -9
[LOG]
PATH = /var/v.log
"""


class Terminal(unittest.TestCase):
    def output(self, *words, no_colour=None, terminal=True, kind="xterm", end=None):
        """The arguments look for the node's files in a directory that has none."""
        environment = {name: value for name, value in os.environ.items() if name != "NO_COLOR"}
        environment |= {"TERM": kind} | ({} if no_colour is None else {"NO_COLOR": no_colour})
        reading, writing = pty.openpty() if terminal else os.pipe()
        if terminal:
            termios.tcsetwinsize(writing, (10, 60))
        with tempfile.TemporaryDirectory() as empty:
            program = subprocess.Popen([PROGRAM, "--root", empty, *words], stdin=writing, stdout=writing, env=environment)
            os.close(writing)
            said = b""
            try:
                while piece := os.read(reading, 4096):
                    said += piece
                    if end and b"\033[J" in said:
                        program.send_signal(end)
            except OSError:  # how a terminal ends
                pass
            os.close(reading)
            self.status = program.wait()
        return said.decode()

    def test_gets_colours_unless_they_are_not_wanted(self):
        self.assertIn("role         \033[33mnot known", self.output("status"))
        self.assertIn("\033[", self.output("status", no_colour=""))
        plain = self.output("status", no_colour="1")
        self.assertIn("role         not known", plain)
        self.assertNotIn("\033[", plain)

    def test_is_redrawn_also_without_colours(self):
        for no_colour in (None, "1"):
            said = self.output("watch", "--count", "1", no_colour=no_colour)
            self.assertTrue(said.startswith("\033[?1049h\033[?7l\033[H"), said)
            self.assertEqual(said.split("\033[J")[0].count("\n"), 9)
        self.assertNotIn("\033[3", said)

    def test_is_given_back_when_a_signal_ends_the_watch(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            self.assertTrue(self.output("watch", end=number).endswith("\033[?7h\033[?1049l"))
            self.assertEqual(self.status, -number)

    def test_that_knows_lines_alone_gets_nothing_else(self):
        for kind in ("dumb", ""):
            self.assertNotIn("\033", self.output("watch", "--count", "1", kind=kind))

    def test_is_not_assumed_behind_a_pipe(self):
        for words in (["status"], ["watch", "--count", "1"]):
            self.assertNotIn("\033", self.output(*words, terminal=False))


class Output(unittest.TestCase):
    def test_that_cannot_be_written_is_no_success(self):
        for words in (["explain", "CHeartReciver:146"], ["watch", "--json"], ["check", "--json"]):
            with open("/dev/full", "wb") as full, tempfile.TemporaryDirectory() as empty:
                command = [PROGRAM, "--root", empty, *words]
                result = subprocess.run(command, stdout=full, stderr=subprocess.PIPE, text=True, check=False)
            error = "velarixctl: cannot write standard output\n"
            self.assertEqual((result.returncode, result.stderr), (73, error), words)

    def test_that_nobody_reads_ends_in_silence(self):
        with tempfile.TemporaryDirectory() as folder:
            log = pathlib.Path(folder, "v.log")
            log.write_text("".join(start("08:00:00.0", str(process)) for process in range(4000)))
            reading, writing = os.pipe()
            os.close(reading)
            command = [PROGRAM, "events", "--log", str(log)]
            result = subprocess.run(command, stdout=writing, stderr=subprocess.PIPE, text=True, check=False)
            os.close(writing)
        self.assertEqual((result.returncode, result.stderr), (0, ""))


def line(time, place, text, process="4711:3", letter="D"):
    return f"2026-11-21 {time} [{process}][{place}] <{letter}> {text}\n"


def start(time, process):
    return line(time, "CAgent:25", "stop virtual ip, process", process + ":0")


class Follow(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        self.log = self.root / "var/v.log"
        self.log.parent.mkdir()
        settings = self.root / "usr/velarix/bin/ini/config.ini"
        settings.parent.mkdir(parents=True)
        settings.write_text(SETTINGS)

    def follow(self, *more):
        command = [PROGRAM, "events", "--follow", "--json", "--root", str(self.root), *more]
        pipes = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "text": True}
        self.program = subprocess.Popen(command, env=os.environ | {"TZ": "UTC0"}, **pipes)
        self.addCleanup(self.end)

    def end(self):
        self.program.send_signal(signal.SIGINT)  # as Control-C does
        self.program.communicate()

    def append(self, text):
        with open(self.log, "a", encoding="utf-8") as handle:
            handle.write(text)

    def expect(self, *events):
        """The test's time limit ends a wait in vain."""
        self.assertEqual([json.loads(self.program.stdout.readline())["event"] for _ in events], list(events))

    def test_what_happens_later_is_reported_when_it_happens(self):
        self.append(start("08:00:00.0", "4711"))
        self.follow()
        self.expect("agent-started")
        self.append(line("09:00:00.0", "CHeartReciver:549", "slave -> master  process run"))
        self.expect("log-gap", "role-changed", "takeover-began")
        self.assertIsNone(self.program.poll())

    def test_a_rotation_a_truncation_and_a_restart_are_followed(self):
        self.append(start("08:00:00.0", "4711"))
        self.follow()
        self.expect("agent-started")
        self.append(line("08:00:01.0", "CHeartReciver:146", "Reciver Connect Timed Out", letter="E"))
        self.log.rename(f"{self.log}.20261121080002000")
        beat = line("08:00:03.0", "CHeartReciver:164", "received message: /process/1/1/20261121080000/0/")
        self.append("# Log file created/rotated ...\n" + beat)
        self.expect("partner-lost", "partner-back")
        os.truncate(self.log, 0)
        self.append(start("08:00:04.0", "4712"))
        self.expect("agent-ended", "agent-started")

    def test_a_log_that_is_not_there_yet_is_waited_for(self):
        self.follow()
        error = self.program.stderr.readline().replace(str(self.root), "")
        self.assertEqual(error, "velarixctl: cannot read /var/v.log: No such file or directory\n")
        self.append(start("08:00:00.0", "4711"))
        self.expect("agent-started")

    def test_only_what_is_young_enough_is_reported(self):
        self.append(start("08:00:00.0", "4711"))
        self.append(line("09:00:00.0", "CHeartReciver:538", "networkStatus : SLAVE"))
        self.append(line("09:00:00.5", "CHeartReciver:549", "slave -> master  process run"))
        self.append(line("10:00:00.0", "CHeartReciver:508", "my comunication IP is not OK (1)"))
        self.append(line("10:00:00.1", "CHeartReciver:509", "master -> slave  process kill"))
        self.follow("--since", "2026-11-21 09:59")
        self.expect("log-gap", "fault-found", "takeover-unfinished", "role-changed")
        self.append(start("11:00:00.0", "4712"))
        self.expect("agent-ended")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]])

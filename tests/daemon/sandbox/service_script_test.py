#!/usr/bin/env python3
"""The script behind the systemd unit and the init script, with the real agent; velarixctl is a stand-in that
accepts everything. How systemd takes it: tests/package.

    service_script_test.py VELARIXHA TOOL_THREADS SERVICE_SCRIPT INIT_SCRIPT RELEASE [UNITTEST OPTIONS]
"""

import collections
import concurrent.futures
import email.utils
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time
import unittest

from agent import HOME, LOG, PID_FILE, PROGRAM, SETTINGS, AgentCase, main, shell, wait_for

SERVICE_SCRIPT, INIT_SCRIPT, RELEASE = sys.argv[3:6]
SERVICE = pathlib.Path("/usr/libexec/velarix-ha/service")
TOOLS = HOME / "tools"
NOT_RUNNING, WRONG_SETTINGS = 3, 78
Outcome = collections.namedtuple("Outcome", "status text")


def run(*command):
    """The stand-ins' directory is first on its path."""
    done = subprocess.run(command, env=os.environ | {"PATH": f"{TOOLS}:{os.environ['PATH']}"}, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    return Outcome(done.returncode, done.stdout.decode())


def service(verb):
    return run(SERVICE, verb)


def agents():
    """The processes that run the agent's program, whoever started them."""
    parents = {}
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            if os.readlink(process / "exe").startswith(PROGRAM):
                parents[int(process.name)] = int(re.search(r"PPid:\s*(\d+)", (process / "status").read_text())[1])
        except OSError:
            pass
    # What an agent has just forked, and has not become its command yet, is none.
    return [process for process, parent in parents.items() if parent not in parents]


def reap():
    """This process is the first one here: whoever has no parent is its child."""
    try:
        while os.waitpid(-1, os.WNOHANG)[0]:
            pass
    except ChildProcessError:
        pass
    return not agents()


class ServiceCase(AgentCase):
    def setUp(self):
        super().setUp()
        # Whatever init system the host has: none of it is here.
        shell("mount -t tmpfs none /run")
        self.addCleanup(shell, "umount /run")
        self.addCleanup(self.end_agents)
        SERVICE.parent.mkdir(parents=True, exist_ok=True)
        TOOLS.mkdir()
        shutil.copy(SERVICE_SCRIPT, SERVICE)
        SERVICE.chmod(0o755)
        self.tool("velarixctl", "exit 0")

    def end_agents(self):
        for agent in agents():
            os.kill(agent, signal.SIGKILL)
        wait_for("the end of the agents", reap)

    def tool(self, name, text):
        path = TOOLS / name
        path.write_text(f"#!/bin/sh\n{text}\n")
        path.chmod(0o755)


def log_of(hours):
    """A log that was begun so many hours ago."""
    begun = email.utils.formatdate(time.time() - hours * 3600, usegmt=True)
    weekday, day, month, year, rest = re.fullmatch(r"(\w+), (\d+) (\w+) (\d+) (.*)", begun).groups()
    weekday = {"Tue": "Tues", "Wed": "Wednes", "Thu": "Thurs", "Sat": "Satur"}.get(weekday, weekday) + "day"
    return f"# Log file created/rotated {weekday}, {int(day)} {month} {year[2:]} {rest}\nan old line\n"


class ServiceScript(ServiceCase):
    def test_an_agent_with_an_empty_pid_file_is_found_and_ended(self):
        shell(f"mount -t tmpfs -o size=4k full {HOME}/pid && head -c 4096 /dev/zero >{HOME}/pid/other")
        self.addCleanup(shell, f"umount -l {HOME}/pid")
        agent = self.start()
        self.assertEqual(PID_FILE.stat().st_size, 0)
        status = service("status")
        self.assertEqual(status.status, 0)
        self.assertIn(f"runs (pid {agent.pid})", status.text)
        self.assertIn(f"its pid file {PID_FILE} is missing or empty", status.text)
        self.assertEqual(service("stop").status, 0)
        self.assertEqual(agent.end(5), 128 + signal.SIGTERM)

    @unittest.skipUnless(RELEASE, "built without the companion programs")
    def test_the_release_shows_commands_as_text_that_no_terminal_obeys(self):
        self.configure(AGENT__VIRTUAL_IP_STOP_COMMAND="true \x1b[2J")
        text = run(RELEASE).text
        self.assertTrue(text.startswith("running: true \\x1b[2J\n"), text)
        self.assertNotIn("\x1b", text)

    def test_a_log_path_that_is_no_regular_file_is_refused(self):
        shell(f"mkfifo {HOME}/log/fifo {HOME}/log/$(printf '\\033c\\302\\2330') && ln -s /dev/zero {HOME}/log/zero")
        for path, shown in [(path, path) for path in (f"{HOME}/log/fifo", f"{HOME}/log/zero", "/dev/tty", f"{HOME}/log")] \
                + [(f"{HOME}/log/\x1bc\u009b0", f"{HOME}/log/c0")]:
            self.configure(LOG__PATH=path)
            outcome = service("start")
            self.assertEqual(outcome.status, WRONG_SETTINGS, path)
            self.assertRegex(outcome.text, rf"\Avelarix-ha: not started: LOG\.PATH, {shown}, is no regular file")
            self.assertEqual(agents(), [])

    def test_two_starts_at_once_start_one_agent(self):
        self.tool("velarixctl", "sleep 1")
        with concurrent.futures.ThreadPoolExecutor() as both:
            first, second = sorted(both.map(service, ("start", "start")), key=lambda outcome: len(outcome.text))
        self.assertEqual(agents(), [int(PID_FILE.read_text())], first.text + second.text)
        self.assertEqual((first, second.status), (Outcome(0, ""), 0), second.text)
        self.assertEqual(second.text, f"velarix-ha: runs already (pid {agents()[0]})\n")

    def test_whatever_the_mask_nobody_else_may_write_the_pid_file(self):
        self.addCleanup(os.umask, os.umask(0))
        self.assertEqual(service("start").status, 0)
        self.assertEqual(PID_FILE.stat().st_mode & 0o777, 0o644)

    def test_a_pid_file_that_is_none_is_not_read(self):
        os.mkfifo(PID_FILE)
        self.assertEqual(service("status").status, 1)

    def test_the_log_path_is_read_as_the_agent_reads_it(self):
        """What the agent's own reader makes of each: SettingsStoreTest."""
        shell("mkfifo /usr/fifo")
        self.addCleanup(os.unlink, "/usr/fifo")
        for text in ("[LOG]\nPATH=/usr/fifo", "[log]\n  path \t=  /usr/fifo  \r\n", "[ LOG ] PATH = /usr/fifo",
                     "LOG.PATH = /usr/fifo", "[LOG]\nPATH = usr/fifo",
                     "[LOG]\nPATH = /usr/file\n[AGENT]\nMODE = 1\n[LOG]\nPath = /usr/fifo",
                     "[AGENT]\nPATH = /usr/file\n[LOG]\nPATH = /usr/fifo\n;PATH = /usr/file"):
            SETTINGS.write_bytes(text.encode())
            self.assertEqual(service("prepare").status, WRONG_SETTINGS, text)
        for text in ("[LOG]\nPATH = /usr/fifo\nPATH = /usr/file", "[LOG]\n; PATH = /usr/fifo\nPATH = /usr/file",
                     "[AGENT]\nPATH = /usr/fifo", "[LOG]\nPATHS = /usr/fifo", "[LOG]\nPATH = ${AGENT.DIRECTORY}/fifo", ""):
            SETTINGS.write_bytes(text.encode())
            self.assertEqual(service("prepare").status, 0, text)

    def test_a_log_begun_while_the_clock_was_ahead_is_made_an_archive(self):
        LOG.write_text(log_of(-72))
        old = pathlib.Path(f"{LOG}.20240101000000000")
        other = HOME / "log/velarix.logger"
        shell(f"touch -d '3 days' {old} {LOG} {other}")
        outcome = service("prepare")
        self.assertEqual(outcome.status, 0)
        moved = re.fullmatch(rf"velarix-ha: {LOG} was begun while the clock was ahead \([A-Z][a-z]+day, [^)]*\): it is now "
                             rf"({LOG}\.20[0-9]{{15}})\n", outcome.text)
        self.assertTrue(moved, outcome.text)
        archive = pathlib.Path(moved[1])
        self.assertEqual(set(LOG.parent.iterdir()), {old, archive, other})
        self.assertIn("an old line", archive.read_text())
        # Their age counts from now on; what is not the log's stays as it is.
        soon = time.time() + 60
        self.assertEqual([path.stat().st_mtime < soon for path in (old, archive, other)], [True, True, False])

    def test_a_maintenance_outlives_a_reboot_until_its_time_has_passed(self):
        record = HOME / "pid/maintenance"
        now = int(time.time())
        for until, status, said in ((now + 3600, WRONG_SETTINGS, "not started: this node is in maintenance until .*: new disk; end it"),
                                    (now - 1, 0, "the maintenance of this node was forgotten"),
                                    ("soon", 0, f"{record} is damaged and removed")):
            record.write_text(f"since={now - 7200}\nuntil={until}\nreason=new disk\n")
            outcome = service("prepare")
            self.assertEqual((outcome.status, record.exists()), (status, status != 0), outcome.text)
            self.assertRegex(outcome.text, rf"\Avelarix-ha: {said}")

    def test_any_other_log_stays_in_its_place(self):
        for text in (log_of(0), log_of(48), log_of(-72)[:40], "a line\n", ""):
            LOG.write_text(text)
            self.assertEqual(service("prepare"), Outcome(0, ""), text)
            self.assertEqual(list(LOG.parent.iterdir()), [LOG])
            self.assertEqual(LOG.read_text(), text)

    def test_at_boot_what_may_come_late_is_waited_for_by_the_clock(self):
        self.tool("systemctl", "echo starting")
        pathlib.Path("/run/systemd/system").mkdir(parents=True)
        script = SERVICE.read_text()
        self.assertIn("interfaces_within=30", script)
        SERVICE.write_text(script.replace("interfaces_within=30", "interfaces_within=4"))
        down = "echo 'warning: the tunnel is down [tunnel-down]'"

        def prepare(check):
            self.tool("velarixctl", f'[ "$2" = --files-only ] || {{ echo >>{HOME}/checks; {check}; }}')
            (HOME / "checks").write_text("")
            return service("prepare").status

        # A wait of five tries a second would last six times as long with these. Keys that have worked get a warning.
        for check, status in (("sleep 1; exit 1", 1), (f"sleep 1; {down}", 0)):
            begin = time.monotonic()
            self.assertEqual(prepare(check), status)
            lasted = time.monotonic() - begin
            self.assertGreaterEqual(lasted, 5, check)  # the last check comes on top
            self.assertLess(lasted, 15, check)
        # It ends with its cause, and no other warning has one.
        for check, checks in ((f"[ -e {HOME}/up ] || {{ {down}; touch {HOME}/up; }}", 3), ("echo '[tunnel-clock]'", 2)):
            self.assertEqual(prepare(check), 0)
            self.assertEqual(len((HOME / "checks").read_text()), checks, check)


class InitScript(ServiceCase):
    def test_a_restart_starts_again_only_where_the_agent_has_ended(self):
        SERVICE.write_text(f"#!/bin/sh\ncase $1 in start) echo started;; *) exit $(cat {HOME}/$1);; esac\n")
        for stop, status, expected in (
                (1, 0, Outcome(1, "velarix-ha: not restarted: the stop failed (status 1), and the agent still runs\n")),
                (1, NOT_RUNNING, Outcome(0, "velarix-ha: the stop failed (status 1), but the agent has ended: "
                                            "it is started again\nstarted\n")),
                (4, NOT_RUNNING, Outcome(4, ""))):  # without root
            (HOME / "stop").write_text(str(stop))
            (HOME / "status").write_text(str(status))
            self.assertEqual(run("sh", INIT_SCRIPT, "restart"), expected)


if __name__ == "__main__":
    main(own=5)

#!/usr/bin/env python3
"""The real agent from its start to its running workers, and when something that it needs is missing.

    agent_test.py VELARIXHA TOOL_THREADS [UNITTEST OPTIONS]
"""

import os
import random
import signal
import socket
import subprocess

from agent import ABORTED, HOME, LOG, PID_FILE, RECORD, RUN_INFO, Agent, AgentCase
from agent import events, is_listened_on, log_lines, main, read, shell, wait_for

FAREWELL = "Good Bye!!! [fork parent]\r\n"
MARKS = HOME / "marks"


def field(status, name):
    return next(line.partition("\t")[2] for line in status.splitlines() if line.startswith(name + ":"))


def group_session_terminal(stat):
    return stat.rpartition(") ")[2].split()[2:5]


class Start(AgentCase):
    def test_is_logged_on_the_main_thread_in_this_order_and_nothing_else(self):
        # It starts as slave whatever its configured role.
        self.configure(AGENT__MODE="1", PROCESS_CHECK__PROCESS_NUM="2", PROCESS_CHECK__PROCESS_PATH1="/opt/app/bin/noServer",
                       PROCESS_CHECK__PROCESS_PATH2="/opt/app/bin/noWorker")
        agent = self.start()
        recorded = RECORD.read_text().split()[3]
        self.assertEqual([event for _, thread, event in log_lines() if thread == 0],
                         ["D CAgent:25 stop virtual ip, process",
                          "I Utill:573 command(true) : ",
                          "I Utill:573 command(true noServer) : ",
                          "I Utill:573 command(true noWorker) : ",
                          "I CAgent:38 Slave CAgent()",
                          f"D CAgent:179 run time wrote:TRACE.LAST_RUN_TIME({recorded})[noName]",
                          "D ProcessChecker:69 process list loaded[noName]"])
        self.assertEqual({process for process, _, _ in log_lines()}, {agent.pid})

    def test_keeps_streams_directory_mask_group_session_and_signals(self):
        agent = self.start(umask=0o027, cwd=HOME / "log")
        self.assertEqual(os.readlink(agent.proc("fd/0")), os.readlink("/proc/self/fd/0"))
        self.assertEqual(os.readlink(agent.proc("fd/1")), f"{agent.console}.out")
        self.assertEqual(os.readlink(agent.proc("fd/2")), f"{agent.console}.err")
        self.assertEqual(os.readlink(agent.proc("cwd")), str(HOME / "log"))
        self.assertEqual(group_session_terminal(read(agent.proc("stat"))), group_session_terminal(read("/proc/self/stat")))
        status = read(agent.proc("status"))
        self.assertEqual(field(status, "Umask"), "0027")
        if not os.environ.get("VELARIX_SANITIZE"):
            # Signals 32 and 33 are the C library's own; a sanitizer catches others.
            self.assertEqual(int(field(status, "SigCgt"), 16) & ~0x180000000, 0)
        other = subprocess.run(["cat", "/proc/self/status"], capture_output=True, text=True).stdout
        self.assertEqual(field(status, "SigIgn"), field(other, "SigIgn"))

    def test_ends_when_it_is_told_to_and_leaves_the_pid_file(self):
        agent = self.start()
        pid = agent.pid
        os.kill(pid, signal.SIGTERM)
        self.assertEqual(agent.end(10), 128 + signal.SIGTERM)
        self.assertEqual(read(PID_FILE), str(pid))
        self.assertNotIn("~CAgent()", read(LOG))


class ClosedStreams(AgentCase):
    """Where log or socket took their place, a program would inherit the listening socket, and
    the agent could not listen again."""

    def test_get_a_placeholder_and_a_takeover_keeps_the_listening_socket(self):
        program = HOME / "programs/vxserver"
        pid_of_program = HOME / "program.pid"
        for closed in range(1, 8):
            with self.subTest(closed=closed):
                self.setUp()
                program.parent.mkdir()
                program.write_text(f"#!/bin/sh\necho $$ >{pid_of_program}; exec sleep 1000\n")
                program.chmod(0o755)
                self.configure(PROCESS_CHECK__PROCESS_PATH1=program)
                redirected = "".join(f" {stream}{'<' if stream == 0 else '>'}&-" for stream in range(3) if closed & 1 << stream)
                self.take_over(closed, ["sh", "-c", f'exec "$0" {redirected}'], pid_of_program)

    def take_over(self, closed, before, pid_of_program):
        given = HOME / "console.first.in"
        given.touch()
        with open(given, encoding="ascii") as stdin:
            agent = Agent(self, before=before, stdin=stdin)
        wait_for("the listening socket", lambda: is_listened_on(7001))
        with socket.create_connection(("127.0.0.1", 7001)) as partner:
            partner.sendall(b"/process/0/2/20240131235959/1/")
        program = int(wait_for("the program", lambda: read(pid_of_program).strip()))
        self.addCleanup(os.kill, program, signal.SIGKILL)
        for stream, opened in enumerate([str(given), f"{agent.console}.out", f"{agent.console}.err"]):
            expected = "/dev/null" if closed & 1 << stream else opened
            self.assertEqual(os.readlink(agent.proc(f"fd/{stream}")), expected)
            # A program in the background gets no standard input from the shell.
            self.assertEqual(os.readlink(f"/proc/{program}/fd/{stream}"), "/dev/null" if stream == 0 else expected)
        wait_for("a listening socket after the takeover",
                 lambda: is_listened_on(7001) and events().count("D CHeartReciver:124 new server") > 1)
        self.assertEqual(agent.threads(), 4)
        self.assertIsNone(agent.end(0), agent.errors())
        agent.kill()
        agent.pid = 0


class Failure(AgentCase):
    def mark_every_command(self, **changes):
        self.configure(AGENT__VIRTUAL_IP_STOP_COMMAND=f"echo stop >> {MARKS}",
                       ADVENCE__PROCESS_KILL_COMMAND=f"echo kill >> {MARKS}", **changes)

    def test_of_a_missing_role_ends_it_before_it_touches_the_node(self):
        self.mark_every_command(AGENT__MODE=None)
        agent = Agent(self)
        self.assertEqual(agent.status, 0)
        pid = agent.pid
        self.assertEqual(agent.end(10), ABORTED)
        self.assertEqual(agent.output(), FAREWELL)
        self.assertEqual(agent.errors(), "**ERROR**(Configuraion:82)Not found: AGENT.MODE\n"
                         "VelarixHA: Configuraion:83: int Configuraion::getInt(const std::string&): Assertion `0' failed.\n")
        self.assertEqual(events(), ["E Configuraion:82 Not found: AGENT.MODE"])
        self.assertEqual(read(PID_FILE), str(pid))
        self.assertFalse(MARKS.exists())
        self.assertEqual(RECORD.read_text(), RUN_INFO)

    def test_of_a_run_script_without_an_inode_ends_it_before_it_touches_the_node(self):
        shell(f"mount -t tmpfs -o nr_inodes=2 none {HOME}/bin/ini")
        self.mark_every_command()
        agent = Agent(self)
        self.assertEqual(agent.end(10), ABORTED)
        shell(f"umount -l {HOME}/bin/ini")
        self.assertIn("VelarixHA: CAgent:219: void CAgent::makeProcessRunShellScript(): Assertion `0' failed.\n", agent.errors())
        self.assertRegex("\n".join(events()), r"\AE CAgent:218 [^\n]*\Z")
        self.assertFalse(MARKS.exists())

    def test_two_agents_never_share_one_address(self):
        agents = [Agent(self, name) for name in ("first", "second")]
        loser, status = wait_for("the end of one of the two", lambda: next(
            ((agent, status) for agent in agents if (status := agent.end(0)) is not None), None), 30)
        self.assertEqual(status, ABORTED)
        self.assertIn("VelarixHA: CHeartReciver:138: virtual void CHeartReciver::run(): Assertion `0' failed.\n", loser.errors())

    def test_of_the_log_is_said_and_the_agent_goes_on(self):
        nowhere = HOME / "noSuchDirectory"
        self.configure(LOG__PATH=nowhere / "velarix.log")
        with socket.create_server(("127.0.0.1", 7002)) as partner:
            partner.settimeout(10)
            agent = self.start()
            self.assertRegex(agent.output(), r"\AGood Bye!!! \[fork parent\]\s+"
                                             r"initLog fail : [^\n]*/noSuchDirectory/velarix.log[^\n]*\n"
                                             r"\*\*DEBUG\*\*\(CAgent:25\)stop virtual ip, process\n")
            with partner.accept()[0] as connection:
                self.assertIn(b"/process/", connection.recv(256))
        self.assertEqual(agent.threads(), 4)
        self.assertFalse(nowhere.exists())

    def test_of_a_log_without_an_inode_is_said_and_the_agent_goes_on(self):
        shell(f"mount -t tmpfs -o nr_inodes=1 none {HOME}/log")
        self.addCleanup(shell, f"umount -l {HOME}/log")
        agent = self.start()
        self.assertRegex(agent.output(), r"\ninitLog fail : [^\n]*velarix.log")
        self.assertFalse(LOG.exists())

    def test_of_a_process_table_that_is_full_is_said_with_status_zero(self):
        # The limit does not bind root. Where there is no other user, in a user namespace of one, it binds this one.
        user = ["setpriv", "--reuid=61234"] if read("/proc/self/uid_map").split()[2] != "1" else []
        # AddressSanitizer's search for leaks needs a process of its own.
        agent = Agent(self, before=[*user, "prlimit", "--nproc=1:1"], env=os.environ | {"ASAN_OPTIONS": "detect_leaks=0"})
        self.assertEqual(agent.status, 0)
        self.assertEqual(agent.output(), "Good Bye!!! [fork fail]\r\n")
        self.assertEqual(agent.errors(), "")
        self.assertEqual(agent.pid, 0)


class HiddenProcesses(AgentCase):
    """A /proc that shows each user only its own processes."""

    def test_are_hidden_from_root_once_it_may_not_trace(self):
        # A user that nobody else is; the group (root's, where none is named) may see all.
        user = random.randint(1 << 20, 1 << 30)
        program = HOME / "bin/ofAnotherUser"
        shell(f"cp /bin/sleep {program}")
        other = subprocess.Popen(["setpriv", f"--reuid={user}", program, "1000"])
        self.addCleanup(other.wait)
        self.addCleanup(other.kill)
        wait_for("the program's name", lambda: read(f"/proc/{other.pid}/comm") == "ofAnotherUser"[:15] + "\n")
        self.configure(PROCESS_CHECK__PROCESS_PATH1=program)
        mount = f"mount -t proc -o hidepid=2,gid={user} proc /proc && exec "
        running = "D ProcessChecker:103 ProcessRuning[noName][MODE:S]: "
        self.start("seeing", before=["unshare", "--mount", "sh", "-c", mount + '"$0"'])
        wait_for("a program that is seen", lambda: running + "1" in events(), 40)
        LOG.unlink()
        self.configure(AGENT__HEART_BEAT_RECEIVE_PORT="7003")
        self.start("blind", before=["unshare", "--mount", "sh", "-c", mount + 'setpriv --bounding-set=-sys_ptrace "$0"'])
        wait_for("a program that is hidden", lambda: running + "0" in events(), 40)
        self.assertNotIn(running + "1", events())


if __name__ == "__main__":
    main()

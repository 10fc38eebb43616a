#!/usr/bin/env python3
"""What a user of the node who is not root can do to the real agent, and what prevents it.

    local_user_test.py VELARIXHA TOOL_THREADS SECURITY_PAGE [UNITTEST OPTIONS]
"""

import errno
import multiprocessing.sharedctypes
import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import time

from agent import ABORTED, AgentCase, events, is_listened_on, main, shell, wait_for

PAGE = pathlib.Path(sys.argv[3]).read_text(encoding="utf-8")
USER = 61234
HEARTBEAT = "/process/1/1/20240131235959/0/"
OF_THE_USER = "/process/1/0/20240131235959/0/"
PRIVILEGED_PORTS = pathlib.Path("/proc/sys/net/ipv4/ip_unprivileged_port_start")
IN_USE, FORBIDDEN, SUCCEEDED, HEARD = range(4)  # what the user's process counts


def speak(port, heartbeat=HEARTBEAT):
    """A heartbeat to whoever listens, the agent or another; whether somebody did."""
    try:
        with socket.create_connection(("127.0.0.1", port)) as connection:
            connection.sendall(heartbeat.encode())
        return True
    except OSError:
        return False


def snatch(port, counts):
    """Tries to listen on the agent's port, thousands of times a second, and then hears whoever connects."""
    while True:
        with socket.socket() as listener:
            listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            try:
                listener.bind(("127.0.0.1", port))
                listener.listen(16)
            except OSError as error:
                counts[FORBIDDEN if error.errno == errno.EACCES else IN_USE] += 1
                time.sleep(0.00005)
                continue
            counts[SUCCEEDED] += 1
            while True:
                with listener.accept()[0] as connection:
                    while received := connection.recv(256):
                        counts[HEARD] += len(received)


def keep_speaking(counts):
    """Speaks as the partner, as often as the port allows."""
    while True:
        if speak(7001, OF_THE_USER):
            counts[HEARD] += 1
        else:
            time.sleep(0.05)


class LocalUser(AgentCase):
    def user(self, deed, *arguments):
        """A process of the user, who has no privilege of root's. What it counts, and its end."""
        counts = multiprocessing.sharedctypes.RawArray("i", 4)
        pid = os.fork()
        if pid == 0:
            try:
                os.setgroups([])
                os.setgid(USER)
                os.setuid(USER)
                deed(*arguments, counts)
            finally:
                os._exit(126)

        def end():
            os.kill(pid, signal.SIGKILL)
            os.waitpid(pid, 0)
        return counts, end

    def listens(self, port=7001):
        wait_for("the agent's socket", lambda: is_listened_on(port))

    def test_takes_an_unprivileged_port_between_two_heartbeats_ends_the_agent_and_hears_the_partner(self):
        agent = self.start()
        self.listens()
        counts, end = self.user(snatch, 7001)
        self.addCleanup(end)
        wait_for("a try while the agent listens", lambda: counts[IN_USE])
        self.assertEqual(counts[SUCCEEDED], 0)
        # After a heartbeat the agent closes its socket and opens it anew. Not each of these moments has to be long enough.
        status = None
        for _ in range(60):
            speak(7001)
            if (status := agent.end(1)) is not None:
                break
        self.assertEqual(status, ABORTED)
        self.assertEqual(counts[SUCCEEDED], 1)
        self.assertIn("VelarixHA: CHeartReciver:138: virtual void CHeartReciver::run(): Assertion `0' failed.\n", agent.errors())
        self.assertIn("E CHeartReciver:137 Net Exception: Address already in use", "\n".join(events()))
        before = counts[HEARD]
        speak(7001)
        wait_for("the partner's heartbeat", lambda: counts[HEARD] > before)

    def test_cannot_take_a_greater_port_where_those_of_root_reach_up_to_it(self):
        self.addCleanup(PRIVILEGED_PORTS.write_text, "1024")
        PRIVILEGED_PORTS.write_text("7002")
        agent = self.start()
        counts, end = self.user(snatch, 7001)
        self.addCleanup(end)
        # The agent closes and opens its socket for each of the partner's heartbeats.
        for count in range(1, 4):
            self.listens()
            speak(7001)
            wait_for("the end of a pass", lambda count=count: events().count("D CHeartReciver:84 delete server") >= count, 30)
        self.listens()
        self.assertIsNone(agent.end(0))
        self.assertEqual(agent.threads(), 4)
        self.assertGreater(counts[FORBIDDEN], 100)
        self.assertEqual((counts[IN_USE], counts[SUCCEEDED]), (0, 0))

    def test_speaks_with_the_nodes_address_until_nftables_refuse_it(self):
        rules = re.search(r"    table inet velarix_users \{.*?\n    \}\n", PAGE, re.DOTALL)[0]
        self.assertIn("7000", rules)
        received = "D CHeartReciver:164 received message: "
        self.start()
        self.listens()
        _, end = self.user(keep_speaking)
        wait_for("the user's heartbeat", lambda: received + OF_THE_USER in events(), 30)
        end()
        subprocess.run(["nft", "-f", "-"], input=rules.replace("7000", "7001"), text=True, check=True)
        self.addCleanup(shell, "nft delete table inet velarix_users")
        counts, end = self.user(keep_speaking)
        self.addCleanup(end)
        table = ["nft", "list", "table", "inet", "velarix_users"]
        refused = re.compile(r"counter packets (\d+)")
        wait_for("ten refusals", lambda: int(refused.search(subprocess.check_output(table, text=True))[1]) >= 10, 30)
        # Root's agents are not meant.
        self.listens()
        speak(7001)
        wait_for("the partner's heartbeat", lambda: received + HEARTBEAT in events(), 30)
        self.assertEqual(counts[HEARD], 0)


if __name__ == "__main__":
    main(own=3)

"""The init script, run on a system without systemd: every word with its exit status."""

import time
import unittest

import node
from node import boot
from machine import wait_for

SCRIPT = "/etc/init.d/velarix-ha"
CONSOLE = "/usr/velarix/log/console.err"


class InitScriptTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.machine = boot(cls.addClassCleanup, "sysv", installed="*.deb")

    def setUp(self):
        self.machine.calm_down()
        self.machine.run(f"rm -f {CONSOLE}")

    def script(self, word, status):
        result = self.machine.run(f"{SCRIPT} {word}", check=False)
        self.assertEqual(result.status, status, f"{word}: {result}")
        return result

    def test_start_status_stop(self):
        self.assertEqual(self.script("status", 3).out, "velarix-ha: does not run\n")
        begin = time.monotonic()
        self.script("start", 0)
        self.assertGreaterEqual(time.monotonic() - begin, 2.0)
        agent = self.machine.agent()
        self.assertEqual(self.machine.read(node.PID_PATH), str(agent))
        self.assertEqual(self.script("status", 0).out, f"velarix-ha: runs (pid {agent})\n")
        program = self.machine.wait_until_serving()
        self.assertIn("the address and the programs of this node stay as they are", self.script("stop", 0).err)
        self.assertEqual(self.machine.serves(), [program])
        self.assertEqual(self.machine.agents(), [])
        self.assertFalse(self.machine.exists(node.PID_PATH))
        self.script("status", 3)
        self.assertIn("does not run", self.script("stop", 0).err)

        self.script("start", 0)
        self.machine.run(f"kill -9 {self.machine.agent()}")
        wait_for("it is dead", lambda: not self.machine.agents(), 10)
        self.assertEqual(self.script("status", 1).out, f"velarix-ha: dead, though {node.PID_PATH} is there\n")
        self.script("start", 0)
        self.script("status", 0)

    def test_a_second_start_is_fine_and_starts_nothing(self):
        # In its first two seconds an agent has no pid file.
        self.machine.start_by_hand()
        for _ in range(2):
            self.assertIn("runs already (pid", self.script("start", 0).err)
            self.machine.agent()
            wait_for("the pid file is there", lambda: self.machine.exists(node.PID_PATH), 10)

    def test_each_kind_of_restart_and_other_words(self):
        for word in ("try-restart", "force-reload"):
            self.script(word, 0)
            self.assertEqual(self.machine.agents(), [])
        self.script("restart", 0)
        for word in ("restart", "try-restart", "force-reload"):
            before = self.machine.agent()
            self.script(word, 0)
            self.assertNotEqual(self.machine.agent(), before)
        self.script("reload", 3)
        self.assertIn("Usage:", self.script("frobnicate", 2).err)
        self.script("", 2)

    def test_without_settings_and_with_wrong_ones_it_is_not_configured(self):
        self.machine.run(f"rm {node.SETTINGS_PATH}")
        self.assertIn("there is no /usr/velarix/bin/ini/config.ini", self.script("start", 6).err)
        self.machine.write(node.SETTINGS_PATH, node.settings(AGENT__VIRTUAL_IP=None), "0600")
        self.assertIn("not started: velarixctl check did not accept", self.script("start", 6).err)
        self.assertEqual(self.machine.agents(), [])

    def test_without_root_nothing_is_started_or_stopped(self):
        self.script("start", 0)
        agent = self.machine.agent()
        for word in ("start", "stop"):
            result = self.machine.run(f"setpriv --reuid 65534 --regid 65534 --clear-groups {SCRIPT} {word}", check=False)
            self.assertEqual(result.status, 4, f"{word}: {result}")
        self.assertEqual(self.machine.agent(), agent)

    def test_a_start_that_fails_says_so_with_the_agents_last_words(self):
        # The check knows nothing of a directory that goes between it and the start.
        self.machine.run("mv /usr/velarix/bin/VelarixHA /root/agent && printf '%s\\n' '#!/bin/sh' "
                         "'rm -r /usr/velarix/pid; exec /root/agent' "
                         ">/usr/velarix/bin/VelarixHA && chmod 755 /usr/velarix/bin/VelarixHA")
        self.addCleanup(self.machine.run, "mkdir -p /usr/velarix/pid; mv /root/agent /usr/velarix/bin/VelarixHA")
        result = self.script("start", 1)
        self.assertIn("the agent did not start; its last words", result.err)
        self.assertIn("cannot write the pid file /usr/velarix/pid/VelarixHA.pid", result.err)

    def test_nothing_of_the_callers_surroundings_reaches_the_agent(self):
        self.machine.run(f"cd /tmp && SECRET=1 {SCRIPT} start")
        agent = self.machine.agent()
        self.assertEqual(self.machine.run(f"readlink /proc/{agent}/cwd").out, "/\n")
        self.assertNotIn("SECRET", self.machine.run(f"cat /proc/{agent}/environ | tr '\\0' '\\n'").out)
        self.assertEqual(self.machine.run(f"ps -o sid= -p {agent}").out.strip(),
                         self.machine.run(f"ps -o pgid= -p {agent}").out.strip())
        self.assertEqual(self.machine.run(f"readlink /proc/{agent}/fd/0 /proc/{agent}/fd/1 /proc/{agent}/fd/2").out,
                         f"/dev/null\n/dev/null\n{CONSOLE}\n")

    def test_it_can_be_enabled_for_the_run_levels_it_names(self):
        self.machine.run("update-rc.d velarix-ha enable")
        self.assertEqual(self.machine.run("ls /etc/rc?.d/*velarix-ha").out.split(),
                         [f"/etc/rc{level}.d/{'S' if level in '2345' else 'K'}01velarix-ha" for level in "0123456"])
        self.machine.run("update-rc.d velarix-ha disable")

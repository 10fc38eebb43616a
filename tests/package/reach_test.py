"""ha-reach on whole machines: what starts it again when it is killed, and what becomes of GATEWAY_IP."""

import unittest

import node
from node import boot
from machine import wait_for

KEEPER_INI = "/usr/velarix/bin/ini/keeper.ini"
INIT = f"{node.INIT} --target 198.51.100.1 --service web={node.PROGRAM_PATH}"
# No target may be an own address.
ROUTER = ("ip netns add router && ip link set wire1 netns router && nsenter --net=/run/netns/router "
          "sh -ec 'ip link set wire1 up; ip addr add 198.51.100.1/24 dev wire1'")


class ReachTest(unittest.TestCase):
    def start(self, init, command):
        self.machine = boot(self.addCleanup, f"reach-{init}", init, "*.deb")
        self.machine.run(f"rm {node.SETTINGS_PATH} && {ROUTER} && {INIT} && {command}")
        self.machine.wait_until_serving()

    def processes(self):
        """The pids of guard and worker; empty while there are not both."""
        found = self.machine.run("pgrep -x ha-reach && pgrep -x keeper -P $(pgrep -x ha-reach) && sed -n s/^pid=//p /run/velarix-ha/ha-reach.state",
                                 check=False).out.split()
        return found[:2] if len(found) == 3 and found[1] == found[2] else []

    def has_gateway(self):
        return "192.0.0.8/32" in self.machine.run("ip -4 -o addr show dev lo").out

    def kill(self, pids):
        """All at once: stopped, neither sees the other one's end."""
        self.machine.run(f"kill -STOP {' '.join(pids)}; kill -KILL {' '.join(pids)}", check=False)

    def kill_in_all_ways(self, init, command):
        self.start(init, command)
        agent = self.machine.agent()
        for killed in (slice(0, 1), slice(1, 2), slice(0, 2)):
            with self.subTest(killed):
                before = wait_for("guard and worker", self.processes, 20)
                self.kill(before[killed])
                wait_for("others hold the address",
                         lambda: self.has_gateway() and self.processes() and not set(self.processes()) & set(before), 20)
        self.assertEqual(self.machine.agent(), agent)
        self.machine.wait_until_serving()

        # Settings that became wrong: nobody starts it again.
        settings = self.machine.read(KEEPER_INI)
        self.machine.write(KEEPER_INI, settings.replace("needed = ", "need = "), "0600")
        self.kill(wait_for("guard and worker", self.processes, 20))
        wait_for("the address goes", lambda: not self.has_gateway(), 60)
        self.assertEqual(self.processes(), [])

    def test_by_its_unit(self):
        self.kill_in_all_ways("systemd", "systemctl start velarix-ha")

    def test_by_the_service_script(self):
        self.kill_in_all_ways("none", "/etc/init.d/velarix-ha start")

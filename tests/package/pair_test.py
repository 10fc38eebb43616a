"""Two servers with the package, joined by two cables: what an operator does to a
running pair."""

import subprocess
import time
import unittest

import node
from node import boot
from machine import wait_for

# The gateway is on each node itself: it answers as long as the node lives.
INTERFACES = """#!/bin/sh
set -e
ip link set lo up
ip addr replace 192.0.2.{number}/24 dev eth0
ip addr replace 198.51.100.{number}/24 dev eth1
ip link show gate >/dev/null 2>&1 || ip link add gate type veth peer name gate1
ip addr replace 203.0.113.1/24 dev gate
for interface in eth0 eth1 gate; do ip link set $interface up; done
"""


def settings(number, partner):
    return node.settings(AGENT__MODE=str(number - 10), AGENT__THIS_SERVER_IP=f"198.51.100.{number}",
                         AGENT__PARTNER_IP=f"198.51.100.{partner}", AGENT__GATEWAY_IP="203.0.113.1")


INIT = ("velarixctl init --force --output /root/pair --address-a 198.51.100.11 --address-b 198.51.100.12 --gateway 203.0.113.1 "
        f"--virtual-ip {node.ADDRESS}/24 --waiting-time 0 --service demo={node.PROGRAM_PATH}")


class TwoNodes(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.a, cls.b = (boot(cls.addClassCleanup, name, "systemd") for name in "ab")
        for machine in (cls.a, cls.b):
            machine.install(node.package("*.deb"))
            machine.write(node.PROGRAM_PATH, node.PROGRAM_TEXT, "0755")
        cls.join(cls.a, cls.b)
        cls.configure(cls.a, 11, 12)
        cls.configure(cls.b, 12, 11)

    @staticmethod
    def join(a, b):
        """Two cables; each end is an interface of one machine."""
        for interface in ("eth0", "eth1"):
            for command in (["ip", "link", "add", interface, "type", "veth", "peer", "name", "far"],
                            ["ip", "link", "set", "far", "netns", str(b.pid)]):
                subprocess.run(["nsenter", "--target", str(a.pid), "--net", *command], check=True)
            b.run(f"ip link set far name {interface}")

    @staticmethod
    def configure(machine, number, partner):
        machine.write("/opt/demo/interfaces", INTERFACES.format(number=number), "0755")
        machine.run("/opt/demo/interfaces")
        machine.write(node.SETTINGS_PATH, settings(number, partner), "0600")

    def setUp(self):
        for machine in (self.a, self.b):
            machine.run("systemctl stop velarix-ha", check=False)
            machine.on_stop("leave")
            machine.run(f"pkill -9 -x {node.PROGRAM}; {node.DROP}; rm -f {node.LOG_PATH}", check=False)
        for machine in (self.a, self.b):
            machine.run("systemctl reset-failed velarix-ha; systemctl start velarix-ha")
        wait_for("the configured master serves", self.a.serves, 40)
        time.sleep(2)
        self.assertEqual(self.b.serves(), [])


class PairTest(TwoNodes):
    def assert_asked(self, machine):
        """It took the service over because it was asked to, not because it missed its partner."""
        self.assertIn("special ask: slave -> master", machine.read(node.LOG_PATH))

    def test_a_stop_with_handover_moves_the_service_first(self):
        self.a.on_stop("handover")
        self.a.run("systemctl stop velarix-ha", limit=150)
        self.assertNotIn("nothing was handed over", self.a.journal())
        self.assertEqual(self.a.agents(), [])
        self.assertEqual(self.a.programs(), [])
        self.assertFalse(self.a.holds_address())
        wait_for("the partner serves", self.b.serves, 20)
        self.assert_asked(self.b)
        self.assertEqual(self.a.run("systemctl is-active velarix-ha", check=False).out, "inactive\n")

    def test_a_shutdown_with_handover_moves_the_service_first(self):
        self.a.on_stop("handover")
        self.a.run("systemctl poweroff")
        wait_for("the partner serves", self.b.serves, 60)
        self.a.wait_for_end(60)
        self.a.power_on()
        self.join(self.a, self.b)
        self.configure(self.a, 11, 12)
        self.b.run("/opt/demo/interfaces")
        self.assert_asked(self.b)

    def test_a_stop_with_release_leaves_nobody_serving(self):
        self.a.on_stop("release")
        self.a.run("systemctl stop velarix-ha")
        self.assertEqual(self.a.serves(), [])
        # As long as its host answers pings.
        time.sleep(15)
        self.assertEqual(self.b.serves(), [])

    def test_a_stop_that_leaves_the_service_keeps_the_partner_waiting(self):
        program = self.a.serves()
        self.a.run("systemctl stop velarix-ha")
        time.sleep(15)
        self.assertEqual(self.a.serves(), program)
        self.assertEqual(self.b.serves(), [])

    def test_the_standby_can_be_restarted_at_any_time(self):
        program = self.a.serves()
        self.b.on_stop("handover")
        self.b.run("systemctl restart velarix-ha")
        time.sleep(5)
        self.assertEqual(self.a.serves(), program)
        self.assertEqual(self.b.serves(), [])


class ToTheKeeperTest(TwoNodes):
    """A running pair leaves its plain settings, one node after the other."""

    def change_over(self, machine, this):
        machine.run("systemctl stop velarix-ha")
        machine.run(f"{INIT} --this {this}")
        machine.run("velarixctl check && systemctl start velarix-ha")

    def switch_over(self, machine, partner):
        wait_for("a failover would work", lambda: machine.run("velarixctl switchover --dry-run", check=False).status == 0, 30)
        machine.run("velarixctl switchover", limit=60)
        wait_for("the partner serves", partner.serves, 20)
        self.assertEqual(machine.serves(), [])

    def test_the_service_moves_once(self):
        program = self.a.serves()
        self.change_over(self.b, "b")
        self.assertEqual((self.a.serves(), self.b.serves()), (program, []))
        self.switch_over(self.a, self.b)
        program = self.b.serves()
        self.assertRegex(self.b.run("velarixctl status").out, " ha-demo running, ")
        self.change_over(self.a, "a")
        wait_for("the standby is ready", lambda: self.a.run("velarixctl nagios", check=False).status == 0, 30)
        self.assertEqual((self.a.serves(), self.b.serves()), ([], program))
        for name in ("config.ini", "keeper.ini"):
            self.a.write("/root/b/" + name, self.b.read("/usr/velarix/bin/ini/" + name))
        self.a.run("velarixctl check --partner /root/b/config.ini")
        self.switch_over(self.b, self.a)

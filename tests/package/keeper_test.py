"""A node that leaves address and services to the keeper, from init to purge."""

import unittest

import node
from node import boot
from machine import wait_for

WEB = "/opt/demo/bin/demoweb"
UNIT = """[Service]
ExecStart=/bin/sleep infinity
"""
KEEPER_INI = "/usr/velarix/bin/ini/keeper.ini"
INIT = f"{node.INIT} --gateway 198.51.100.1 --service web='{WEB} --port 80' --unit db=demo-db.service"


class KeeperTest(unittest.TestCase):
    def setUp(self):
        self.machine = boot(self.addCleanup, "keeper", "systemd", "old/*.deb")
        # The wire's other end is in this machine, too: it must not answer for addresses of eth0.
        self.machine.run(f"sysctl -q -w net.ipv4.conf.all.arp_ignore=1; rm {node.SETTINGS_PATH}")
        self.machine.write(WEB, "#!/usr/bin/perl\nsleep;\n", "0755")
        self.machine.write("/etc/systemd/system/demo-db.service", UNIT)
        self.machine.run("systemctl daemon-reload")

    def pid_of(self, name):
        return self.machine.run(f"pidof -x {name}", check=False).out.strip()

    def has_marker(self):
        return f"::{node.ADDRESS}/128" in self.machine.run("ip -6 -o addr show dev lo").out

    def wait_until_serving(self):
        wait_for("address, command and unit are up", lambda: self.machine.holds_address() and self.pid_of(WEB)
                 and self.machine.property("ActiveState", "demo-db") == "active", 60)

    def test_a_node_from_init_to_purge(self):
        self.machine.run(INIT)
        self.assertIn("unchanged: " + KEEPER_INI, self.machine.run(INIT).out)
        self.machine.run("systemctl start velarix-ha")
        self.assertTrue(self.has_marker())
        self.wait_until_serving()
        status = self.machine.run("velarixctl status").out
        self.assertRegex(status, "keeper +holds the address, for ")
        self.assertRegex(status, " ha-web running, ")

        # What dies is started again here.
        agent, web = self.machine.agent(), self.pid_of(WEB)
        self.machine.run(f"kill -KILL {web}; systemctl kill --signal=KILL demo-db")
        wait_for("the command runs again", lambda: self.pid_of(WEB) not in ("", web), 10)
        wait_for("the unit runs again", lambda: self.machine.property("ActiveState", "demo-db") == "active", 10)
        self.machine.run(f"ip addr del {node.ADDRESS}/32 dev eth0")
        wait_for("the address is back", self.machine.holds_address, 5)
        self.assertRegex(self.machine.run("velarixctl events").out, "keeper +ha-web died: ")
        self.assertEqual(self.machine.agent(), agent)

        # An upgrade lets everything run.
        web = self.pid_of(WEB)
        self.machine.install(node.package("*.deb"))
        self.assertEqual((self.machine.agent(), self.pid_of(WEB)), (agent, web))
        self.assertTrue(self.machine.holds_address())

        self.machine.on_stop("release")
        self.machine.run("systemctl stop velarix-ha")
        state = self.machine.property("ActiveState", "demo-db")
        self.assertEqual((self.machine.holds_address(), self.pid_of(WEB), state), (False, "", "inactive"))

        # What the keeper refuses keeps the agent from starting; a missing link is made.
        settings = self.machine.read(KEEPER_INI)
        self.machine.write(KEEPER_INI, settings.replace("on_conflict = ", "on_conflicts = "), "0600")
        self.machine.run("rm /usr/velarix/run/ha-db")
        self.assertNotEqual(self.machine.run("systemctl start velarix-ha", check=False).status, 0)
        self.assertIn(f"{KEEPER_INI}:", self.machine.journal())
        self.machine.write(KEEPER_INI, settings, "0600")
        self.machine.run("systemctl start velarix-ha")
        self.wait_until_serving()

        self.machine.run("apt-get -y purge velarix-ha")
        self.assertEqual((self.machine.holds_address(), self.pid_of(WEB), self.has_marker()), (False, "", False))
        left = self.machine.run("find / -xdev -iname '*velarix*' ! -path '/proc/*'; ls -d /run/velarix-ha", check=False)
        self.assertEqual(left.out, "")

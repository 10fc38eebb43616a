"""The Ansible role, run on both nodes of a pair."""

import pathlib
import re
import unittest

import images
import node
from node import boot
from machine import wait_for

ROLE = pathlib.Path(images.ROOT, "packaging", "ansible", "velarix_ha")
WEB = "/opt/demo/bin/demoweb"
PLAYBOOK = f"""
- hosts: localhost
  connection: local
  gather_facts: false
  roles: [velarix_ha]
  vars:
    velarix_ha_package: /root/package.deb
    velarix_ha_address_a: 198.51.100.11
    velarix_ha_address_b: 198.51.100.12
    velarix_ha_gateway: 198.51.100.1
    velarix_ha_virtual_ip: {node.ADDRESS}/24
    velarix_ha_services:
      - name: web
        command: '{WEB} --title "two words"'
        user: nobody
"""


class AnsibleTest(unittest.TestCase):
    def machine(self, name):
        made = boot(self.addCleanup, name, "systemd")
        # Compiled in advance, its modules take longer than all that is played here.
        made.run("apt-get install -y --no-install-recommends python3-minimal && "
                 "dpkg-divert --quiet --rename /usr/bin/py3compile && ln -s /bin/true /usr/bin/py3compile && "
                 "apt-get install -y --no-install-recommends ansible-core python3-apt iproute2 procps")
        made.put(node.package("*.deb"), "/root/package.deb")
        made.write("/opt/demo/interfaces", node.INTERFACES.replace(".11/", ".12/") if name == "b" else node.INTERFACES, "0755")
        made.run("sysctl -q -w net.ipv4.conf.all.arp_ignore=1; /opt/demo/interfaces")
        made.write(WEB, "#!/usr/bin/perl\nsleep;\n", "0755")
        for source in filter(pathlib.Path.is_file, ROLE.rglob("*")):
            made.write(f"/root/roles/velarix_ha/{source.relative_to(ROLE)}", source.read_text())
        made.write("/root/play.yml", PLAYBOOK)
        return made

    def play(self, machine, *variables):
        """What changed, by the play's own count."""
        extra = " ".join(f"-e {variable}" for variable in variables)
        done = machine.run(f"cd /root && LC_ALL=C.UTF-8 ansible-playbook -i localhost, play.yml {extra}")
        return int(re.search(r"changed=(\d+)", done.out)[1])

    def test_both_nodes_are_set_up_and_a_second_run_changes_nothing(self):
        for name, mode in (("a", "1"), ("b", "2")):
            machine = self.machine(name)
            node_is = "velarix_ha_node=" + name
            self.assertEqual(self.play(machine, node_is), 3, "package, settings, service")
            agent = machine.agent()
            self.assertIn(f"\nMODE = {mode}\n", machine.read(node.SETTINGS_PATH))
            self.assertIn(f'command = {WEB} --title "two words"', machine.read("/usr/velarix/bin/ini/keeper.ini"))
            self.assertEqual(machine.run("systemctl is-enabled velarix-ha").out, "enabled\n")
            self.assertEqual(self.play(machine, node_is), 0)

        # New settings wait for the administrator, who may also leave the restart to the role,
        # also a later run of it.
        self.assertEqual(self.play(machine, node_is, "velarix_ha_gateway=198.51.100.2"), 1)
        self.assertEqual(machine.agent(), agent)
        self.assertIn("settings were changed", machine.run("velarixctl status", check=False).out)
        self.assertEqual(self.play(machine, node_is, "velarix_ha_gateway=198.51.100.2", "velarix_ha_restart=true"), 2)
        wait_for("a new agent", lambda: machine.agent() != agent, 20)

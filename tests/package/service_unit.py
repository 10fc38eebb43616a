"""A test on a machine where systemd is process 1 and the package is installed."""

import unittest

from arguments import Place, boot
from machine import wait_for


class OnAMachine(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.machine = boot(cls.addClassCleanup, "service", Place.base, "systemd", Place.deb)

    def setUp(self):
        self.machine.run("systemctl stop velarix-ha", check=False)
        self.machine.calm_down()
        self.machine.run("rm -rf /run/systemd/system/velarix-ha.service.d; systemctl daemon-reload; "
                         "systemctl reset-failed velarix-ha", check=False)
        self.since = self.machine.run("date +%s.%N").out.strip()

    def start(self, check=True):
        return self.machine.run("systemctl start velarix-ha", check=check)

    def property(self, name):
        return self.machine.run(f"systemctl show --value --property={name} velarix-ha").out.strip()

    def journal(self):
        return self.machine.run(f"journalctl --no-pager -o cat --since @{self.since} -u velarix-ha").out

    def wait_for_state(self, state):
        wait_for(f"the unit is {state}", lambda: self.property("ActiveState") == state, 30)

    def change_unit(self, lines):
        self.machine.write("/run/systemd/system/velarix-ha.service.d/test.conf", lines)
        self.machine.run("systemctl daemon-reload")

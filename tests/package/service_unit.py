"""A test on a machine where systemd is process 1 and the package is installed."""

import unittest

from machine import wait_for
from node import boot


class OnAMachine(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.machine = boot(cls.addClassCleanup, "service", "systemd", "*.deb")
        cls.property, cls.journal = cls.machine.property, cls.machine.journal

    def setUp(self):
        self.machine.run("systemctl stop velarix-ha", check=False)
        self.machine.run("rm -rf /run/systemd/system/velarix-ha.service.d; systemctl daemon-reload; "
                         "systemctl reset-failed velarix-ha", check=False)
        self.machine.calm_down()

    def start(self, check=True):
        return self.machine.run("systemctl start velarix-ha", check=check)

    def wait_for_state(self, state):
        wait_for(f"the unit is {state}", lambda: self.property("ActiveState") == state, 30)

    def change_unit(self, lines):
        self.machine.write("/run/systemd/system/velarix-ha.service.d/test.conf", lines)
        self.machine.run("systemctl daemon-reload")

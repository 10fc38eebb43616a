"""The RPM: what is in it, and its installation, upgrade and removal in a tree of its own."""

import unittest

import images
import node
from node import boot
from build_packages import MAINTAINER
from installed_test import OWN_SETTINGS, RUN_INFO, TREE
from machine import mounted

RPM = "rpm --root /tree --dbpath /var/lib/rpm"


class RpmTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        base = mounted(node.Place.directory, images.paths(node.Place.suite, node.Place.images)["base"])
        cls.machine = boot(cls.addClassCleanup, "rpm", "systemd", image="build", shared=[(base, "/base")])
        for name, pattern in (("old", "old/*.rpm"), ("new", "*.rpm")):
            cls.machine.put(node.package(pattern), f"/root/{name}.rpm")

    def setUp(self):
        self.machine.run("mkdir -p /tree /over && mount -t tmpfs tmpfs /over && mkdir /over/upper /over/work && "
                         "mount -t overlay overlay -o lowerdir=/base,upperdir=/over/upper,workdir=/over/work /tree")
        self.addCleanup(self.machine.run, "umount /tree /over")
        # Nothing in this tree is known to rpm, so it cannot count on other packages.
        self.machine.run(f"{RPM} --initdb && {RPM} --nodeps -i /root/old.rpm")

    def test_it_is_what_it_says(self):
        def tell(query):
            return self.machine.run(f"rpm -qp {query} /root/new.rpm").out

        self.assertEqual(tell("--qf '%{name} %{version} %{license} %{vendor} %{arch} %{packager}'"),
                         "velarix-ha 1.0.0 MIT Velarix HA x86_64 " + MAINTAINER)
        self.machine.run("rpm -K --nosignature /root/new.rpm")
        # It owns no directory of the system.
        for line in tell("--qf '[%{filemodes:perms} %{filenames}\\n]'").splitlines():
            if line.startswith("d"):
                self.assertRegex(line, r" /usr/velarix|/velarix-ha(/docs(/figures)?|/firewall|/ansible(/.*)?|"
                                       r"/notify([.]d)?|[.]service[.]d)?$")
        self.assertEqual(tell("--configfiles").split(),
                         [node.DEFAULTS_PATH, "/etc/init.d/velarix-ha", "/etc/logrotate.d/velarix-ha",
                          "/etc/velarix-ha/notify.conf"])
        for need in ("libPocoNet.so.", "(net-tools or net-tools-deprecated)", "(iproute or iproute2)", "iputils", "psmisc",
                     "(procps-ng or procps)"):
            self.assertIn(need, tell("--requires"))

    def test_every_file_has_its_place_owner_and_mode(self):
        tree = self.machine.run("chroot /tree find /usr/velarix | sort | "
                                "xargs -d '\\n' chroot /tree stat -c '%A %U:%G %n'").out
        self.assertEqual(tree, TREE)
        self.assertEqual(self.machine.read("/tree" + node.RUN_INFO_PATH), RUN_INFO)
        self.assertEqual(self.machine.run(f"{RPM} -V --nodeps velarix-ha").text, "")

    def test_upgrade_and_removal_keep_settings_record_and_choices(self):
        kept = {node.SETTINGS_PATH: OWN_SETTINGS, node.DEFAULTS_PATH: "VELARIX_ON_STOP=release\n",
                node.RUN_INFO_PATH: RUN_INFO.replace("LAST_RUN_TIME = \n", "LAST_RUN_TIME = 20261121080910\n", 1)}
        for path, text in kept.items():
            self.machine.write("/tree" + path, text)
        self.machine.run(f"{RPM} --nodeps -U /root/new.rpm")
        self.assertEqual(self.machine.run(f"{RPM} -q --qf '%{{version}}' velarix-ha").out, "1.0.0")
        self.assertEqual({path: self.machine.read("/tree" + path) for path in kept}, kept)
        self.machine.run(f"{RPM} --nodeps -e velarix-ha")
        left = self.machine.run(f"chroot /tree find /usr/velarix /usr/libexec/velarix-ha {node.DEFAULTS_PATH} -type f",
                                check=False).out.split()
        self.assertEqual(sorted(left), [node.SETTINGS_PATH, node.RUN_INFO_PATH])

    def test_an_upgrade_leaves_the_running_agent_and_a_removal_ends_it(self):
        # Not in the tree: the agent finds its libraries in the machine itself.
        self.machine.run("rpm --nodeps -i /root/old.rpm")
        self.machine.equip()
        self.machine.run("systemctl start velarix-ha")
        agent = self.machine.agent()
        self.machine.run("rpm --nodeps -U /root/new.rpm")
        self.assertEqual(self.machine.agent(), agent)
        self.assertEqual(self.machine.run("systemctl is-active velarix-ha").out, "active\n")
        self.machine.run("rpm --nodeps -e velarix-ha")
        self.assertEqual(self.machine.agents(), [])
        self.assertEqual(self.machine.property("LoadState"), "not-found")
        self.assertTrue(self.machine.exists(node.SETTINGS_PATH))

#!/usr/bin/env python3
"""Interfaces of other names, in a network of the test's own: what check says, what init writes, and what
udev's own reader makes of it (udevadm; no udevd has to run).

    interfaces_test.py VELARIXCTL SETTINGS [UNITTEST OPTIONS]
"""

import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

PROGRAM, SETTINGS = sys.argv[1:3]
MAKE = """set -eu
mount -t sysfs sysfs /sys
ip link add ens192 address 02:00:00:00:01:92 type veth peer name peer0
ip link add ens224 address 02:00:00:00:02:24 type veth peer name peer1
ip addr add 198.51.100.1/24 dev ens192
ip addr add 192.0.2.1/24 dev ens224
ip link set ens192 up
ip link set peer0 up
ip link set ens224 up
ip link set peer1 up
ip link property add dev ens192 altname eth0
"""


class Interfaces(unittest.TestCase):
    def run_there(self, script, status=0):
        done = subprocess.run(["unshare", "--net", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc", "sh", "-c", MAKE + script], text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual(done.returncode, status, done.stdout)
        return done.stdout

    def test_of_other_names_are_found_with_their_networks(self):
        found = self.run_there(f"{PROGRAM} check --json {SETTINGS}", 78)
        self.assertEqual(found.count('"missing-interface"'), 1, found)
        self.assertIn("ens192 (198.51.100.1/24, service network, eth0 by an alternative name only), "
                      "ens224 (192.0.2.1/24, communication network)", found)
        self.assertIn("init --service-interface ens192 --communication-interface ens224", found)
        for consequence in ("not-on-communication-interface", "interface-without-carrier"):
            self.assertNotIn(consequence, found)

    def test_are_no_finding_of_the_keeper_too(self):
        with tempfile.TemporaryDirectory() as directory:
            shutil.copy(SETTINGS, f"{directory}/config.ini")
            shutil.copy(SETTINGS.replace(".ini", "-keeper.ini"), f"{directory}/keeper.ini")
            found = self.run_there(f"""
                ip link property del dev ens192 altname eth0
                {PROGRAM} check {directory}/config.ini""", 78)
        self.assertEqual(found.count("there is no interface eth0"), 1, found)

    def test_get_their_names_from_udev(self):
        with tempfile.TemporaryDirectory() as directory:
            links = pathlib.Path(directory, "etc/systemd/network")
            links.mkdir(parents=True)
            shown = self.run_there(f"{PROGRAM} --root {directory} init --dry-run --service-interface ens192 --communication-interface ens224")
            self.assertIn("would be written: ", shown)
            self.assertIn("Name=eth0", shown)
            self.assertEqual(list(links.iterdir()), [])
            # The bridge has its port's address, as a VLAN has. No interface here has a permanent one.
            read = self.run_there(f"""
                {PROGRAM} --root {directory} init --service-interface ens192 --communication-interface ens224
                ip link add bridge5 address 02:00:00:00:01:92 type bridge
                mount --bind {links} /etc/systemd/network
                read_links() {{
                    for interface in ens192 ens224 bridge5; do
                        udevadm test-builtin net_setup_link /sys/class/net/$interface 2>&1
                    done
                }}
                read_links
                sed -i s/^MACAddress/PermanentMACAddress/ {links}/*.link
                read_links""")
            names = [line.partition("=")[2] for line in read.splitlines() if line.startswith("ID_NET_NAME=")]
            self.assertEqual(names, ["eth0", "eth1", "bridge5", "ens192", "ens224", "bridge5"], read)
            self.assertNotIn("nknown", read)

    # /run is empty there: udevd has no other one's sockets, and takes nothing for systemd's.
    def test_get_their_names_whatever_the_kernel_called_them_first(self):
        for first in ("eth1 eth0 eth2", "eth1 eth2 eth0", "eth2 eth1 eth0", "eth0 eth1 eth2"):
            with self.subTest(first=first), tempfile.TemporaryDirectory() as directory:
                service, communication, third = first.split()
                links = f"{directory}/etc/systemd/network"
                self.run_there(f"""
                    {PROGRAM} --root {directory} init --service-interface ens192 --communication-interface ens224
                    mount -t tmpfs tmpfs /run
                    mkdir -p /run/udev/rules.d
                    cp /usr/lib/udev/rules.d/80-net-setup-link.rules /run/udev/rules.d
                    mount -t tmpfs tmpfs /usr/lib/udev/rules.d
                    printf '[Match]\\nMACAddress=02:00:00:00:02:56\\n[Link]\\nName=ens256\\n' >{links}/10-third.link
                    mount --bind {links} /etc/systemd/network
                    ip link property del dev ens192 altname eth0
                    ip link set ens192 down
                    ip link set ens224 down
                    ip link set ens192 name {service}
                    ip link set ens224 name {communication}
                    ip link add {third} address 02:00:00:00:02:56 type veth peer name peer2
                    /lib/systemd/systemd-udevd >/dev/null 2>&1 &
                    until udevadm control --ping 2>/dev/null; do :; done
                    udevadm trigger --action=add
                    sed -n 's/^ExecStart=-//p' {directory}/etc/systemd/system/*/*.conf | sed 's/[$][$]/$/g' | sh
                    udevadm settle --timeout=60
                    grep -q 01:92 /sys/class/net/eth0/address
                    grep -q 02:24 /sys/class/net/eth1/address
                    grep -q 02:56 /sys/class/net/ens256/address""")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[3:])

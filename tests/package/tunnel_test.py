"""Heartbeats in WireGuard on a machine with systemd: the units, from the first key to another one."""

import unittest

import node
from node import boot
from machine import wait_for

FILES = "/usr/velarix/bin/ini"
TUNNEL = "/usr/libexec/velarix-ha/tunnel"
INIT = f"{node.INIT} --wireguard --gateway 198.51.100.1 --service web={node.PROGRAM_PATH}"

# The partner has the other end of eth1 in a network of its own. What its side of the tunnel
# gets as heartbeats goes to a file.
PARTNER = """
set -e
ip netns add partner
ip link set wire1 netns partner
nsenter --net=/run/netns/partner sh -ec '
	ip link set lo up
	ip link set wire1 up
	ip addr add 198.51.100.12/24 dev wire1
	ip addr add 198.51.100.1/24 dev wire1
	ip addr add 169.254.127.2/32 dev lo
	wireguard-go wg-partner >/dev/null 2>&1
	ip link set wg-partner up
	ip route add 169.254.127.1 dev wg-partner src 169.254.127.2
	setsid perl /root/hear.pl </dev/null >/root/heard 2>/dev/null &
'
"""
KEYS = f"""#!/bin/sh
nsenter --net=/run/netns/partner wg set wg-partner listen-port 51871 private-key /root/key \\
	peer $(cat {FILES}/tunnel.pub) allowed-ips 169.254.127.1/32 endpoint 198.51.100.11:51871
"""
HEAR = """
use IO::Socket::INET;
$| = 1;
my $s = IO::Socket::INET->new(LocalAddr => '169.254.127.2', LocalPort => 7000, Listen => 5, ReuseAddr => 1) or die;
while (my $c = $s->accept()) { while (<$c>) { } print $c->peerhost . "\\n"; close $c }
"""

# At boot the partner, whose host answers, has no keys yet when the agent is about to start.
LATE = """
/opt/demo/interfaces
/root/partner
until [ "$(systemctl is-active velarix-ha)" = activating ]; do sleep 0.2; done
sleep 10
/root/keys
"""
LATE_UNIT = """[Service]
Type=oneshot
RemainAfterExit=yes
ExecStart=/bin/sh -ec '. /root/late'
[Install]
WantedBy=multi-user.target
"""


class TunnelTest(unittest.TestCase):
    def setUp(self):
        self.machine = boot(self.addCleanup, self._testMethodName, "systemd", "*.deb")
        self.machine.run("apt-get install -y --no-install-recommends wireguard-tools wireguard-go nftables")
        self.machine.run(f"rm {node.SETTINGS_PATH}")
        self.machine.write("/root/hear.pl", HEAR)
        self.machine.write("/root/partner", f"#!/bin/sh{PARTNER}", "0755")
        self.machine.write("/root/keys", KEYS, "0755")
        self.machine.run("/root/partner")

    def partner_gets_a_key(self):
        """@return its public key; it knows the node's present one"""
        self.machine.run("wg genkey >/root/key; /root/keys")
        return self.machine.run("wg pubkey </root/key").out.strip()

    def heard(self):
        return self.machine.read("/root/heard").split()

    def wait_for_heartbeats(self):
        before = len(self.heard())
        wait_for("a heartbeat in the tunnel", lambda: len(self.heard()) > before, 30)

    def test_the_units_from_the_first_key_to_another_one(self):
        # The agent does not start before the two nodes have each other's key.
        self.machine.run(INIT)
        self.assertNotEqual(self.machine.run("systemctl start velarix-ha", check=False).status, 0)
        self.assertIn("partner.pub is missing: copy tunnel.pub of the other node there", self.machine.journal("velarix-tunnel"))
        # The refresh starts the tunnel again and again: whoever copies the key meanwhile gets all of it.
        self.machine.run(f"(for i in $(seq 20); do echo x >{FILES}/x; mv {FILES}/x {FILES}/tunnel.pub; {TUNNEL} start; done; "
                         f"touch /root/tried) 2>/dev/null & until [ -e /root/tried ]; do [ -s {FILES}/tunnel.pub ] || exit 1; done")
        self.machine.run(f"{INIT} --partner-key {self.partner_gets_a_key()}")
        self.machine.run("systemctl reset-failed; systemctl restart velarix-ha-firewall velarix-tunnel; systemctl start velarix-ha")
        self.assertIn("echo-reply", self.machine.run("nft list chain inet velarix probes").out)
        self.wait_for_heartbeats()
        self.assertEqual(set(self.heard()), {"169.254.127.1"})
        self.assertIn("tunnel       last handshake", self.machine.run("velarixctl status").out)

        # A stop leaves the tunnel, and what dies comes back.
        self.machine.run("systemctl stop velarix-tunnel")
        self.wait_for_heartbeats()
        self.machine.run("systemctl start velarix-tunnel; pkill -f '^wireguard-go wg-ha'")
        wait_for("the tunnel is back", lambda: self.machine.run("ip link show wg-ha", check=False).status == 0, 20)
        self.wait_for_heartbeats()

        # Another key at the partner, with the agent running.
        key = self.partner_gets_a_key()
        self.machine.run(f"echo {key} >{FILES}/partner.pub; systemctl reload velarix-tunnel")
        self.wait_for_heartbeats()
        self.assertEqual(self.machine.run("wg show wg-ha peers").out.strip(), key)
        self.assertEqual(self.machine.run("systemctl is-active velarix-tunnel-refresh velarix-ha").out, "active\nactive\n")

    def test_at_boot_the_agent_waits_for_the_tunnel(self):
        self.machine.run(INIT)
        self.machine.run("systemctl start velarix-tunnel", check=False)
        self.machine.run(f"{INIT} --partner-key {self.partner_gets_a_key()}; touch -d '1 minute ago' {FILES}/tunnel.key; "
                         "systemctl restart velarix-ha-firewall velarix-tunnel")
        wait_for("the keys have worked", lambda: self.machine.exists("/var/lib/velarix-ha/tunnel-proven"), 30)
        self.machine.write("/root/late", LATE)
        self.machine.write("/etc/systemd/system/late.service", LATE_UNIT)
        self.machine.run("systemctl enable late velarix-ha; sync")
        self.machine.power_off()
        self.machine.power_on()
        self.assertEqual(self.machine.run("systemctl is-active late velarix-ha").out, "active\nactive\n", self.machine.journal())
        started = int(self.machine.run(f"date -d \"$(ps -o lstart= -p {self.machine.agent()})\" +%s").out)
        handshake = wait_for("a handshake", lambda: int(self.machine.run("wg show wg-ha latest-handshakes").out.split()[1]), 30)
        self.assertGreaterEqual(started, handshake - 1)  # whole seconds

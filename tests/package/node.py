"""A machine with the package installed and all that an agent needs around it: two
interfaces, a gateway that answers, a partner that does not, and a program to manage."""

import configparser
import glob
import io
import os

import images
from machine import Machine, wait_for

ADDRESS = "192.0.2.100"
PROGRAM = "demoserver"
PROGRAM_PATH = "/opt/demo/bin/" + PROGRAM
SETTINGS_PATH = "/usr/velarix/bin/ini/config.ini"
RUN_INFO_PATH = "/usr/velarix/bin/log/runinfo.txt"
PID_PATH = "/usr/velarix/pid/VelarixHA.pid"
LOG_PATH = "/usr/velarix/log/velarix.log"
DEFAULTS_PATH = "/etc/default/velarix-ha"
SERVICE = "/usr/libexec/velarix-ha/service"

INIT = ("velarixctl init --this a --output /root/pair --address-a 198.51.100.11 --address-b 198.51.100.12 "
        f"--virtual-ip {ADDRESS} --waiting-time 0")
DROP = f"ip addr del {ADDRESS}/24 dev eth0 >/dev/null 2>&1"
# What differs from the sample.
SETTINGS = {
    "AGENT__THIS_SERVER_IP": "198.51.100.11",
    "AGENT__PARTNER_IP": "198.51.100.12",
    "AGENT__GATEWAY_IP": "198.51.100.1",
    "AGENT__VIRTUAL_IP": ADDRESS,
    "AGENT__VIRTUAL_IP_START_COMMAND":
        f"(ip addr add {ADDRESS}/24 dev eth0 label eth0:ha; (while ip -4 -o addr show dev eth0 | grep -q {ADDRESS}/; "
        f"do arping -q -A -c 1 -w 1 -I eth0 {ADDRESS}; sleep 4; done) &) >/dev/null 2>&1",
    "AGENT__VIRTUAL_IP_STOP_COMMAND": DROP,
    "AGENT__WAITING_TIME_BEFORE_PROCESS_RUN": "0",
    "PROCESS_CHECK__PROCESS_NUM": "1",
    "PROCESS_CHECK__PROCESS_PATH1": PROGRAM_PATH,
    "PROCESS_CHECK__PROCESS_PATH2": None,
    "ADVENCE__PROCESS_KILL_COMMAND": DROP + "; killall -q -9",
}

# The other ends of the interfaces are in the machine, too, and the gateway on one of them.
INTERFACES = """#!/bin/sh
set -e
ip link set lo up
for i in 0 1; do
	ip link add eth$i type veth peer name wire$i
	ip link set eth$i up
	ip link set wire$i up
done
ip addr add 192.0.2.11/24 dev eth0
ip addr add 198.51.100.11/24 dev eth1
ip addr add 198.51.100.1/24 dev wire1
"""

# The kernel names a process after the script it interprets.
PROGRAM_TEXT = """#!/usr/bin/perl
print STDERR "demoserver: at work\\n";
sleep;
"""

# Takes heartbeats and throws them away.
PARTNER = """
use IO::Socket::INET;
my $s = IO::Socket::INET->new(LocalAddr => '198.51.100.12', LocalPort => 7000, Listen => 5, ReuseAddr => 1) or die;
while (my $c = $s->accept()) { 1 while <$c>; close $c }
"""


def sample():
    file = configparser.RawConfigParser(comment_prefixes=(";",))
    file.optionxform = str
    file.read(os.path.join(images.ROOT, "packaging", "config.ini.sample"))
    return file


def settings(**changes):
    """The text of the settings file; a change of None leaves the key out."""
    file, text = sample(), io.StringIO()
    for name, value in {**SETTINGS, **changes}.items():
        file[name.split("__")[0]][name.split("__")[1]] = value or ""
        if value is None:
            file.remove_option(*name.split("__"))
    file.write(text)
    return text.getvalue()


class Place:
    """Where a test program works, and what with; filled by it."""

    directory = suite = images = packages = ""


def package(pattern):
    """The one package of the tests' directory that matches, "*.deb" or "old/*.rpm"."""
    found = glob.glob(os.path.join(Place.packages, pattern))
    if len(found) != 1:
        raise AssertionError(f"one {pattern} should be in {Place.packages}, there are {found}")
    return found[0]


def boot(at_end, name, init="none", installed=None, image="base", shared=()):
    """A machine that goes with its test: AT_END is the test's addCleanup, or its class's. With a package
    that is installed, and all that an agent needs around it."""
    made = Node(Place.directory, name, images.paths(Place.suite, Place.images)[image], init, shared)
    at_end(made.power_off)
    made.power_on()
    if installed:
        made.install(package(installed))
        made.equip()
    return made


class Node(Machine):
    since = 0  # what the journal is read from, in seconds

    def install(self, package):
        self.put(package, "/root/package.deb")
        return self.run("apt-get install -y --no-install-recommends /root/package.deb")

    def equip(self):
        """Interfaces, program and settings. The tools for it come with the package."""
        self.write("/opt/demo/interfaces", INTERFACES, "0755")
        self.write(PROGRAM_PATH, PROGRAM_TEXT, "0755")
        self.write(SETTINGS_PATH, settings(), "0600")
        self.run("/opt/demo/interfaces")

    def property(self, name, unit="velarix-ha"):
        return self.run(f"systemctl show --value --property={name} {unit}").out.strip()

    def journal(self, unit="velarix-ha"):
        return self.run(f"journalctl --sync; journalctl --no-pager -o cat --since @{self.since} -u {unit}").out

    def agents(self):
        """The pids of all agents that run. What one has forked, and has not become its command yet, is none."""
        found = self.run("for p in /proc/[0-9]*; do case $(readlink $p/exe) in "
                         "/usr/velarix/bin/VelarixHA*) awk -v p=${p#/proc/} '/^PPid:/ { print p, $2 }' $p/status;; esac; done",
                         check=False)
        parents = {int(pid): int(parent) for pid, parent in map(str.split, found.out.splitlines())}
        return [pid for pid, parent in parents.items() if parent not in parents]

    def agent(self):
        agents = self.agents()
        if len(agents) != 1:
            raise AssertionError(f"one agent should run, there are {agents}")
        return agents[0]

    def programs(self):
        # A zombie has a name, and no program.
        found = self.run(f"for p in /proc/[0-9]*; do [ \"$(cat $p/comm 2>/dev/null)\" = {PROGRAM} ] && [ -e $p/exe ] && "
                         "echo ${p#/proc/}; done; true", check=False)
        return [int(pid) for pid in found.out.split()]

    def holds_address(self):
        return ADDRESS + "/" in self.run("ip -4 -o addr show dev eth0").out

    def serves(self):
        return self.programs() if self.holds_address() else []

    def wait_until_serving(self):
        """A lone node takes over after some nine seconds."""
        return wait_for("the node serves", self.serves, 40)[0]

    def alive(self, pid):
        return self.exists(f"/proc/{pid}/exe")

    def start_by_hand(self):
        self.run("setsid /usr/velarix/bin/VelarixHA </dev/null >/dev/null 2>&1")

    def stopped_agent_of_a_user(self):
        """The pid of an agent that nobody started, who has stopped it before it could fail."""
        self.run("setpriv --reuid 65534 --regid 65534 --clear-groups /usr/velarix/bin/VelarixHA </dev/null >/dev/null 2>&1; "
                 "pkill -STOP -u 65534 -x VelarixHA")
        return self.agent()

    def calm_down(self):
        """No agent, no service, good settings: what every test starts from."""
        self.run(f"pkill -9 -x VelarixHA; pkill -9 -x {PROGRAM}; {DROP}; rm -f {PID_PATH} {LOG_PATH}", check=False)
        wait_for("the agents have ended", lambda: not self.agents(), 10)
        self.write(SETTINGS_PATH, settings(), "0600")
        self.run(f"cp /usr/share/velarix-ha/runinfo.initial {RUN_INFO_PATH}")
        self.on_stop("leave")
        self.since = self.run("date +%s.%N").out.strip()

    def on_stop(self, what):
        self.run(f"sed -i 's/^VELARIX_ON_STOP=.*/VELARIX_ON_STOP={what}/' {DEFAULTS_PATH}")

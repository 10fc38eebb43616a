"""The Debian package: what an installation puts where, and what upgrade, removal
and purge leave of what belongs to the operator and to the agent."""

import os
import platform
import subprocess
import unittest

import images
import node
from node import boot
from build_packages import MAINTAINER
from machine import wait_for

RUN_INFO = "[TRACE]\nLAST_RUN_TIME = \nMASTER_LAST_RUN_TIME = \nSLAVE_LAST_RUN_TIME = \n"
OWN_SETTINGS = node.settings(AGENT__IGNORE_TIME="11")

TREE = """\
drwxr-xr-x root:root /usr/velarix
drwxr-xr-x root:root /usr/velarix/bin
-rwxr-xr-x root:root /usr/velarix/bin/VelarixHA
drwxr-x--- root:root /usr/velarix/bin/ini
-rw-r--r-- root:root /usr/velarix/bin/ini/config.ini.sample
-rw-r--r-- root:root /usr/velarix/bin/ini/keeper.ini.sample
drwxr-xr-x root:root /usr/velarix/bin/log
-rw-r--r-- root:root /usr/velarix/bin/log/runinfo.txt
drwxr-x--- root:root /usr/velarix/log
drwxr-xr-x root:root /usr/velarix/pid
"""

# Libraries are looked at by themselves.
TOOLS = ["ifconfig", "ps", "grep", "chmod", "killall", "ip", "arping", "cat", "setsid"]


PROGRAMS = ["usr/velarix/bin/VelarixHA", "usr/bin/velarixctl", "usr/libexec/velarix-ha/release",
            "usr/libexec/velarix-ha/keeper"]


class ProgramsTest(unittest.TestCase):
    """The programs of the package, as files: every protection of the build is in them."""

    def test_every_program_is_hardened(self):
        tree = os.path.join(node.Place.directory, "programs")
        subprocess.run(["dpkg-deb", "-x", node.package("*.deb"), tree], check=True)
        # The library's checked functions: the last two programs call none that has a checked form. The agent needs the
        # secure socket library, though it calls nothing of it.
        wanted = [("readelf -dW", r"FLAGS_1.*\bNOW\b", PROGRAMS), ("readelf -dW", r"FLAGS_1.*\bPIE\b", PROGRAMS),
                  ("readelf -dW", r"\A(?!(.|\n)*(RPATH|RUNPATH))", PROGRAMS), ("readelf -lW", r"GNU_RELRO", PROGRAMS),
                  ("readelf -lW", r"GNU_STACK.* RW ", PROGRAMS), ("readelf -lW", r"\A(?!(.|\n)*LOAD.* RWE )", PROGRAMS),
                  ("readelf --dyn-syms -W", r"__stack_chk_fail", PROGRAMS),
                  ("readelf --dyn-syms -W", r"__[a-z]+_chk@", PROGRAMS[:2]),
                  ("readelf -dW", r"NEEDED.*\[libPocoNetSSL\.so", PROGRAMS[:1])]

        def tell(tool, program):
            return subprocess.run([*tool.split(), os.path.join(tree, program)], capture_output=True, text=True, check=True).stdout

        for tool, pattern, programs in wanted:
            for program in programs:
                with self.subTest(program=program, pattern=pattern):
                    self.assertRegex(tell(tool, program), pattern)
        # The beginnings of functions are marked for indirect jumps.
        for program in PROGRAMS if platform.machine() == "x86_64" else ():
            with self.subTest(program=program):
                self.assertGreater(tell("objdump -d -j .text", program).count("endbr64"), 50)


def field(name):
    """What the package's own description says."""
    return subprocess.run(["dpkg-deb", "-f", node.package("*.deb"), name], check=True, capture_output=True, text=True).stdout


class BuildTest(unittest.TestCase):
    """What the build of the packages says."""

    def test_the_package_names_the_maintainer_that_was_given(self):
        self.assertEqual(field("Maintainer"), MAINTAINER + "\n")

    def said(self, directory):
        with open(os.path.join(node.Place.packages, directory, "said")) as file:
            return file.read()

    def test_a_build_for_which_nobody_answers_warns(self):
        self.assertIn("package: WARNING: nobody answers for these packages: their maintainer is "
                      "Velarix HA maintainers <velarix-ha@localhost>.", self.said("unnamed"))
        self.assertIn('--maintainer "NAME <ADDRESS>"', self.said("unnamed"))
        self.assertNotIn("nobody answers", self.said("."))

    def test_a_maintainer_without_an_address_is_refused(self):
        script = os.path.join(images.ROOT, "scripts", "package")
        for maintainer in ("", "Somebody", "ha@example.com", "Somebody <ha>", "Some;body <ha@example.com>"):
            with self.subTest(maintainer=maintainer):
                done = subprocess.run([script, "--no-install", "--maintainer", maintainer], capture_output=True, text=True)
                self.assertEqual((done.returncode, done.stdout), (1, ""))
                self.assertIn(f'and "{maintainer}" is not that', done.stderr)


class OnASystem(unittest.TestCase):
    """A machine for each test, since each one changes what is installed."""

    init = "none"
    installed_before = None

    def setUp(self):
        self.machine = boot(self.addCleanup, self._testMethodName[5:60], self.init, self.installed_before)

    def apt(self, words):
        return self.machine.run("apt-get -y " + words)

    def installed_version(self):
        return self.machine.run("dpkg-query -W -f '${Version}' velarix-ha").out

    def tree(self):
        return self.machine.run("find /usr/velarix | sort | xargs -d '\\n' stat -c '%A %U:%G %n'").out

    def make_state(self):
        """What a node that was in use has."""
        self.machine.write(node.SETTINGS_PATH, OWN_SETTINGS, "0600")
        self.machine.write("/usr/velarix/bin/ini/processList.sh", "cd /opt/\n/opt/x &\n", "0755")
        self.machine.write(node.RUN_INFO_PATH, RUN_INFO.replace("LAST_RUN_TIME = \n", "LAST_RUN_TIME = 20261121080910\n", 1))
        self.machine.write(node.LOG_PATH, "a line\n")
        self.machine.write(node.LOG_PATH + ".20261120070605123", "an older line\n")
        self.machine.write("/usr/velarix/log/console.err", "an abort\n")
        self.machine.write(node.PID_PATH, "4711")
        self.machine.on_stop("release")

    def state(self):
        return self.machine.run(
            f"stat -c %a {node.SETTINGS_PATH}; "
            f"cat {node.SETTINGS_PATH} {node.RUN_INFO_PATH} {node.LOG_PATH}* {node.DEFAULTS_PATH}").out


class InstallationTest(OnASystem):
    def test_a_first_installation(self):
        for tool in ("ifconfig", "ip", "arping", "killall"):
            self.assertNotEqual(self.machine.run(f"command -v {tool}", check=False).status, 0, tool)
        said = self.machine.install(node.package("*.deb")).out

        # Every file has its place, owner and mode.
        self.assertEqual(self.tree(), TREE)
        self.assertEqual(self.machine.read(node.RUN_INFO_PATH), RUN_INFO)
        self.assertEqual(self.machine.run("dpkg --verify velarix-ha").text, "")

        # It pulls in all that the agent needs, and recommends what loads the firewall.
        for tool in TOOLS:
            self.machine.run(f"command -v {tool}")
        libraries = self.machine.run("cd /usr && ldd velarix/bin/VelarixHA bin/velarixctl libexec/velarix-ha/release")
        self.assertNotIn("not found", libraries.text)
        self.assertRegex(self.machine.run("velarixctl --version").out, r"1\.0\.0")
        self.assertEqual(field("Recommends"), "logrotate, nftables\n")

        # Manual and documents are there.
        self.machine.run("cd /usr/share && ls man/man1/velarixctl.1.gz man/man8/velarixha.8.gz "
                         "bash-completion/completions/velarixctl && cd doc/velarix-ha && "
                         "ls copyright README.Debian changelog.Debian.gz changelog.gz docs/log-messages.md")
        page = self.machine.run("zcat /usr/share/man/man5/velarix.ini.5.gz").out
        for section in node.sample().values():
            for key in section:
                self.assertIn(f"\\fB{key.rstrip('12')}\\fR", page)

        # It says what to do first and starts nothing.
        self.assertIn("velarix-ha: installed and not started; see /usr/share/doc/velarix-ha/README.Debian", said)
        self.assertEqual(self.machine.agents(), [])
        self.assertEqual(self.machine.run("ls /etc/rc2.d | grep velarix", check=False).out, "K01velarix-ha\n")
        self.assertEqual(self.machine.run("systemctl is-enabled velarix-ha", check=False).out, "disabled\n")


class UpgradeTest(OnASystem):
    installed_before = "old/*.deb"

    def test_settings_record_logs_and_choices_are_kept(self):
        self.assertTrue(self.installed_version().startswith("0.9.0-"))
        self.make_state()
        self.machine.run("dpkg-statoverride --update --add root adm 0750 /usr/velarix/log")
        before = self.state()
        said = self.machine.install(node.package("*.deb")).out
        self.assertTrue(self.installed_version().startswith("1.0.0-"))
        self.assertEqual(self.state(), before)
        self.assertIn("VELARIX_ON_STOP=release", before)
        self.assertIn("20261121080910", before)
        self.assertEqual(self.machine.run("stat -c '%a %G' /usr/velarix/log").out, "750 adm\n")
        self.assertNotIn("installed and not started", said)

        self.machine.run(f"rm {node.RUN_INFO_PATH} && dpkg -i /root/package.deb")
        self.assertEqual(self.machine.read(node.RUN_INFO_PATH), RUN_INFO)


class RemovalTest(OnASystem):
    installed_before = "*.deb"

    def everything_of_ours(self):
        """The test's own copy of the package and what names this kind of machine are not."""
        return self.machine.run("find / -xdev -iname '*velarix*' ! -path '/proc/*'", check=False).out

    def test_removal_keeps_what_belongs_to_the_node_and_a_new_installation_finds_it(self):
        self.make_state()
        before = self.state()
        self.apt("remove velarix-ha")
        self.assertEqual(self.state(), before)
        left = self.machine.run("find /usr/velarix /usr/bin/velarixctl /usr/libexec/velarix-ha /usr/lib/systemd/system/velarix* "
                                "/usr/share/man/man8/velarix* -type f", check=False).out.split()
        self.assertEqual(sorted(left), sorted([
            node.SETTINGS_PATH, "/usr/velarix/bin/ini/processList.sh", node.RUN_INFO_PATH, node.PID_PATH, node.LOG_PATH,
            node.LOG_PATH + ".20261120070605123", "/usr/velarix/log/console.err"]))
        # The init script is a settings file and stays; it knows that there is nothing to start.
        self.assertEqual(self.machine.run("/etc/init.d/velarix-ha stop", check=False).status, 0)
        self.assertEqual(self.machine.run("/etc/init.d/velarix-ha start", check=False).status, 5)
        self.machine.install(node.package("*.deb"))
        self.assertEqual(self.state(), before)

    def test_purge_leaves_nothing(self):
        self.make_state()
        for kept in ("config.ini.20261120T070605Z", "acknowledged.txt", "firewall.nft", "firewall.nft.20261120T070605Z",
                     "tunnel.conf", "tunnel.key", "tunnel.pub", "tunnel.pub.4711", "partner.pub", "partner.pub.20261120T070605Z"):
            self.machine.write("/usr/velarix/bin/ini/" + kept, "x\n")
        self.apt("purge velarix-ha")
        self.assertEqual(self.everything_of_ours(), "")

    def test_purge_spares_files_that_are_neither_ours_nor_the_agents(self):
        self.make_state()
        self.machine.write("/usr/velarix/bin/ini/config.ini.mine", "x\n")
        self.machine.write("/usr/velarix/log/report", "x\n")
        self.apt("purge velarix-ha")
        self.assertEqual(self.machine.run("find /usr/velarix -type f | sort").out,
                         "/usr/velarix/bin/ini/config.ini.mine\n/usr/velarix/log/report\n")


class RunningTest(OnASystem):
    """The package's scripts beside a running systemd and a running agent."""

    init = "systemd"
    installed_before = "old/*.deb"

    def setUp(self):
        super().setUp()
        self.machine.run("systemctl enable --now velarix-ha")
        self.agent = self.machine.agent()

    def test_an_upgrade_leaves_the_agent_running_and_enabled_and_says_so(self):
        said = self.machine.install(node.package("*.deb")).out
        self.assertEqual(self.machine.agent(), self.agent)
        self.assertRegex(said, r"velarix-ha: the running agent is still the one of version 0\.9\.0-\S+; "
                               "move the service, then restart it")
        self.assertEqual(self.machine.run("systemctl is-enabled velarix-ha").out, "enabled\n")
        self.assertEqual(self.machine.run("systemctl is-active velarix-ha").out, "active\n")
        # Its program file is gone from the disk, and it is found nevertheless.
        self.assertIn("(deleted)", self.machine.run(f"readlink /proc/{self.agent}/exe").out)
        self.assertEqual(self.machine.run(f"{node.SERVICE} status").out, f"velarix-ha: runs (pid {self.agent})\n")
        self.machine.run("systemctl restart velarix-ha")
        self.assertNotEqual(self.machine.agent(), self.agent)

    def test_removal_ends_the_agent_and_purge_forgets_that_it_was_enabled(self):
        self.machine.run("ln -s /usr/libexec/velarix-ha/notify/mail /etc/velarix-ha/notify.d/; "
                         "systemctl enable --now velarix-notify velarix-pair-page.timer")
        self.apt("remove velarix-ha")
        self.assertEqual(self.machine.agents(), [])
        self.assertTrue(self.machine.exists(node.SETTINGS_PATH))
        self.apt("purge velarix-ha")
        self.assertEqual(self.machine.run("systemctl list-unit-files --no-legend 'velarix*'", check=False).out, "")
        self.assertEqual(self.machine.run("find /etc/systemd -name 'velarix*'").out, "")
        self.assertFalse(self.machine.exists("/etc/velarix-ha") or self.machine.exists("/var/lib/velarix-ha"))

    def test_removal_ends_an_agent_that_was_started_by_hand(self):
        self.machine.run("systemctl stop velarix-ha")
        self.machine.start_by_hand()
        wait_for("the pid file is there", lambda: self.machine.exists(node.PID_PATH), 10)
        self.apt("remove velarix-ha")
        self.assertEqual(self.machine.agents(), [])

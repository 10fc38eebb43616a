"""The systemd unit, tried for real: how it starts the agent, and what it forbids."""

import os
import platform
import re
import time
import unittest

import images
import node
from machine import wait_for
from service_unit import OnAMachine

SECURITY_PAGE = os.path.join(images.ROOT, "docs", "security.md")

# A unit of the machine's that makes its interfaces at boot.
INTERFACES_UNIT = """[Service]
ExecStartPre=/bin/sleep 4
ExecStart=/opt/demo/interfaces
[Install]
WantedBy=multi-user.target
"""


class StartTest(OnAMachine):
    """How the unit starts the agent, and when it does not."""

    def test_the_unit_has_no_fault_that_systemd_finds(self):
        # The minimal system has no man command, with which the pages are looked for.
        self.machine.write("/usr/local/bin/man", "#!/bin/sh\n", "0755")
        verified = self.machine.run("systemd-analyze verify velarix-ha.service velarix-notify.service velarix-pair-page.timer")
        self.assertEqual(verified.text, "")

    def test_start_ends_when_the_pid_file_is_there(self):
        begin = time.monotonic()
        self.start()
        self.assertGreaterEqual(time.monotonic() - begin, 2.0)
        self.assertEqual(self.property("ActiveState"), "active")
        self.assertEqual(self.property("MainPID"), self.machine.read(node.PID_PATH))
        self.assertEqual(int(self.property("MainPID")), self.machine.agent())
        self.assertIn("\nUmask:\t0022\n", self.machine.run(f"cat /proc/{self.machine.agent()}/status").out)

    def test_notifications_run_as_a_unit_once_a_notifier_is_linked(self):
        self.machine.run("ln -s /usr/libexec/velarix-ha/notify/journal /etc/velarix-ha/notify.d/; systemctl start velarix-notify")
        self.addCleanup(self.machine.run, "systemctl stop velarix-notify; rm /etc/velarix-ha/notify.d/journal")
        wait_for("it begins", lambda: self.machine.exists("/var/lib/velarix-ha/notify/journal"), 20)
        self.start()
        wait_for("the election is in the journal", lambda: "change role-changed: standby -> master" in
                 self.machine.run(f"journalctl --no-pager -o cat --since @{self.machine.since} -t velarix-ha").out, 60)
        self.assertEqual(self.machine.run("velarixctl notify --test").out, "journal: taken\n")

    def test_the_timer_writes_the_page_of_both_nodes_for_any_web_server(self):
        self.machine.run("systemctl enable --now velarix-pair-page.timer")
        self.addCleanup(self.machine.run, "systemctl disable --now velarix-pair-page.timer")
        page = "/var/lib/velarix-ha/pair/index.html"
        wait_for("the page is there", lambda: self.machine.exists(page), 90)
        read = self.machine.run(f"setpriv --reuid 65534 --regid 65534 --clear-groups cat {page}").out
        self.assertTrue(read.startswith("<!DOCTYPE html>") and read.endswith("</html>\n"), read)
        # This machine has no partner to ask: the page says so, and the unit has not failed.
        self.assertIn("partner-not-reached", read)
        wait_for("the unit has ended", lambda: self.property("ActiveState", "velarix-pair-page.service") == "inactive", 10)
        wait_for("it comes again", lambda: self.property("NextElapseUSecMonotonic", "velarix-pair-page.timer")
                 not in ("", "0", "infinity"), 10)

    def test_a_user_who_runs_the_program_and_stops_it_keeps_nothing_from_starting(self):
        user = self.machine.stopped_agent_of_a_user()
        self.start()
        main = int(self.property("MainPID"))
        self.assertEqual(sorted(self.machine.agents()), sorted([user, main]))
        self.assertEqual(self.machine.read(node.PID_PATH), str(main))
        self.machine.run("systemctl stop velarix-ha")
        self.assertEqual(self.machine.agents(), [user])

    def test_a_full_disk_at_the_pid_file_is_found_before_the_start(self):
        self.machine.run("mount -t tmpfs -o size=4k full /usr/velarix/pid && "
                         "head -c 4096 /dev/zero >/usr/velarix/pid/other")
        self.addCleanup(self.machine.run, "umount -l /usr/velarix/pid")
        self.assert_not_started("not started: the agent would be without a pid file: ")

    def test_a_disk_that_fills_up_during_the_start_leaves_no_agent_behind(self):
        self.machine.run("mount -t tmpfs -o size=1m full /usr/velarix/pid")
        self.addCleanup(self.machine.run, "umount -l /usr/velarix/pid", check=False)
        self.change_unit("[Service]\nExecStartPre=/bin/sh -c 'head -c 1M /dev/zero >/usr/velarix/pid/other || true'\n")
        begin = time.monotonic()
        self.assert_not_started(") is ended again: there is no room for its pid")
        self.assertLess(time.monotonic() - begin, 60)
        self.machine.run("umount -l /usr/velarix/pid; rm -r /run/systemd/system/velarix-ha.service.d; systemctl daemon-reload")
        self.start()

    def test_a_stop_before_the_start_is_complete_leaves_no_agent_behind(self):
        self.machine.run("systemctl start --no-block velarix-ha")
        wait_for("the agent runs", self.machine.agents, 30)
        self.machine.run("systemctl stop velarix-ha")
        wait_for("the agent has ended", lambda: not self.machine.agents(), 10)

    def assert_not_started(self, *reported):
        self.assertNotEqual(self.start(check=False).status, 0)
        self.assertEqual(self.property("ActiveState"), "failed")
        self.assertEqual(self.machine.agents(), [])
        for text in reported:
            self.assertIn(text, self.journal())

    def test_without_settings_it_is_not_started_and_says_why(self):
        self.machine.run(f"rm {node.SETTINGS_PATH}")
        self.assert_not_started("there is no /usr/velarix/bin/ini/config.ini")

    def test_wrong_settings_are_not_started_and_not_tried_again(self):
        self.machine.write(node.SETTINGS_PATH, node.settings(AGENT__VIRTUAL_IP=None), "0600")
        self.assert_not_started("VIRTUAL_IP", "not started: velarixctl check did not accept /usr/velarix/bin/ini/config.ini (status 78)")
        self.assertIn("status=78", self.property("ExecStartPre"))
        self.assertEqual(self.property("NRestarts"), "0")

    def test_the_number_of_a_living_process_in_the_pid_file_is_not_believed(self):
        other = self.property("MainPID", "systemd-journald")
        self.machine.write(node.PID_PATH, other)
        self.start()
        agent = self.machine.agent()
        self.assertEqual(self.property("MainPID"), str(agent))
        self.machine.write(node.PID_PATH, other)
        self.assertEqual(self.property("MainPID"), str(agent))
        # systemd would read the file again as soon as the agent has ended.
        self.machine.run("systemctl stop velarix-ha")
        self.assertEqual(self.machine.agents(), [])
        self.assertTrue(self.machine.alive(other))
        self.assertEqual(self.property("Result"), "success")

    def test_a_second_agent_is_refused(self):
        self.machine.start_by_hand()
        # In its first two seconds it has no pid file.
        self.assertNotEqual(self.start(check=False).status, 0)
        first = self.machine.agent()
        wait_for("the pid file is there", lambda: self.machine.exists(node.PID_PATH), 10)
        self.assertNotEqual(self.start(check=False).status, 0)
        self.assertEqual(self.machine.agent(), first)
        self.assertEqual(self.journal().count(f"an agent runs already (pid {first})"), 2)
        # systemd removes it, the service puts it back.
        wait_for("the pid file is there", lambda: self.machine.exists(node.PID_PATH), 10)
        time.sleep(0.5)
        self.assertEqual(self.machine.read(node.PID_PATH), str(first))

    def test_the_init_script_hands_over_to_the_unit(self):
        # With the functions of Debian, and without.
        for prepare in ("true", "mv /lib/lsb/init-functions /lib/lsb/init-functions.away"):
            self.machine.run(prepare)
            self.machine.run("/etc/init.d/velarix-ha start")
            self.assertEqual(int(self.property("MainPID")), self.machine.agent())
            self.assertEqual(self.machine.run("/etc/init.d/velarix-ha status", check=False).status, 0)
            self.machine.run("/etc/init.d/velarix-ha stop")
            self.assertEqual(self.property("ActiveState"), "inactive")
            self.assertEqual(self.machine.run("/etc/init.d/velarix-ha status", check=False).status, 3)
        self.machine.run("mv /lib/lsb/init-functions.away /lib/lsb/init-functions")

    def test_enabled_it_comes_back_after_a_power_failure(self):
        # The interfaces come late, after what waits for the network has gone on.
        self.machine.write("/etc/systemd/system/interfaces.service", INTERFACES_UNIT)
        self.machine.run("systemctl enable interfaces velarix-ha")
        self.start()
        self.machine.run("sync")
        self.assertTrue(self.machine.exists(node.PID_PATH))
        self.machine.power_off()
        self.machine.power_on()
        # The number in the pid file is somebody else's now, or nobody's.
        wait_for("the unit is active", lambda: self.property("ActiveState") == "active", 30)
        self.assertEqual(int(self.property("MainPID")), self.machine.agent())
        self.assertEqual(self.machine.read(node.PID_PATH), self.property("MainPID"))
        self.machine.run("systemctl disable interfaces velarix-ha")

    def test_standard_output_is_discarded_and_the_programs_errors_are_kept(self):
        self.start()
        self.machine.wait_until_serving()
        wait_for("the program's line is in the journal", lambda: "demoserver: at work" in self.journal(), 10)
        journal = self.journal()
        self.assertNotIn("**DEBUG**", journal)
        self.assertIn("**ERROR**", journal)

    def test_little_is_taken_from_agent_and_programs(self):
        self.start()
        program, agent = self.machine.wait_until_serving(), self.machine.agent()
        for pid in (program, agent):
            status = self.machine.run(f"cat /proc/{pid}/status").out
            self.assertRegex(status, r"\nSeccomp:\t2\n")
            # A program may be one that changes its user, and needs all of root.
            self.assertRegex(status, r"\nNoNewPrivs:\t0\n")
            root = self.machine.run("cat /proc/self/status").out
            for line in ("CapEff", "CapBnd", "Cpus_allowed"):
                self.assertEqual(*(text.split(line + ":")[1].split()[0] for text in (status, root)))
            # What is mounted later has to be seen there as well.
            for space in ("mnt", "net", "pid", "ipc", "uts", "user"):
                self.assertEqual(*(self.machine.run(f"readlink /proc/{of}/ns/{space}").out for of in (pid, 1)))

    def test_networks_of_old_are_refused_and_no_other(self):
        # A family that the running kernel lacks would be refused in any case.
        reported = self.property("RestrictAddressFamilies")
        self.assertTrue(reported.startswith("~"), reported)
        self.assertEqual(set(reported[1:].split()), {"AF_APPLETALK", "AF_ATMPVC", "AF_ATMSVC", "AF_AX25", "AF_IPX",
                                                 "AF_NETROM", "AF_ROSE", "AF_X25"})
        families = "; ".join(f'print "family {family} ", (socket(my $s{family}, {family}, {kind}, 0) ? 0 : 0 + $!), "\\n"'
                             for family, kind in ((1, 1), (2, 1), (16, 3), (17, 3)))
        self.assertEqual(self.output_of(families, self.run_in_unit),
                         ["family 1 0", "family 2 0", "family 16 0", "family 17 0"])

    @unittest.skipUnless(platform.machine() == "x86_64", "numbers of calls of one kind of processor")
    def test_the_unit_refuses_a_command_what_no_service_needs_and_nothing_else(self):
        # None of them does anything: outside the unit they come through to the kernel's own look at what is asked of
        # them. The file's name is at no address (14), the flag is none, and reboot wants its magic numbers (22).
        calls = [("ustat", 136), ("sysfs", 139), ("swapon", 167), ("swapoff", 168), ("reboot", 169),
                 ("kexec_load", 246, 0, 0, 0, 0x4000), ("kexec_file_load", 320, 0, 0, 0, 0, 0x4000)]
        outside, inside = (self.errors_of_calls(calls, run) for run in (self.machine.run, self.run_in_unit))
        # Those obsolete calls that this kernel still has.
        obsolete = [name for name in ("ustat", "sysfs") if outside[name] == 22]
        self.assertTrue(obsolete, outside)
        self.assertEqual((outside["swapon"], outside["swapoff"]), (14, 14))
        # A kernel may lack them (38), or refuse root one of them itself (1), under Secure Boot.
        kernel = (outside["kexec_load"], outside["kexec_file_load"])
        self.assertLessEqual(set(kernel), {22, 38, 1})
        self.assertNotEqual(kernel, (1, 1))
        self.assertEqual([inside[name] for name in obsolete], [38] * len(obsolete))
        self.assertEqual([inside[name] for name in ("swapon", "swapoff", "kexec_load", "kexec_file_load", "reboot")],
                         [1, 1, 1, 1, 22])

    def test_what_is_left_out_deliberately_is_as_for_any_service(self):
        with open(SECURITY_PAGE) as page:
            table = page.read().split("Left out deliberately:")[1].split("\n\n")[1]
        options = re.findall("`([A-Za-z]+)`", "".join(line.split("|")[1] for line in table.splitlines()))
        self.assertEqual(len(options), len(set(options)))
        self.assertGreater(len(options), 30)
        self.machine.write("/run/systemd/system/any.service",
                           "[Service]\nType=oneshot\nRemainAfterExit=yes\nExecStart=/bin/true\n")
        self.machine.run("systemctl daemon-reload; systemctl start any")
        self.addCleanup(self.machine.run, "systemctl stop any; rm /run/systemd/system/any.service")
        self.start()
        for option in options:
            with self.subTest(option=option):
                ours, anys = (self.machine.run(f"systemctl show --property={option} {unit}").out
                              for unit in ("velarix-ha", "any"))
                self.assertTrue(ours.startswith(option + "="), "systemd does not know it")
                self.assertEqual(ours, anys)
        self.assertEqual(self.property("KeyringMode"), "private")

    def errors_of_calls(self, calls, run):
        """The error of each call by its name: NAME, NUMBER and its arguments, four of 0 where there are none."""
        errors = self.output_of("; ".join(
            f'syscall({", ".join(map(str, (number, *(arguments or (0, 0, 0, 0)))))}) == -1 and print "{name} ", 0 + $!, "\\n"'
            for name, number, *arguments in calls), run)
        return {name: int(error) for name, error in map(str.split, errors)}

    def output_of(self, perl, run):
        """The lines that a piece of Perl prints, run by the given function."""
        self.machine.write("/opt/demo/tries", f"#!/usr/bin/perl\nuse strict;\n{perl};\n", "0755")
        self.addCleanup(self.machine.run, "rm -f /opt/demo/tries /opt/demo/reported")
        run("/opt/demo/tries >/opt/demo/reported")
        return self.machine.read("/opt/demo/reported").splitlines()

    def run_in_unit(self, command):
        self.change_unit(f"[Service]\nExecStartPre=/bin/sh -c '{command}'\n")
        self.start()

"""The systemd unit, tried for real: how agent and service end."""

import time

import node
from machine import wait_for
from service_unit import OnAMachine


class CrashTest(OnAMachine):
    """What becomes of agent and programs when one of them dies."""

    def test_a_crash_leaves_the_programs_and_the_agent_is_started_again(self):
        self.machine.on_stop("release")
        self.start()
        program, first = self.machine.wait_until_serving(), self.machine.agent()
        self.machine.run(f"kill -SEGV {first}")
        wait_for("systemd has seen it", lambda: self.property("SubState") == "auto-restart", 5)
        time.sleep(1)
        self.assertEqual(self.machine.serves(), [program])
        self.wait_for_state("active")
        self.assertNotEqual(self.machine.agent(), first)
        self.assertEqual(self.property("NRestarts"), "1")
        self.assertEqual(int(self.property("MainPID")), self.machine.agent())
        # Its own first deed, as at every start.
        wait_for("the agent has killed the program", lambda: not self.machine.alive(program), 10)
        self.assertNotEqual(self.machine.wait_until_serving(), program)

    def test_the_end_of_a_program_leaves_the_agent(self):
        self.start()
        program, agent = self.machine.wait_until_serving(), self.machine.agent()
        self.machine.run(f"kill -9 {program}")
        wait_for("the program has ended", lambda: not self.machine.alive(program), 10)
        self.assertNotEqual(self.machine.wait_until_serving(), program)
        self.assertEqual(self.machine.agent(), agent)
        self.assertEqual(self.property("OOMPolicy"), "continue")
        self.assertEqual(self.property("TasksMax"), "infinity")

    def test_an_abort_is_told_in_the_journal_and_a_refused_restart_is_the_last(self):
        self.machine.run("ip addr add 198.51.100.12/24 dev wire1")
        self.addCleanup(self.machine.run, "pkill -x partner.pl; ip addr del 198.51.100.12/24 dev wire1")
        self.machine.write("/opt/demo/partner.pl", "#!/usr/bin/perl" + node.PARTNER, "0755")
        self.machine.run("setsid /opt/demo/partner.pl </dev/null >/dev/null 2>&1 &")
        self.change_unit("[Service]\nRestartSec=100ms\n")
        self.start()
        wait_for("heartbeats are sent",
                 lambda: "beat sent" in self.machine.run(f"cat {node.LOG_PATH}", check=False).out, 15)
        self.machine.run(f"rm {node.RUN_INFO_PATH}")
        self.wait_for_state("failed")
        journal = self.journal()
        self.assertIn("Assertion `", journal)
        self.assertIn("**ERROR**(QuorinINI:29)", journal)
        self.assertIn("velarixctl check did not accept", journal)
        self.assertEqual(self.property("NRestarts"), "1")

    def test_after_a_crash_systemd_takes_whom_the_pid_file_names_for_the_agent(self):
        # Why nobody but root may write that file: see the page on security.
        self.machine.run("systemd-run --unit=other sleep 1000")
        other = self.property("MainPID", "other")
        self.start()
        self.machine.write(node.PID_PATH, other)
        self.machine.run(f"kill -ABRT {self.machine.agent()}")
        wait_for("systemd follows the file", lambda: self.property("MainPID") == other, 10)
        self.assertEqual((self.property("ActiveState"), self.property("NRestarts")), ("active", "0"))
        self.assertEqual(self.machine.agents(), [])
        self.machine.run("systemctl stop velarix-ha")
        wait_for("the stop has ended it", lambda: not self.machine.alive(other), 10)

    def test_an_agent_that_aborts_again_and_again_is_given_up(self):
        self.change_unit("[Service]\nRestartSec=100ms\n")
        self.start()
        for number in range(1, 6):
            wait_for(f"start number {number}",
                     lambda: (self.property("NRestarts"), self.property("ActiveState")) == (str(number - 1), "active"), 20)
            self.machine.run(f"kill -ABRT {self.machine.agent()}")
        self.wait_for_state("failed")
        time.sleep(1)
        self.assertEqual(self.machine.agents(), [])
        self.machine.run("systemctl reset-failed velarix-ha")
        self.start()

    def test_a_kill_by_hand_is_no_crash_and_no_stop(self):
        self.machine.on_stop("release")
        self.start()
        program = self.machine.wait_until_serving()
        self.machine.run(f"kill {self.machine.agent()}")
        self.wait_for_state("inactive")
        self.assertEqual(self.machine.serves(), [program])


class StopTest(OnAMachine):
    """What a stop of the service does with address and programs."""

    def test_stop_leaves_address_and_program_and_the_next_start_clears_them(self):
        self.start()
        program = self.machine.wait_until_serving()
        self.machine.run("systemctl stop velarix-ha")
        self.assertEqual(self.machine.agents(), [])
        self.assertEqual(self.machine.serves(), [program])
        self.assertFalse(self.machine.exists(node.PID_PATH))
        self.assertEqual((self.property("ActiveState"), self.property("Result")), ("inactive", "success"))
        self.assertIn("the address and the programs of this node stay as they are", self.journal())
        self.start()
        wait_for("the agent has killed the program", lambda: not self.machine.alive(program), 10)
        left_over = self.machine.run(f"journalctl --no-pager -o cat --since @{self.machine.since} | grep -i left-over", check=False)
        self.assertIn(f"({node.PROGRAM})", left_over.out)

    def test_release_on_stop_drops_the_address_and_kills_the_program(self):
        self.machine.on_stop("release")
        self.start()
        program = self.machine.wait_until_serving()
        self.machine.run("systemctl stop velarix-ha")
        self.assertEqual(self.machine.agents(), [])
        self.assertFalse(self.machine.alive(program))
        self.assertFalse(self.machine.holds_address())
        self.assertEqual((self.property("ActiveState"), self.property("Result")), ("inactive", "success"))
        self.assertIn("released: neither the address nor a program is left on this node", self.journal())

        # One that does not work is a failure that names what is left. A start would be refused with these settings; the
        # release reads them at the stop.
        left = "is still on this node, although the commands have run"
        for settings, reported in (
                (node.settings(ADVENCE__PROCESS_KILL_COMMAND="true", AGENT__VIRTUAL_IP_STOP_COMMAND="true"),
                 (f"the address {node.ADDRESS} {left}", f"the program {node.PROGRAM} {left}")),
                (None, (f"velarix-ha: nothing is released: cannot read {node.SETTINGS_PATH}: No such file",))):
            self.machine.write(node.SETTINGS_PATH, node.settings(), "0600")
            self.start()
            self.machine.wait_until_serving()
            if settings:
                self.machine.write(node.SETTINGS_PATH, settings, "0600")
            else:
                self.machine.run(f"rm {node.SETTINGS_PATH}")
            self.machine.run("systemctl stop velarix-ha", check=False)
            self.assertEqual(self.machine.agents(), [])
            self.assertEqual(self.property("ActiveState"), "failed")
            for text in reported:
                self.assertIn(text, self.journal())

    def test_a_hand_over_without_a_partner_and_an_unknown_wish_leave_everything_in_place(self):
        for action, reported in (("handover", "nothing was handed over (see above)"),
                           ("perhaps", 'VELARIX_ON_STOP is "perhaps" and not leave, release or handover')):
            self.machine.on_stop(action)
            self.start()
            program = self.machine.wait_until_serving()
            self.machine.run("systemctl stop velarix-ha")
            self.assertEqual((self.machine.agents(), self.machine.serves()), ([], [program]))
            self.assertIn(reported, self.journal())

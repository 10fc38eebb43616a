#!/usr/bin/python3
"""What the figures of the lab are made of, from results written out here."""

import argparse
import os
import runpy
import sys
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
sys.path[:0] = [os.path.join(ROOT, "evidence", "scripts"), os.path.join(ROOT, "scripts", "lib")]

import idle
import pair
import render
import soak

PAGER = runpy.run_path(os.path.join(ROOT, "evidence", "scripts", "pager"))


class Outages(unittest.TestCase):
    CHANGES = [(0, "none"), (1000, "a"), (5000, "none"), (5300, "a"), (6000, "none"), (9000, "b")]

    def test_the_longest_one_after_the_fault_counts(self):
        self.assertEqual(pair.longest_outage(self.CHANGES, 4900, 20000), (3000, False))
        self.assertEqual(pair.longest_outage(self.CHANGES, 8000, 20000), (1000, False))

    def test_one_that_lasts_is_told(self):
        self.assertEqual(pair.longest_outage([*self.CHANGES, (10000, "none")], 4900, 20000), (10000, True))

    def test_an_answered_time_has_none(self):
        self.assertEqual(pair.longest_outage([(0, "a")], 10, 20000), (0, False))


class Pager(unittest.TestCase):
    def missed(self, *seen, outages=((5.0, 20.0),)):
        return PAGER["is_missed"]({"outages": outages, "seen": {"a": [(at, word, "") for at, word in seen], "b": []}})

    def test_only_an_alarm_in_the_first_ten_seconds_of_an_outage_counts(self):
        self.assertFalse(self.missed((14, "CRITICAL")))
        self.assertTrue(self.missed((4, "CRITICAL"), (6, "WARNING"), (16, "CRITICAL"), (21, "CRITICAL")))
        self.assertTrue(self.missed((6, "CRITICAL"), outages=((5.0, 20.0), (30.0, 45.0))))
        self.assertFalse(self.missed(outages=((5.0, 14.0),)))


class Idle(unittest.TestCase):
    def test_processor_time_is_read_after_a_name_with_blanks(self):
        stat = "7 (a) b) S 1 1 1 0 -1 4194560 1 2 3 4 150 50 30 20 20 0 4 0"
        ticks = os.sysconf("SC_CLK_TCK")
        self.assertEqual(idle.processor_seconds(stat), (200 / ticks, 50 / ticks))

    def test_a_window_is_what_happened_between_two_looks(self):
        before = {"at": 100.0, "own": 1.0, "children": 2.0, "logs": 1000}
        after = {"at": 160.0, "own": 1.06, "children": 2.3, "logs": 1000 + 60000, "resident": 1000, "proportional": 500}
        found = idle.window(before, after)
        self.assertAlmostEqual(found["own"], 0.1)
        self.assertAlmostEqual(found["cpu"], 0.6)
        self.assertAlmostEqual(found["resident"], 1.024)
        self.assertAlmostEqual(found["logs"], 86.4)

    def test_a_goal_is_judged_by_the_worse_node(self):
        node = {"guard": "VelarixHA", "resident": 7, "proportional": 3, "own": 0.1, "cpu": 0.2}
        other = {**node, "own": 0.21, "cpu": 0.1}
        peer = {**node, "guard": "keepalived", "resident": 100}
        self.assertEqual([good for _, good in idle.goals({"nodes": [node, other, peer]})], [True, True, False, True])


def phase(owner, outage, **changes):
    return {"steady": True, "owner": owner, "answer": owner, "programs": owner, "outage": outage, "outageOpen": False,
            "splitBrain": 0, "noOwner": outage, "moves": 1, "noticed": 2000, "overhead": 200, "disagreements": [],
            "differences": [], **changes}


def record(run, *phases, **changes):
    return {"cell": "kill/a", "run": run, "phases": list(phases), "differences": [], **changes}


MATRIX = {
    "times": {"profile": "keeper", "interval": 1, "receivingTime": 2, "waitingTime": 0}, "runs": 2, "seed": 7, "jobs": 4, "machine": "Linux 6.1",
    "cells": [{"name": "kill/a", "note": "a note", "phases": [
        {"faults": ["program-kill:a"], "owner": "b", "path": "asked", "outageBound": 13000, "splitBrainBound": 0},
        {"faults": ["program-kill:a"], "owner": "b", "path": "none", "outageBound": 0, "splitBrainBound": None}]}],
    "paths": [{"name": "asked", "before": "2 * beat 1.5 s", "after": "count 5 s", "bound": 13000}],
    "records": [record(1, phase("b", 12200), phase("b", 0, overhead=None, noticed=None)),
                record(2, phase("a", 9000, outageOpen=True, differences=["owner a, expected b"]))]}


class Rendered(unittest.TestCase):
    def test_the_matrix_is_a_row_for_each_phase(self):
        text = render.matrix(MATRIX)
        self.assertIn(
            "| kill/a | program-kill:a | b | a 1, b 1 | a 1, b 1 | a 1, b 1 | 12.200 / 12.200 / 12.200, for good 1 | "
            "13.000 s | 0.000 / 0.000 / 0.000 | none | 10.600 / 12.200 / 12.200 | 1 | 0.200 / 0.200 / 0.200 | agrees | "
            "1 of 2 |\n|  | repaired | b | b | b | b | 0.000 / 0.000 / 0.000 | none | 0.000 / 0.000 / 0.000 | for good | "
            "0.000 / 0.000 / 0.000 | 1 | - | agrees | 1 of 2 |\n", text)
        self.assertIn("| asked | 2 * beat 1.5 s | count 5 s | 13.000 s | 2 | 2.000 / 2.000 / 2.000 | "
                      "0.200 / 0.200 / 0.200 | no |", text)
        self.assertTrue(text.endswith("\n- `kill/a`: a note\n\nNot as expected:\n\n"
                                      "- kill/a, run 2: fault: owner a, expected b\n"), text)

    def test_random_schedules_name_what_was_violated(self):
        step = {"worker": 0, "step": 1, "faults": "reboot of the master", "injected": ["reboot:a"], "recovery": 1000,
                "noAnswer": 2000, "splitBrain": 0, "violations": ["no agent on node a"]}
        text = render.chaos({"seed": 5, "good": False, "steps": [step], "problems": [
            {"worker": 3, "step": 4, "problem": "it hangs"}]})
        self.assertIn("| reboot | 1 |", text)
        self.assertIn("- worker 0, step 1 (reboot of the master): no agent on node a\n"
                      "- worker 3 did not get to its end, step 4: it hangs\n", text)

    def test_attacks_have_a_column_for_each_mitigation(self):
        during = {"outageMs": 0, "noAnswerMs": 0, "durationMs": 60000, "duplicateMs": 0, "moves": 0}
        bad = {**during, "outageMs": 5000, "noAnswerMs": 9000, "moves": 4}
        text = render.attacks([{"name": "replay/a", "mitigation": "none", "during": bad, "differences": []},
                               {"name": "replay/a", "mitigation": "firewall", "during": during, "differences": ["x"]}])
        self.assertEqual(text, "| case | none | firewall |\n| --- | --- | --- |\n"
                               "| `replay/a` | outage 9.0 s of 60.0 s, 4 moves | **not as expected** |\n")

    def test_a_p95_is_the_smallest_value_that_95_of_100_do_not_exceed(self):
        self.assertEqual(render.summary(range(1, 101)), {"count": 100, "median": 50.5, "p95": 95, "max": 100})
        self.assertIsNone(render.summary([None]))


class Soak(unittest.TestCase):
    SAMPLE = {"name": "VelarixHA", "own": 1300, "resident": 6800, "threads": 4, "descriptors": 8, "kept": 4, "zombies": [],
              "atRest": True}

    def series(self, **changes):
        """61 samples in ten minutes; a change is a value, or one for each sample."""
        return [{**self.SAMPLE, "at": 10 * i, **{key: value(i) if callable(value) else value for key, value in changes.items()}}
                for i in range(61)]

    def test_a_process_at_rest_crosses_nothing(self):
        self.assertEqual(soak.crossings(self.series(), 60), [])
        self.assertEqual(soak.crossings(self.series(own=lambda i: 1300 + 300 * (i % 2)), 60), [], "jitter")
        self.assertEqual(soak.crossings(self.series(own=lambda i: 1300 + 100 * min(i, 6)), 60), [], "the warm-up")

    def test_a_long_run_needs_an_agent_on_each_node_that_ran_long(self):
        run = soak.Soak(None, argparse.Namespace(seed=1, minutes=10, fault=["program-kill"]))
        run.series = {("a", "1"): self.series(), ("b", "2"): self.series()[:25], ("b", "3"): self.series(name="keeper")}
        self.assertEqual(run.unjudged(), ["b"])

    def test_growth_beyond_the_bound_is_found(self):
        found = soak.crossings(self.series(own=lambda i: 1300 + 2 * i), 60)
        self.assertEqual(found, ["own memory grows by 108 KiB in 9 min, allowed are 64"])
        self.assertEqual(soak.crossings(self.series(resident=lambda i: 6800 + 2 * i), 60), [])

    def test_what_an_agent_keeps_is_judged_at_rest(self):
        self.assertEqual(soak.crossings(self.series(kept=lambda i: 5 if i == 3 else 4), 60), ["at 30 s: 5 descriptors are kept"])
        self.assertEqual(soak.crossings(self.series(kept=5, threads=5, atRest=False), 60), [])
        self.assertEqual(soak.crossings(self.series(kept=10, threads=1, name="keeper"), 60), [])
        self.assertEqual(soak.crossings(self.series(threads=lambda i: 5 if i == 4 else 4), 60), ["at 40 s: 5 threads"])

    def test_descriptors_and_zombies_are_judged_at_any_time(self):
        found = soak.crossings(self.series(atRest=False, descriptors=lambda i: 33 if i == 2 else 9), 60)
        self.assertEqual(found, ["at 20 s: 33 descriptors are open"])
        stays = self.series(zombies=lambda i: ["77"] if i in (5, 6) else [])
        self.assertEqual(soak.crossings(stays, 60), ["at 60 s: a zombie stays"])
        self.assertEqual(soak.crossings(self.series(zombies=lambda i: [str(i)]), 60), [])


if __name__ == "__main__":
    unittest.main()

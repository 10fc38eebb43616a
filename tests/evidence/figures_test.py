#!/usr/bin/python3
"""What the benchmarks' tables and goals make of results, from results written out here."""

import copy
import json
import os
import pathlib
import sys
import tempfile
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
sys.path[:0] = [os.path.join(ROOT, "evidence", "scripts"), os.path.join(ROOT, "scripts", "lib")]

import bench_micro
import bench_pair
import render


def samples(*overheads):
    """Take-overs whose silent pings were 60 ms each."""
    return [{"cell": "x", "run": run, "outage": 7090, "noticed": 1500, "overhead": overhead, "pings": 60}
            for run, overhead in enumerate(overheads)]


TAKEOVER = {
    "runs": 3, "goal": 100, "times": {"profile": "keeper", "interval": 1, "receivingTime": 2, "waitingTime": 0}, "complete": True,
    "paths": [{"path": "alone", "before": "two 2 s", "after": "count 5 s", "longestBefore": 2000, "longestAfter": 5000,
               "samples": samples(90, 100, 110)}],
    "pingFloors": [{"path": "alone", "run": 1, "probes": [1050], "problem": ""}], "missed": []}


def takeover(**changes):
    found = copy.deepcopy(TAKEOVER)
    for name, value in changes.items():
        (found if name in found else found["paths"][0])[name] = value
    return found


def node(guard, name="a", **changes):
    memory = {"resident": 11718, "proportional": 5859, "ownPages": 1000}
    return {"guard": guard, "settings": "s", "node": name, "role": "master", "seconds": 60.0, "windows": 5,
            "ownCpuPerHour": 3.6, "childrenCpuPerHour": 3.6, "memory": memory, "memoryAlone": memory, **changes}


def idle(*nodes, problems=()):
    return {"goals": {"resident": 12000000, "proportional": 6000000, "cpuPercent": 0.2},
            "nodes": list(nodes), "problems": list(problems)}


ALL = (node("VelarixHA"), node("keepalived", childrenCpuPerHour=10.8), node("monit"))


class TakeoverGoals(unittest.TestCase):
    def test_pings_and_all_are_judged(self):
        self.assertEqual(bench_pair.takeover_goals(takeover()), [
            ("take-over, alone: 100 ms, median of 3 (goal ≤ 100 ms); 60 ms of it are silent pings, "
             "for which the library alone takes 50 ms as well", True)])
        self.assertEqual([good for _, good in bench_pair.takeover_goals(takeover(samples=samples(90, 101, 110)))], [False])

    def test_too_few_runs_do_not_reach_it(self):
        text, good = bench_pair.takeover_goals(takeover(samples=samples(20, 20), complete=False))[0]
        self.assertFalse(good)
        self.assertIn("only 2 of 3 runs", text)
        self.assertEqual(bench_pair.takeover_goals(takeover(samples=[], complete=False)), [
            ("take-over, alone: not measured, 0 of 3 runs", False)])

    def test_an_incomplete_campaign_does_not_reach_it(self):
        self.assertEqual(bench_pair.takeover_goals(takeover(complete=False))[-1],
                         ("take-over: the campaign is not complete", False))
        self.assertEqual(bench_pair.takeover_goals(takeover(paths=[])), [("take-over: no path was measured", False)])

    def test_a_floor_that_was_not_measured_is_a_missed_goal(self):
        floors = [{"path": "alone", "run": 1, "probes": [], "problem": "no lab"}, *TAKEOVER["pingFloors"]]
        self.assertEqual(bench_pair.takeover_goals(takeover(pingFloors=floors))[-1],
                         ("pings alone, alone: 1 of 2 runs not measured", False))

    def test_missed_runs_are_made_up_for_only_when_all_are_there(self):
        self.assertIn("2 runs gave no sample and were made up for.",
                      bench_pair.takeover_section(takeover(missed=["x", "y"])))
        self.assertIn("2 runs gave no sample; not all were made up for.",
                      bench_pair.takeover_section(takeover(missed=["x", "y"], complete=False)))

    def test_the_table_shows_the_time_until_the_decision(self):
        self.assertIn("| 1.500 / 1.500 of at most 2.0 (two 2 s) | 5.0 (count 5 s) | 100 / 110 / 110 |",
                      bench_pair.takeover_section(takeover()))


class IdleGoals(unittest.TestCase):
    def test_are_in_millions_of_bytes(self):
        self.assertEqual([good for _, good in bench_pair.idle_goals(idle(*ALL))], [True, True, True, True])
        large = {"resident": 11719, "proportional": 5860, "ownPages": 0}
        goals = bench_pair.idle_goals(idle(node("VelarixHA", memory=large), *ALL[1:]))
        self.assertEqual(goals[0], ("resident memory: 12.00 MB (goal ≤ 12 MB)", False))
        self.assertEqual(goals[1], ("proportional memory: 6.00 MB (goal ≤ 6 MB)", False))

    def test_are_of_the_worse_node(self):
        goals = bench_pair.idle_goals(idle(*ALL, node("VelarixHA", "b", childrenCpuPerHour=3.636)))
        self.assertEqual(goals[3], ("processor, with the commands it runs: 0.201 % of a core (goal ≤ 0.2 %)", False))

    def test_what_was_not_measured_is_missed(self):
        goals = bench_pair.idle_goals(idle(*ALL[:2], problems=["monit: it did not start"]))
        self.assertEqual(goals[-2:], [("idle: monit was not measured beside the agent", False),
                                      ("idle: not measured: monit: it did not start", False)])
        self.assertEqual(bench_pair.idle_goals(idle(*ALL[1:])), [("the idle pair was not measured", False)])

    def test_others_are_divided_by(self):
        self.assertIn("| master ÷ keepalived, s: master | 1.00 | 0.50 | 1.00 | 1.00 | 1.00 |",
                      bench_pair.of_others(idle(*ALL)))


class MicroResults(unittest.TestCase):
    def results(self, **times):
        """Names with "__" for the slash; a list of times, by repetition, the last one first."""
        runs = [{"run_type": "iteration", "name": f"{name.replace('__', '/').replace('_', '-')}/manual_time",
                 "repetition_index": index, "real_time": time}
                for name, values in times.items() for index, time in reversed(list(enumerate(values)))]
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "r.json")
            path.write_text(json.dumps({"benchmarks": runs}), encoding="utf-8")
            return bench_micro.Results(path)

    def check(self, agent, alone):
        times = {f"{name}__{programs}": values for programs in (1, 3, 10) for name, values in (
            ("agent", [agent] * 3), ("pgrep", [30, 50, 45]), ("pidof", [30, 50, 45]),
            ("pgrep_alone", alone), ("pidof_alone", alone))}
        return self.results(floor__0=[10, 10, 10], **times)

    def test_a_scan_is_the_median_of_the_differences(self):
        self.assertEqual(self.check(11, [20, 20, 44]).scan("pgrep", 3), 10)  # of 10, 30 and 1

    def test_a_scan_below_zero_reaches_no_goal(self):
        result = self.check(11, [30, 60, 50])
        self.assertIsNone(result.scan("pidof", 1))
        text, good = bench_micro.scan_goal(100, result)
        self.assertFalse(good)
        self.assertIn("not measurable", text)
        self.assertIn("not measurable", bench_micro.check_table({100: result}))

    def test_a_goal_just_missed_is_missed(self):
        self.assertEqual([good for _, good in bench_micro.check_goals({100: self.check(11, [20, 20, 20])})],
                         [True, True])
        self.assertEqual([good for _, good in bench_micro.check_goals({100: self.check(11.01, [20, 20, 20])})],
                         [False, True])
        self.assertFalse(bench_micro.scan_goal(100, self.check(25.01, [20, 20, 20]))[1])

    def test_a_further_program_costs_nanoseconds_a_process(self):
        result = self.results(agent__1=[100], agent__10=[190])
        self.assertAlmostEqual(bench_micro.further_program(result, 100), 100)

    def test_the_echo_is_counted_both_ways(self):
        result = self.results(log__agent=[110], log__library=[100], log__library_quiet=[80], compose__agent=[50],
                              compose__library=[50])
        self.assertAlmostEqual(bench_micro.own_part(result, "log"), 0.1)
        self.assertAlmostEqual(bench_micro.own_part(result, "log", bench_micro.QUIET), 0.375)
        self.assertIsNone(bench_micro.own_part(result, "compose", bench_micro.QUIET))

    def test_the_partners_calls_are_left_out(self):
        with tempfile.TemporaryDirectory() as folder:
            lines = ['1 write(-1, "begin pass/agent", 16) = -1', "1 listen(3, 64) = 0", '1 write(-1, "aside", 5) = -1',
                     "1 connect(4) = 0", '1 write(-1, "back", 4) = -1', "1 accept(3) = 5", '1 write(-1, "end", 3) = -1',
                     "1 close(3) = 0"]
            pathlib.Path(folder, "calls.txt").write_text("\n".join(lines), encoding="utf-8")
            counted = bench_micro.calls(pathlib.Path(folder))
        self.assertEqual(counted, {"pass/agent": {"listen": 1, "accept": 1}})


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

    def test_a_soak_shows_what_grows(self):
        samples = [{"at": index * 1800000, "atRest": True, "ownKib": 100 + index * 30, "rssKib": 7000, "pssKib": 5000,
                    "kept": 4, "descriptors": 5 + index, "threads": 4, "oldestZombie": 0, "logged": index * 1024 * 300}
                   for index in range(3)]
        text = render.soak({"duration": 3600000, "seed": 1, "faults": [{"fault": "reboot:a", "repair": False}],
                            "bounds": {"warmUp": 0}, "crossings": [],
                            "series": [{"node": "a", "pid": 42, "samples": samples}]})
        self.assertIn("| a | 42 | 3600.000 s | 3 | 100 > 160, +60.0 | 7000 > 7000, +0.0 | 5000 > 5000, +0.0 | 4 | 5-7 | 4 | "
                      "0.000 s | 10 |", text)
        self.assertTrue(text.endswith("Nothing grew beyond the bounds.\n"))

    def test_a_p95_is_the_smallest_value_that_95_of_100_do_not_exceed(self):
        self.assertEqual(render.summary(range(1, 101)), {"count": 100, "median": 50.5, "p95": 95, "max": 100})
        self.assertIsNone(render.summary([None]))


if __name__ == "__main__":
    unittest.main()

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


def summary(median, count=3):
    return {"count": count, "medianMs": median, "p95Ms": median + 10, "maxMs": median + 20}


TAKEOVER = {
    "runs": 3, "goalMs": 100, "intervalS": 1, "receivingTimeS": 2, "waitingTimeS": 0, "complete": True,
    "paths": [{"path": "alone", "before": "two 2 s", "after": "count 5 s", "beforeMs": 2000, "afterMs": 5000,
               "waitsMs": 7000, "outage": summary(7090), "noticed": summary(1500), "overhead": summary(100),
               "pings": summary(60), "pingsAlone": summary(50), "own": summary(40), "samples": []}],
    "pingFloors": [{"path": "alone", "run": 1, "probesMs": [1050], "problem": ""}], "missed": []}


def takeover(**changes):
    found = copy.deepcopy(TAKEOVER)
    for name, value in changes.items():
        (found if name in found else found["paths"][0])[name] = value
    return found


def node(guard, name="a", **changes):
    memory = {"residentKiB": 11718, "proportionalKiB": 5859, "ownPagesKiB": 1000}
    return {"guard": guard, "settings": "s", "node": name, "role": "master", "seconds": 60.0, "windows": 5,
            "cpuPercent": 0.2, "ownCpuPercent": 0.1, "memory": memory, "memoryAlone": memory, **changes}


def idle(*nodes, problems=()):
    return {"goals": {"residentBytes": 12000000, "proportionalBytes": 6000000, "cpuPercent": 0.2},
            "nodes": list(nodes), "problems": list(problems)}


ALL = (node("VelarixHA"), node("keepalived", cpuPercent=0.4), node("monit"))


class TakeoverGoals(unittest.TestCase):
    def test_pings_and_all_are_judged(self):
        self.assertEqual(bench_pair.takeover_goals(takeover()), [
            ("take-over, alone: 100 ms, median of 3 (goal ≤ 100 ms); 60 ms of it are silent pings, "
             "for which the library alone takes 50 ms as well", True)])
        self.assertEqual([good for _, good in bench_pair.takeover_goals(takeover(overhead=summary(101)))], [False])

    def test_too_few_runs_do_not_reach_it(self):
        text, good = bench_pair.takeover_goals(takeover(overhead=summary(20, count=2), complete=False))[0]
        self.assertFalse(good)
        self.assertIn("only 2 of 3 runs", text)
        self.assertEqual(bench_pair.takeover_goals(takeover(overhead=None, complete=False)), [
            ("take-over, alone: not measured, 0 of 3 runs", False)])

    def test_an_incomplete_campaign_does_not_reach_it(self):
        self.assertEqual(bench_pair.takeover_goals(takeover(complete=False))[-1],
                         ("take-over: the campaign is not complete", False))
        self.assertEqual(bench_pair.takeover_goals(takeover(paths=[])), [("take-over: no path was measured", False)])

    def test_a_floor_that_was_not_measured_is_a_missed_goal(self):
        floors = [{"path": "alone", "run": 1, "probesMs": [], "problem": "no lab"}, *TAKEOVER["pingFloors"]]
        self.assertEqual(bench_pair.takeover_goals(takeover(pingFloors=floors))[-1],
                         ("pings alone, alone: 1 of 2 runs not measured", False))

    def test_missed_runs_are_made_up_for_only_when_all_are_there(self):
        self.assertIn("2 runs gave no sample and were made up for.",
                      bench_pair.takeover_section(takeover(missed=["x", "y"])))
        self.assertIn("2 runs gave no sample; not all were made up for.",
                      bench_pair.takeover_section(takeover(missed=["x", "y"], complete=False)))

    def test_the_table_shows_the_time_until_the_decision(self):
        self.assertIn("| 1.500 / 1.510 of at most 2.0 (two 2 s) | 5.0 (count 5 s) | 100 / 110 / 120 |",
                      bench_pair.takeover_section(takeover()))


class IdleGoals(unittest.TestCase):
    def test_are_in_millions_of_bytes(self):
        self.assertEqual([good for _, good in bench_pair.idle_goals(idle(*ALL))], [True, True, True, True])
        large = {"residentKiB": 11719, "proportionalKiB": 5860, "ownPagesKiB": 0}
        goals = bench_pair.idle_goals(idle(node("VelarixHA", memory=large), *ALL[1:]))
        self.assertEqual(goals[0], ("resident memory: 12.00 MB (goal ≤ 12 MB)", False))
        self.assertEqual(goals[1], ("proportional memory: 6.00 MB (goal ≤ 6 MB)", False))

    def test_are_of_the_worse_node(self):
        goals = bench_pair.idle_goals(idle(*ALL, node("VelarixHA", "b", cpuPercent=0.201)))
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


if __name__ == "__main__":
    unittest.main()

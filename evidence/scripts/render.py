#!/usr/bin/env python3
"""Makes Markdown of what velarix-lab writes with --records, and "hostile" with --json.

    evidence/scripts/render.py FILE...
    evidence/scripts/render.py --attacks docs/security.md NONE.json FIREWALL.json ...

Times in the files are milliseconds. A phase of a run is the time in which a fault
stands (the first one) or after it was repaired (the second one).
"""

import collections
import json
import os
import statistics
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts", "lib"))

import common
from common import table

OVERHEAD_GOAL = (150, 400)  # milliseconds beyond the fixed waits: median, p95


def summary(values):
    """Median, p95 (the smallest value that 95 of 100 do not exceed) and max; None without values."""
    ordered = sorted(value for value in values if value is not None)
    if not ordered:
        return None
    return {"count": len(ordered), "median": statistics.median(ordered),
            "p95": ordered[-(-len(ordered) * 95 // 100) - 1], "max": ordered[-1]}


def figures(found):
    """median / p95 / max of a summary, in seconds, or a dash."""
    return " / ".join(f"{found[part] / 1000:.3f}" for part in ("median", "p95", "max")) if found else "-"


def spread(values):
    return figures(summary(values))


def seconds(milliseconds):
    return f"{milliseconds / 1000:.3f} s"


def count(number, word):
    return f"{number} {word}" + ("" if number == 1 else "s")


def tally(values):
    """Each value and how often it is there; without numbers when there is one value only."""
    counts = collections.Counter(values)
    parts = [value if len(counts) == 1 else f"{value} {counts[value]}" for value in sorted(counts)]
    return ", ".join(parts) or "-"


def bound(milliseconds, otherwise):
    return otherwise if milliseconds is None else seconds(milliseconds) if milliseconds else "none"


def times_text(times):
    return (f"{times['profile']} settings, interval {times['interval']} s, receiving time {times['receivingTime']} s, "
            f"waiting time {times['waitingTime']} s")


class Phases:
    """The same phase of all runs of a cell, as the columns of a table."""

    def __init__(self, records, cell, index):
        self.records = [record for record in records if record["cell"] == cell]
        self.phases = [record["phases"][index] for record in self.records if len(record["phases"]) > index]

    def values(self, part):
        return [phase[part] for phase in self.phases]

    def outage(self):
        ended = [phase["outage"] for phase in self.phases if not phase["outageOpen"]]
        still = len(self.phases) - len(ended)
        if not still:
            return spread(ended)
        return f"{spread(ended)}, for good {still}" if ended else "for good"

    def observed(self):
        """Owner, answer, programs, outage, split-brain, no owner, most moves."""
        owners = tally(phase["owner"] if phase["steady"] else "unsteady" for phase in self.phases)
        return [owners, tally(self.values("answer")), tally(self.values("programs")), self.outage(),
                spread(self.values("splitBrain")), spread(self.values("noOwner")), str(max(self.values("moves"), default=0))]

    def log(self):
        differ = sum(bool(phase["disagreements"]) for phase in self.phases)
        return f"differs {differ}" if differ else "agrees"

    def verdict(self, first):
        """Runs that do not differ here; what differs in a run as a whole counts for its first phase."""
        bad = sum(bool(phase["differences"]) for phase in self.phases)
        if first:
            bad = sum(bool(record["differences"]) or not record["phases"] or bool(record["phases"][0]["differences"])
                      for record in self.records)
            return f"{len(self.records) - bad} of {len(self.records)}"
        return f"{len(self.phases) - bad} of {len(self.records)}"


def matrix_row(found, cell, index):
    phases, expected = Phases(found["records"], cell["name"], index), cell["phases"][index]
    owner, answer, programs, outage, split, none, moves = phases.observed()
    return ["" if index else cell["name"], "repaired" if index else " ".join(expected["faults"]), expected["owner"],
            owner, answer, programs, outage, bound(expected["outageBound"], "no bound"), split,
            bound(expected["splitBrainBound"], "for good"), none, moves, spread(phases.values("overhead")), phases.log(),
            phases.verdict(not index)]


def path_rows(found):
    """One row for each path that was taken."""
    rows = []
    for path in found["paths"]:
        taken = [phase for cell in found["cells"] for index, expected in enumerate(cell["phases"])
                 if expected["path"] == path["name"]
                 for phase in Phases(found["records"], cell["name"], index).phases]
        overhead = summary(phase["overhead"] for phase in taken)
        if overhead:
            good = overhead["median"] <= OVERHEAD_GOAL[0] and overhead["p95"] <= OVERHEAD_GOAL[1]
            rows.append([path["name"], path["before"], path["after"], seconds(path["bound"]), overhead["count"],
                         spread(phase["noticed"] for phase in taken), figures(overhead), "yes" if good else "no"])
    return rows


def differences(record):
    for index, phase in enumerate(record["phases"]):
        yield from (("repaired: " if index else "fault: ") + text for text in phase["differences"])
    yield from record["differences"]


def matrix(found):
    text = (f"{times_text(found['times'])}; node a is configured as master; {count(found['runs'], 'run')} of each cell, "
            f"seed {found['seed']}, {found['jobs']} side by side; {found['machine']}.\n\n"
            "Times in seconds: median / p95 / max over the runs. Outage: longest time without an answer to the client; "
            "bound: sum of the fixed waits on the path; split-brain: time in which both nodes held the address; "
            "none: time in which nobody did.\n\n")
    text += table(["cell", "phase", "expected owner", "owner", "answer", "programs", "outage", "bound", "split-brain",
                   "bound", "none", "moves", "overhead", "log", "as expected"],
                  [matrix_row(found, cell, index) for cell in found["cells"] for index in range(len(cell["phases"]))])
    paths = path_rows(found)
    if paths:
        text += "\n" + table(["path", "waits until the decision, at most", "waits after it", "bound", "runs",
                              "until the decision", "overhead", "overhead: median <= 150 ms, p95 <= 400 ms"], paths)
    text += "".join(f"{'' if index else chr(10)}- `{cell['name']}`: {cell['note']}\n"
                    for index, cell in enumerate(cell for cell in found["cells"] if cell["note"]))
    bad = [f"- {record['cell']}, run {record['run']}: {line}\n" for record in found["records"]
           for line in differences(record)]
    return text + ("\nNot as expected:\n\n" + "".join(bad) if bad else "\nEvery run was as expected.\n")


def chaos(found):
    steps = found["steps"]
    faults = collections.Counter(name.split(":")[0] for step in steps for name in step["injected"])
    text = (f"{count(len(steps), 'step')} of faults and repairs, {sum(faults.values())} faults, seed {found['seed']}; "
            f"in {sum(not step['injected'] for step in steps)} of the steps no fault found a place (a standby runs no "
            "program to kill).\n\n")
    text += table(["each step", "median / p95 / max, s"],
                  [["from the last repair to rest", spread(step["recovery"] for step in steps)],
                   ["without an answer", spread(step["noAnswer"] for step in steps)],
                   ["split-brain", spread(step["splitBrain"] for step in steps)]])
    text += "\n" + table(["fault", "injected"], sorted(faults.items()), numbers=True)
    bad = [f"- worker {step['worker']}, step {step['step']} ({step['faults']}): {violation}\n" for step in steps
           for violation in step["violations"]]
    bad += [f"- worker {problem['worker']} did not get to its end, step {problem['step']}: {problem['problem']}\n"
            for problem in found["problems"]]
    verdict = "The invariants held after every step." if found["good"] else "The invariants did NOT hold:"
    return f"{text}\n{verdict}\n" + ("\n" + "".join(bad) if bad else "")


MITIGATIONS = ("none", "port", "firewall", "neighbours", "tunnel")
NO_OUTAGE = 1000  # milliseconds; shorter gaps are those of a busy machine


def outcome(record):
    """What the client and the address saw of one attack."""
    during = record["during"]
    parts = []
    if during["outageMs"] > NO_OUTAGE:
        parts.append(f"outage {during['noAnswerMs'] / 1000:.1f} s of {during['durationMs'] / 1000:.1f} s")
    if during["duplicateMs"] > 0:
        parts.append(f"duplicate address {during['duplicateMs'] / 1000:.1f} s")
    if during["moves"] > 0:
        parts.append(f"{during['moves']} moves")
    if record["differences"]:
        parts.append("**not as expected**")
    return ", ".join(parts) or "no outage"


def attacks(records):
    """One row for each case, one column for each mitigation that was run."""
    runs = {}
    for record in records:
        runs.setdefault(record["name"], {})[record["mitigation"]] = outcome(record)
    columns = [name for name in MITIGATIONS if any(name in run for run in runs.values())]
    return table(["case", *columns], [[f"`{name}`", *(run.get(column, "") for column in columns)]
                                      for name, run in runs.items()])


CAMPAIGNS = {"matrix": matrix, "chaos": chaos}


def main():
    parser = common.parser(__doc__, install=False)
    parser.add_argument("records", nargs="+", metavar="FILE")
    parser.add_argument("--attacks", metavar="PAGE", help="replace the table of attacks of this page")
    arguments = parser.parse_args()
    found = []
    for path in arguments.records:
        with open(path, encoding="utf-8") as handle:
            found.append(json.load(handle))
    if all(isinstance(one, list) for one in found):
        text = attacks([record for one in found for record in one])
    else:
        text = "\n".join(CAMPAIGNS[one["campaign"]](one) for one in found)
    common.tell(text, arguments.attacks, "attacks")
    return 0


if __name__ == "__main__":
    common.run_main(main)

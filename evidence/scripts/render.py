#!/usr/bin/env python3
"""Makes Markdown of what velarix-lab and velarix-evidence write with --records.

    evidence/scripts/render.py FILE

Times in the files are milliseconds. A phase of a run is the time in which a fault
stands (the first one) or after it was repaired (the second one).
"""

import collections
import json
import statistics
import sys

OVERHEAD_GOAL = (150, 400)  # milliseconds beyond the prescribed waits: median, p95


def table(titles, rows, numbers=False):
    """A Markdown table; with numbers all columns but the first are set to the right."""
    lines = [titles, ["---"] + ["---:" if numbers else "---"] * (len(titles) - 1), *rows]
    return "".join("| " + " | ".join(map(str, line)) + " |\n" for line in lines)


def summary(values):
    """Median, p95 (the smallest value that 95 of 100 do not exceed) and max; None without values."""
    ordered = sorted(value for value in values if value is not None)
    if not ordered:
        return None
    return {"count": len(ordered), "median": statistics.median(ordered),
            "p95": ordered[-(-len(ordered) * 95 // 100) - 1], "max": ordered[-1]}


def figures(found, unit=1000, digits=3):
    """median / p95 / max of a summary, in seconds, or a dash."""
    return " / ".join(f"{found[part] / unit:.{digits}f}" for part in ("median", "p95", "max")) if found else "-"


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
            "bound: sum of the prescribed waits on the path; split-brain: time in which both nodes held the address; "
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


def peers(found):
    text = (f"{count(found['runs'], 'run')} of each cell, seed {found['seed']}, {found['jobs']} side by side; "
            f"{found['machine']}. Times in seconds: median / p95 / max over the runs. Outage: longest time without an "
            "answer to the client; none: time in which nobody held the address. The managed program runs on both nodes "
            "all the time, and these programs speak on the service network: deaf and mute are one-way losses there, "
            "service-cut is what communication-cut is to the agents.\n")
    for peer in found["peers"]:
        rows = [["" if index else cell["name"], "repaired" if index else cell["fault"],
                 *Phases(peer["records"], cell["name"], index).observed()]
                for cell in found["cells"] for index in range(1 + cell["repaired"])]
        text += (f"\n### {peer['program']}, {peer['settings']}\n\n{peer['description']}.\n\n" +
                 table(["cell", "phase", "owner", "answer", "programs", "outage", "split-brain", "none", "moves"], rows))
        text += "".join(f"\nNot run to the end: {record['cell']}, run {record['run']}: {line}\n"
                        for record in peer["records"] for line in record["differences"])
    return text


def slope(samples, part):
    """"first > last, rise an hour" of the straight line through the samples."""
    if len(samples) < 3:
        return "-"
    line = statistics.linear_regression([sample["at"] / 3600000 for sample in samples],
                                        [sample[part] for sample in samples])
    return f"{samples[0][part]} > {samples[-1][part]}, {line.slope:+.1f}"


def span(values):
    values = list(values)
    return "-" if not values else f"{min(values)}" + (f"-{max(values)}" if max(values) > min(values) else "")


def soak_row(series, bounds):
    samples = series["samples"]
    late = [sample for sample in samples if sample["at"] - samples[0]["at"] >= bounds["warmUp"]]
    minutes = (samples[-1]["at"] - samples[0]["at"]) / 60000 if samples else 0
    rate = f"{(samples[-1]['logged'] - samples[0]['logged']) / 1024 / minutes:.0f}" if minutes else "-"
    return [series["node"], series["pid"], seconds(minutes * 60000), len(samples),
            *(slope(late, part) for part in ("ownKib", "rssKib", "pssKib")),
            span(sample["kept"] for sample in samples if sample["kept"] is not None),
            span(sample["descriptors"] for sample in samples),
            span(sample["threads"] for sample in samples if sample["atRest"]),
            seconds(max((sample["oldestZombie"] for sample in samples), default=0)), rate]


def soak(found):
    faults = collections.Counter(fault["fault"].split(":")[0] for fault in found["faults"] if not fault["repair"])
    text = f"A soak of {seconds(found['duration'])}, seed {found['seed']}.\n\n" + table(
        ["node", "agent", "time", "samples", "own KiB, an hour", "RSS KiB, an hour", "PSS KiB, an hour", "kept", "open",
         "threads", "zombie", "log KiB/min"], [soak_row(series, found["bounds"]) for series in found["series"]])
    text += "\n" + table(["fault", "injected"], sorted(faults.items()), numbers=True)
    return text + "\n" + ("".join(f"- {line}\n" for line in found["crossings"]) or "Nothing grew beyond the bounds.\n")


CAMPAIGNS = {"matrix": matrix, "chaos": chaos, "peers": peers, "soak": soak}


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    with open(sys.argv[1], encoding="utf-8") as handle:
        found = json.load(handle)
    if found.get("campaign") in ("takeover", "idle"):
        import bench_pair
        print(getattr(bench_pair, found["campaign"] + "_section")(found), end="")
    elif found.get("campaign") in CAMPAIGNS:
        print(CAMPAIGNS[found["campaign"]](found), end="")
    else:
        sys.exit(f"{sys.argv[1]} holds no records of a campaign")


if __name__ == "__main__":
    main()

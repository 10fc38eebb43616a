#!/usr/bin/env python3
"""Keeps a pair under faults for long and looks whether agent or keeper grow.

    sudo evidence/scripts/soak.py [--minutes 61] [--seed N] [--settings keeper|plain]
                                  [--fault NAME ...] [--restarts] [--no-install]

A fault of the random schedules is injected about once a minute and repaired. Every ten
seconds each process of agent and keeper is sampled; one that is started again begins a
new series. --restarts also draws the faults that end an agent.

Judged by a straight line through the samples after the warm-up: memory of its own
may rise by 64 KiB an hour, resident memory by 1024 (a first change of the role alone
reads in some 700), beyond twice the samples' deviation from the line. At rest the agent
keeps four descriptors (three streams and the log) and has four threads. At any time a
process has at most 32 descriptors, no zombie stays from one sample to the next, and the
log grows by at most 512 KiB a minute.

Ends with 0 when no bound was crossed, with 1 when one was, with 2 when the work could
not be done.
"""

import collections
import contextlib
import inspect
import json
import os
import random
import statistics
import sys
import time
import tomllib

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts", "lib"))
sys.dont_write_bytecode = True

import common
import pair

AGENT = "VelarixHA"
END_AGENTS = {"power-off", "reboot", "agent-kill", "agent-term", "cold-start", "cold-start-alone"}
GROWTH = {"own": 64, "resident": 1024}  # KiB an hour
KEPT, THREADS, DESCRIPTORS, LOG = 4, 4, 32, 512
FEWEST = 10  # samples after the warm-up, without which growth is not judged
LOOKS = 6


def look_around(looks):
    """Runs on a node. Prints a sample of each process of agent and keeper, and the bytes of the logs."""
    import glob, json, os, re, time  # noqa: E401

    def processes(*names):
        for path in glob.glob("/proc/[0-9]*"):
            with contextlib.suppress(OSError), open(path + "/stat") as file:
                pid, name, state, parent = re.match(r"(\d+) \((.*)\) (\S) (\d+)", file.read()).groups()
                if not names or name.startswith(names):
                    yield pid, name, state, parent

    def fields(pid, file):
        with open(f"/proc/{pid}/{file}") as lines:
            return {words[0].rstrip(":"): words[1] for words in map(str.split, lines) if len(words) > 1}

    def open_in(pid):
        found = set()
        for descriptor in glob.glob(f"/proc/{pid}/fd/*"):
            with contextlib.suppress(OSError):
                found.add((descriptor, os.readlink(descriptor)))
        return found

    watched = {pid: name for pid, name, *_ in processes("VelarixHA", "ha-", "keeper")}
    opened = {pid: [] for pid in watched}
    for _ in range(looks):
        for pid in watched:
            opened[pid].append(open_in(pid))
        time.sleep(0.29)  # no part of a second: the agent works in whole ones
    found = {}
    for pid, name in watched.items():
        with contextlib.suppress(OSError):  # one that ends meanwhile gives no sample
            memory = {key: int(value) for key, value in fields(pid, "smaps_rollup").items() if value.isdigit()}
            found[pid] = {
                "name": name, "own": memory["Anonymous"] + memory["Swap"], "resident": memory["Rss"],
                "threads": int(fields(pid, "status")["Threads"]), "descriptors": max(map(len, opened[pid])),
                # Connections and scans of /proc come and go: what each look saw is kept.
                "kept": len(set.intersection(*opened[pid])),
                "zombies": [child for child, _, state, parent in processes() if state == "Z" and parent == pid]}
    logged = sum(os.stat(file).st_size for file in glob.glob("/usr/velarix/log/*"))
    print(json.dumps({"processes": found, "logged": logged}))


ON_NODE = "import contextlib\n" + inspect.getsource(look_around) + f"look_around({LOOKS})"


def growth(series, value, per_hour):
    """What is wrong with the rise of a value; empty for nothing."""
    hours = [one["at"] / 3600 for one in series]
    values = [one[value] for one in series]
    line = statistics.linear_regression(hours, values)
    span = hours[-1] - hours[0]
    deviation = statistics.pstdev(y - line.slope * x for x, y in zip(hours, values))
    allowed = per_hour * max(1, span) + 2 * deviation
    rise = line.slope * span
    return [f"{value} memory grows by {rise:.0f} KiB in {span * 60:.0f} min, allowed are {allowed:.0f}"] if rise > allowed else []


def warm(series, warm_up):
    """The samples after the warm-up; none when growth cannot be judged by them."""
    late = [one for one in series if one["at"] - series[0]["at"] >= warm_up]
    return late if len(late) >= FEWEST else []


def crossings(series, warm_up):
    """What one process does beyond the bounds, a sentence each."""
    found = []
    agent = series[0]["name"] == AGENT
    if late := warm(series, warm_up):
        for value, per_hour in GROWTH.items():
            found += growth(late, value, per_hour)
    zombies = set()
    for one in series:
        wrong = {f"{one['descriptors']} descriptors are open": one["descriptors"] > DESCRIPTORS,
                 f"{one['kept']} descriptors are kept": agent and one["atRest"] and one["kept"] != KEPT,
                 f"{one['threads']} threads": agent and one["atRest"] and one["threads"] != THREADS,
                 "a zombie stays": bool(zombies & set(one["zombies"]))}
        found += [f"at {one['at']:.0f} s: {text}" for text, is_so in wrong.items() if is_so]
        zombies = set(one["zombies"])
    return found


class Soak:
    def __init__(self, lab, options):
        self.lab, self.options = lab, options
        self.random = random.Random(options.seed)
        self.begin = time.monotonic()
        self.series = collections.defaultdict(list)
        self.logs = collections.defaultdict(list)
        self.faults = 0
        self.at_rest_from = 0.0

    def elapsed(self):
        return time.monotonic() - self.begin

    def sample(self, node, at_rest):
        found = json.loads(self.lab.lab("exec", node, "python3", "-c", ON_NODE))
        self.logs[node].append((self.elapsed(), found["logged"]))
        for pid, one in found["processes"].items():
            self.series[node, pid].append({**one, "at": self.elapsed(), "atRest": at_rest})

    def sample_until(self, end):
        while (now := self.elapsed()) < end:
            for node in "ab":
                if self.lab.status()["nodes"][node]["on"]:
                    self.sample(node, now >= self.at_rest_from)
            time.sleep(max(0.0, min(10 - (self.elapsed() - now), end - self.elapsed())))

    def step(self):
        fault, node = self.random.choice(self.options.fault), self.random.choice("ab")
        end = self.elapsed() + self.random.uniform(1, self.options.period / 2)
        self.at_rest_from = self.options.minutes * 60 + 1
        try:
            self.lab.lab("inject", fault, node)
            self.faults += 1
            print(f"[{self.elapsed():.0f} s] {fault} on {node}", file=sys.stderr, flush=True)
        except common.Unusable as problem:
            print(f"[{self.elapsed():.0f} s] {fault} has no place: {problem}", file=sys.stderr, flush=True)
        self.sample_until(end)
        try:
            self.lab.lab("repair", fault, node)
        except common.Unusable:
            pass  # it repairs itself
        self.at_rest_from = self.elapsed() + 15

    def run(self):
        total = self.options.minutes * 60
        while self.elapsed() < total:
            begun = self.elapsed()
            self.sample_until(min(total, begun + self.options.period / 2))
            if self.elapsed() < total - self.options.period / 2:
                self.step()

    def warm_up(self):
        return min(600, self.options.minutes * 20)

    def unjudged(self):
        """The nodes without an agent's series long enough to judge growth by."""
        return [node for node in "ab" if not any(
            where == node and series[0]["name"] == AGENT and warm(series, self.warm_up())
            for (where, _), series in self.series.items())]

    def judge(self):
        found = []
        warm_up = self.warm_up()
        if self.options.minutes >= 10 and not END_AGENTS & set(self.options.fault):
            found += [f"node {node}: no agent ran long enough for its growth to be judged" for node in self.unjudged()]
        for (node, pid), series in self.series.items():
            found += [f"node {node}, {series[0]['name']} {pid}: {text}" for text in crossings(series, warm_up)]
        for node in "ab":
            (begin, first), (end, last) = self.logs[node][0], self.logs[node][-1]
            # A start writes more lines than the minutes after it.
            if (last - first) / 1024 > LOG * max(1, (end - begin) / 60):
                found.append(f"node {node}: the logs grow by {(last - first) / 1024:.0f} KiB in {end - begin:.0f} s")
            agents = [series for (where, _), series in self.series.items() if where == node and series[0]["name"] == AGENT]
            if max((len(series) for series in agents), default=0) < FEWEST // 2:
                found.append(f"node {node}: no series is long enough to be judged")
        fewest = max(1, int(self.options.minutes * 60 / self.options.period / 2))
        if self.faults < fewest:
            found.append(f"only {self.faults} faults were injected, expected are at least {fewest}")
        owner = self.lab.observe(self.lab.status()["upMs"], 5)["owner"]
        if owner not in ("a", "b"):
            found.append(f"at the end the owner of the address is {owner}")
        return found

    def summary(self):
        for (node, pid), series in sorted(self.series.items()):
            first, last = series[0], series[-1]
            print(f"node {node}, {first['name']} {pid}: {len(series)} samples in {last['at'] - first['at']:.0f} s, own memory "
                  f"{first['own']} > {last['own']} KiB, resident {first['resident']} > {last['resident']} KiB, "
                  f"{last['threads']} threads, {last['kept']} descriptors kept")


def options():
    parser = common.parser(__doc__)
    parser.add_argument("--minutes", type=float, default=61)
    parser.add_argument("--period", type=float, default=60, help="seconds between faults")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--settings", choices=("keeper", "plain"), default="keeper")
    parser.add_argument("--fault", action="append")
    parser.add_argument("--restarts", action="store_true")
    given = parser.parse_args()
    with open(os.path.join(common.ROOT, "lab", "tables", "faults.toml"), "rb") as file:
        table = tomllib.load(file)
    drawn = table["chaos"] + (table["chaos_keeper"] if given.settings == "keeper" else [])
    given.fault = given.fault or [fault for fault in drawn if given.restarts or fault not in END_AGENTS]
    return given


def main():
    given = options()
    pair.prepare(given.no_install)
    with pair.Pair(f"soak-{os.getpid()}", words=["--settings", given.settings]) as lab:
        soak = Soak(lab, given)
        soak.run()
        found = soak.judge()
    soak.summary()
    growth_of = f"; growth not judged on node {' and '.join(soak.unjudged())}" if soak.unjudged() else ""
    print("\n".join(found) or f"nothing crossed the bounds{growth_of}; {soak.faults} faults")
    return 1 if found else 0


if __name__ == "__main__":
    common.run_main(main)

"""The micro benchmarks: one check of the processes, the steps of a heartbeat."""

import collections
import json
import os
import re
import statistics
import subprocess

from common import ROOT, Unusable

TARGETS = ["velarix-bench-check", "velarix-bench-heartbeat"]
PROGRAMS = (1, 3, 10)
CHECK_GOAL = 1.10      # of the floor's time, with three programs
OWN_PART_GOAL = 0.10   # over the library's cost
STEPS = {
    "compose": "compose the message (with the run-info record read)",
    "send": "send: connect, compose, write, close, log one line",
    "receive": "receive: accept, read, log, decide, read the end, close",
    "decide": "decide: split, compare, log three lines",
    "log": "one log line",
    "log-echoed": "one log line with its echo on the console",
    "record": "rewrite the run-info record and log it",
    "card": "look at a card's carrier through a command",
}
HEARTBEAT = [step for step in STEPS if step != "card"]  # a command is another matter: it hides the rest


def crowds(quick):
    return (100, 300) if quick else (100, 1000, 5000)


def program(name):
    return os.path.join(ROOT, "build", "bench", "bench", name)


def measure(name, words, output, repetitions, least):
    """Runs one benchmark program; its contenders take turns at random."""
    command = [program(name), *words, f"--benchmark_repetitions={repetitions}", f"--benchmark_min_time={least}",
               "--benchmark_enable_random_interleaving=true", f"--benchmark_out={output}"]
    if subprocess.run(command, stdout=subprocess.DEVNULL).returncode != 0:
        raise Unusable(f"{' '.join(command)} failed, see above")


def run(folder, quick):
    # A repetition of a step takes a millisecond, so many of them cost little.
    least, steps = (0.002, 21) if quick else (0.01, 301)
    for processes in crowds(quick):
        measure("velarix-bench-check", [str(processes)], folder / f"check-{processes}.json",
                3 if quick else 15 if processes > 1000 else 31, least)
    measure("velarix-bench-heartbeat", [], folder / "heartbeat.json", steps, least)
    trace = ["strace", "-f", "-o", str(folder / "calls.txt"), program("velarix-bench-heartbeat"), "--calls"]
    if subprocess.run(trace, stdout=subprocess.DEVNULL).returncode != 0:
        raise Unusable(f"{' '.join(trace)} failed, see above")
    (folder / "micro.json").write_text(json.dumps({"quick": quick}), encoding="utf-8")


class Results:
    """What one benchmark program wrote: for each contender its times and its counters."""

    def __init__(self, path):
        if not path.exists():
            raise Unusable(f"there are no results in {path}; leave --tell out")
        self.times = collections.defaultdict(list)
        self.counters = {}
        for run_ in json.loads(path.read_text(encoding="utf-8"))["benchmarks"]:
            if run_["run_type"] != "iteration":
                continue
            if run_.get("error_occurred"):
                raise Unusable(f"{path}: {run_['name']}: {run_['error_message']}")
            name = re.sub(r"(/iterations:\d+)?/manual_time$", "", run_["name"])
            self.times[name].append(run_["real_time"] / run_.get("runs", 1))
            self.counters[name] = run_

    def __contains__(self, name):
        return name in self.times

    def median(self, name):
        """Microseconds."""
        return statistics.median(self.times[name])

    def spread(self, name):
        """Half the distance of the quartiles, as a part of the median."""
        quartiles = statistics.quantiles(self.times[name], n=4)
        return (quartiles[2] - quartiles[0]) / 2 / self.median(name)

    def scan(self, tool, programs):
        """What the tool takes for the processes: all of it less what it takes where nobody is."""
        return self.median(f"{tool}/{programs}") - self.median(f"{tool}-alone/{programs}")


def quick(folder):
    return json.loads((folder / "micro.json").read_text(encoding="utf-8"))["quick"]


def check_results(folder):
    return {processes: Results(folder / f"check-{processes}.json") for processes in crowds(quick(folder))}


def table(head, rows):
    lines = [head, ["---"] + ["---:"] * (len(head) - 1), *rows]
    return "".join("| " + " | ".join(line) + " |\n" for line in lines)


def check_table(results):
    head = ["processes", "programs", "agent", "spread", "÷ floor", "÷ pgrep's scan", "÷ pidof's scan", "÷ pgrep whole",
            "÷ pidof whole"]
    rows = []
    for processes, result in results.items():
        for programs in PROGRAMS:
            agent = result.median(f"agent/{programs}")
            others = [result.median("floor/0"), result.scan("pgrep", programs), result.scan("pidof", programs),
                      result.median(f"pgrep/{programs}"), result.median(f"pidof/{programs}")]
            rows.append([f"{processes:,}", str(programs), f"{agent / 1000:.2f} ms",
                         f"±{result.spread(f'agent/{programs}'):.0%}", *(f"{agent / other:.2f}" for other in others)])
    return table(head, rows)


def check_goals(results):
    """The goals of the check as (text, reached)."""
    goals = []
    for processes, result in results.items():
        ratio = result.median("agent/3") / result.median("floor/0")
        goals.append((f"{processes:,} processes, 3 programs: {ratio:.2f} × the floor (goal ≤ {CHECK_GOAL:.2f})",
                      ratio <= CHECK_GOAL))
        slowest = max(result.median(f"agent/{programs}") / result.scan(tool, programs)
                      for programs in PROGRAMS for tool in ("pgrep", "pidof"))
        goals.append((f"{processes:,} processes: at most {slowest:.2f} × a tool's own scan (goal ≤ 1.00)",
                      slowest <= 1))
    return goals


def growth_table(results):
    """Microseconds for each process: what a process costs, whatever else there is."""
    head = ["processes", *(f"{programs} program" + "s" * (programs > 1) for programs in PROGRAMS), "floor",
            "floor with streams"]
    names = [*(f"agent/{programs}" for programs in PROGRAMS), "floor/0", "streams/0"]
    rows = [[f"{processes:,}", *(f"{result.median(name) / processes:.2f} µs" for name in names)]
            for processes, result in results.items()]
    return table(head, rows)


def before_and_after(results, heartbeat):
    rows = []
    for processes, result in results.items():
        for programs in PROGRAMS:
            rows.append([f"check of {processes:,} processes, {programs} program" + "s" * (programs > 1),
                         f"{result.median(f'agent/{programs}') / result.median(f'earlier/{programs}'):.2f}"])
    for step in STEPS:
        if f"{step}/earlier" in heartbeat:
            ratio = heartbeat.median(f"{step}/agent") / heartbeat.median(f"{step}/earlier")
            rows.append([STEPS[step], f"{ratio:.2f}"])
    return table(["now ÷ earlier", "ratio"], rows)


def calls(folder):
    """For each contender the system calls of one run, by name: {"send/agent": Counter}."""
    counted = {}
    current = None
    with open(folder / "calls.txt", encoding="utf-8", errors="replace") as trace:
        for line in trace:
            found = re.match(r'\d+ +(\w+)\((-1, "(begin|warm-up|end) ?([\w/-]*)")?', line)
            if not found:
                continue
            if found.group(2):
                current = counted.setdefault(found.group(4), collections.Counter()) if found.group(3) == "begin" else None
            elif current is not None:
                current[found.group(1)] += 1
    if not counted:
        raise Unusable(f"{folder / 'calls.txt'} shows no marks: did strace run?")
    return counted


def own_part(heartbeat, step):
    return heartbeat.median(f"{step}/agent") / heartbeat.median(f"{step}/library") - 1


def heartbeat_table(heartbeat, counted):
    head = ["step", "agent", "spread", "own part", "allocations (library)", "system calls (library)"]
    rows = []
    for step, text in STEPS.items():
        allocations = [round(heartbeat.counters[f"{step}/{who}"]["allocations"]) for who in ("agent", "library")]
        numbers = [sum(counted[f"{step}/{who}"].values()) for who in ("agent", "library")]
        rows.append([text, f"{heartbeat.median(f'{step}/agent'):.1f} µs", f"±{heartbeat.spread(f'{step}/agent'):.0%}",
                     f"{own_part(heartbeat, step):+.1%}", f"{allocations[0]} ({allocations[1]})",
                     f"{numbers[0]} ({numbers[1]})"])
    return table(head, rows)


def calls_table(counted):
    rows = [[STEPS[step].split(":")[0].split(" (")[0],
             ", ".join(name + (f" × {number}" if number > 1 else "")
                       for name, number in counted[f"{step}/agent"].most_common())] for step in HEARTBEAT]
    return table(["step of the agent", "system calls"], rows).replace("---:", "---")


def heartbeat_goals(heartbeat):
    return [(f"{STEPS[step].split(':')[0]}: {own_part(heartbeat, step):+.1%} over the library (goal ≤ +10 %)",
             own_part(heartbeat, step) <= OWN_PART_GOAL) for step in HEARTBEAT]


def goals(folder):
    return check_goals(check_results(folder)) + heartbeat_goals(Results(folder / "heartbeat.json"))


def tell(folder):
    results, heartbeat, counted = check_results(folder), Results(folder / "heartbeat.json"), calls(folder)
    told = "".join(f"- {'reached' if reached else '**missed**'}: {text}\n" for text, reached in goals(folder))
    return "\n".join([
        "### One check of the managed processes\n", check_table(results),
        "![Time of one check against the number of processes, and how many times the floor it takes with 1 to 10 "
        "programs, before and now](performance-check.svg)\n",
        "For each process of the machine:\n", growth_table(results),
        "### A heartbeat\n", heartbeat_table(heartbeat, counted),
        "![Each step of a heartbeat: the library's cost and the agent's own part](performance-heartbeat.svg)\n",
        calls_table(counted),
        "### Before and after\n", before_and_after(results, heartbeat),
        "### Goals\n", told])


def draw(folder, pictures):
    """Writes performance-check.svg and performance-heartbeat.svg into the folder `pictures`."""
    import bench_plots  # needs a package that the other parts do without

    bench_plots.growth(check_results(folder), PROGRAMS, pictures / "performance-check.svg")
    bench_plots.own_parts(Results(folder / "heartbeat.json"), HEARTBEAT, pictures / "performance-heartbeat.svg")

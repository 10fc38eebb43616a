"""The micro benchmarks: one check of the processes, the steps of a heartbeat."""

import collections
import json
import os
import re
import statistics
import subprocess

import render
from common import ROOT, Unusable

TARGETS = ["velarix-bench-check", "velarix-bench-heartbeat"]
PROGRAMS = (1, 3, 10)
CHECK_GOAL = 1.10      # of the floor's time, with three programs
OWN_PART_GOAL = 0.10   # over the library's cost
QUIET = "library-quiet"  # the library's calls without the echo on the console
STEPS = {
    "compose": "compose the message (with the run-info record read)",
    "send": "send: connect, compose, write, close, log one line",
    "receive": "receive: accept, read, log, decide, read the end, close",
    "pass": "pass: all of the receiver's pass but pings: listen, poll, receive, drop the socket, log",
    "decide": "decide: split, compare, log three lines",
    "log": "one log line",
    "log-echoed": "one log line with its echo on the console",
    "record": "rewrite the run-info record and log it",
    "card": "look at a card's carrier through a command (not judged)",
}
HEARTBEAT = [step for step in STEPS if step != "card"]  # a command is another matter: it hides the rest


def crowds(quick):
    return (100, 300) if quick else (100, 1000, 5000)


def program(name):
    return os.path.join(ROOT, "build", "evidence", "evidence", "bench", name)


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
            raise Unusable(f"there are no results in {path}; leave --render out")
        self.times = collections.defaultdict(list)  # by repetition
        self.counters = {}
        runs = json.loads(path.read_text(encoding="utf-8"))["benchmarks"]
        for run_ in sorted(runs, key=lambda one: one.get("repetition_index", 0)):
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
        """What the tool takes for the processes: all of it less what it takes where nobody is.

        The median of the differences, repetition by repetition; None when it is not above
        zero, for then the scan is lost in what starting the tool takes.
        """
        pairs = zip(self.times[f"{tool}/{programs}"], self.times[f"{tool}-alone/{programs}"], strict=True)
        middle = statistics.median(whole - alone for whole, alone in pairs)
        return middle if middle > 0 else None


def quick(folder):
    return json.loads((folder / "micro.json").read_text(encoding="utf-8"))["quick"]


def check_results(folder):
    return {processes: Results(folder / f"check-{processes}.json") for processes in crowds(quick(folder))}


def check_table(results):
    head = ["processes", "programs", "agent", "spread", "÷ floor", "÷ pgrep's scan", "÷ pidof's scan", "÷ pgrep whole",
            "÷ pidof whole"]
    rows = []
    for processes, result in results.items():
        for programs in PROGRAMS:
            agent = result.median(f"agent/{programs}")
            others = [result.median("floor/0"), result.scan("pgrep", programs), result.scan("pidof", programs),
                      result.median(f"pgrep/{programs}"), result.median(f"pidof/{programs}")]
            ratios = [f"{agent / other:.2f}" if other else "not measurable" for other in others]
            rows.append([f"{processes:,}", str(programs), f"{agent / 1000:.2f} ms",
                         f"±{result.spread(f'agent/{programs}'):.0%}", *ratios])
    return render.table(head, rows, numbers=True)


def check_goals(results):
    """The goals of the check as (text, reached)."""
    goals = []
    for processes, result in results.items():
        ratio = result.median("agent/3") / result.median("floor/0")
        goals.append((f"{processes:,} processes, 3 programs: {ratio:.2f} × the floor (goal ≤ {CHECK_GOAL:.2f})",
                      ratio <= CHECK_GOAL))
        goals.append(scan_goal(processes, result))
    return goals


def scan_goal(processes, result):
    scans = {(tool, programs): result.scan(tool, programs) for programs in PROGRAMS for tool in ("pgrep", "pidof")}
    lost = [f"{tool} with {programs}" for (tool, programs), scan in scans.items() if scan is None]
    if lost:
        return f"{processes:,} processes: a tool's own scan is not measurable ({', '.join(lost)})", False
    slowest = max(result.median(f"agent/{programs}") / scan for (_, programs), scan in scans.items())
    return f"{processes:,} processes: at most {slowest:.2f} × a tool's own scan (goal ≤ 1.00)", slowest <= 1


def growth_table(results):
    """What a process costs, whatever else there is, and what one more program adds to that."""
    head = ["processes", *(f"{programs} program" + "s" * (programs > 1) for programs in PROGRAMS), "floor",
            "floor with streams", "each further program"]
    names = [*(f"agent/{programs}" for programs in PROGRAMS), "floor/0", "streams/0"]
    rows = [[f"{processes:,}", *(f"{result.median(name) / processes:.2f} µs" for name in names),
             f"{further_program(result, processes):.0f} ns"] for processes, result in results.items()]
    return render.table(head, rows, numbers=True)


def further_program(result, processes):
    """Nanoseconds that one more program adds for each process: growth is processes × programs."""
    fewest, most = PROGRAMS[0], PROGRAMS[-1]
    difference = result.median(f"agent/{most}") - result.median(f"agent/{fewest}")
    return difference * 1000 / (most - fewest) / processes


def growth_text(results):
    parts = [result.median(f"agent/{PROGRAMS[-1]}") / result.median(f"agent/{PROGRAMS[0]}") - 1
             for result in results.values()]
    return (f"With {PROGRAMS[-1]} programs a check takes {min(parts):+.1%} to {max(parts):+.1%} beyond what it takes with "
            f"{PROGRAMS[0]}.\n")


def calls(folder):
    """For each contender the system calls of one run, by name: {"send/agent": Counter}."""
    counted = {}
    current = None
    away = False
    with open(folder / "calls.txt", encoding="utf-8", errors="replace") as trace:
        for line in trace:
            found = re.match(r'\d+ +(\w+)\((-1, "(begin|warm-up|end|aside|back) ?([\w/-]*)")?', line)
            if not found:
                continue
            if found.group(3) in ("aside", "back"):
                away = found.group(3) == "aside"  # the partner's calls, not the contender's
            elif found.group(2):
                current = counted.setdefault(found.group(4), collections.Counter()) if found.group(3) == "begin" else None
            elif current is not None and not away:
                current[found.group(1)] += 1
    if not counted:
        raise Unusable(f"{folder / 'calls.txt'} shows no marks: did strace run?")
    return counted


def own_part(heartbeat, step, library="library"):
    """What the agent takes over the library's cost, as a part of it; None when that was not measured apart."""
    name = f"{step}/{library}"
    return heartbeat.median(f"{step}/agent") / heartbeat.median(name) - 1 if name in heartbeat else None


def percent(part):
    return "-" if part is None else f"{part:+.1%}"


def heartbeat_table(heartbeat, counted):
    head = ["step", "agent", "spread", "own part", "with the echo in it", "allocations (library)", "system calls (library)"]
    rows = []
    for step, text in STEPS.items():
        allocations = [round(heartbeat.counters[f"{step}/{who}"]["allocations"]) for who in ("agent", "library")]
        numbers = [sum(counted[f"{step}/{who}"].values()) for who in ("agent", "library")]
        rows.append([text, f"{heartbeat.median(f'{step}/agent'):.1f} µs", f"±{heartbeat.spread(f'{step}/agent'):.0%}",
                     percent(own_part(heartbeat, step)), percent(own_part(heartbeat, step, QUIET)),
                     f"{allocations[0]} ({allocations[1]})",
                     f"{numbers[0]} ({numbers[1]})"])
    return render.table(head, rows, numbers=True)


def calls_table(counted):
    rows = [[short(step),
             ", ".join(name + (f" × {number}" if number > 1 else "")
                       for name, number in counted[f"{step}/agent"].most_common())] for step in HEARTBEAT]
    return render.table(["step of the agent", "system calls"], rows)


def heartbeat_goals(heartbeat):
    """Each step's goal, and once more with the echo of its lines counted as the agent's own, where it has any."""
    goals = []
    for library, words in (("library", ""), (QUIET, ", its echo counted as the agent's own")):
        for step in HEARTBEAT:
            part = own_part(heartbeat, step, library)
            if part is not None:
                goals.append((f"{short(step)}: {percent(part)} over the library{words} (goal ≤ +10 %)",
                              part <= OWN_PART_GOAL))
    return goals


def short(step):
    return STEPS[step].split(":")[0].split(" (")[0]


def log_table(heartbeat):
    """One line against the bare file channel, which writes a text that is ready."""
    rows = []
    for step in ("log", "log-echoed"):
        channel = heartbeat.median(f"{step}/file-channel")
        chain = f"{step}/{QUIET}" if f"{step}/{QUIET}" in heartbeat else f"{step}/library"
        rows.append([STEPS[step], f"{channel:.1f} µs", f"{heartbeat.median(chain) / channel:.2f}",
                     f"{heartbeat.median(f'{step}/agent') / channel:.2f}"])
    return render.table(["step", "file channel alone", "library's chain ÷ file channel", "agent ÷ file channel"], rows, True)


def goals(folder):
    return check_goals(check_results(folder)) + heartbeat_goals(Results(folder / "heartbeat.json"))


def text(folder):
    results, heartbeat, counted = check_results(folder), Results(folder / "heartbeat.json"), calls(folder)
    verdicts = "".join(f"- {'reached' if reached else '**missed**'}: {goal}\n" for goal, reached in goals(folder))
    return "\n".join([
        "### One check of the managed processes\n", check_table(results),
        "![Time of one check against the number of processes, and how many times the floor it takes with 1 to 10 "
        "programs](performance-check.svg)\n",
        "For each process of the machine:\n", growth_table(results), growth_text(results),
        "### A heartbeat\n", heartbeat_table(heartbeat, counted),
        "![Each step of a heartbeat: the library's cost and the agent's own part](performance-heartbeat.svg)\n",
        "One log line beside the library's file channel, which is given the text as it stands in the file. The "
        "formatting is the library's as well, so what is judged is the own part over the whole chain.\n",
        log_table(heartbeat), calls_table(counted),
        "### Goals\n", verdicts])


def draw(folder, pictures):
    """Writes performance-check.svg and performance-heartbeat.svg into the folder `pictures`."""
    import bench_plots  # needs a package that the other parts do without

    bench_plots.growth(check_results(folder), PROGRAMS, pictures / "performance-check.svg")
    bench_plots.own_parts(Results(folder / "heartbeat.json"), HEARTBEAT, pictures / "performance-heartbeat.svg")

"""The pair in the lab: take-overs beyond their prescribed waits, and what idle guards cost."""

import json
import os
import subprocess
import sys

import pair_pictures
import render
from common import ROOT, Unusable

TARGETS = ["velarix-evidence"]
LAB = os.path.join(ROOT, "build", "evidence", "evidence", "velarix-evidence")
AGENT = "VelarixHA"
OTHERS = ("keepalived", "monit")


def lab(*words):
    """Runs velarix-evidence; it ends with 1 when something could not be measured, which its results tell."""
    command = [LAB, *map(str, words)]
    if subprocess.run(command, stdout=sys.stderr).returncode not in (0, 1):
        raise Unusable(f"{' '.join(command)} failed, see above")


def run(folder, quick):
    """Some 18 minutes on two processors; most of it is waiting."""
    few = ["--runs", 2, "--jobs", 4, "--only", "alone", "--only", "reboot"]
    many = ["--runs", 30, "--jobs", 20]
    lab("takeover", *(few if quick else many), "--records", folder / "takeover.json")
    seconds, windows = (5, 2) if quick else (60, 5)
    lab("idle", "--seconds", seconds, "--windows", windows, "--records", folder / "idle.json")


def results(folder, name):
    path = folder / f"{name}.json"
    if not path.exists():
        raise Unusable(f"{path} is not there: run the part first")
    return json.loads(path.read_text(encoding="utf-8"))


def goals(folder):
    """The goals of both parts as (text, reached)."""
    return takeover_goals(results(folder, "takeover")) + idle_goals(results(folder, "idle"))


def text(folder):
    return takeover_section(results(folder, "takeover")) + "\n" + idle_section(results(folder, "idle"))


def draw(folder, pictures):
    """Writes performance-takeover.svg and performance-idle.svg into the folder `pictures`."""
    (pictures / "performance-takeover.svg").write_text(
        pair_pictures.takeover_svg(results(folder, "takeover")), encoding="utf-8")
    (pictures / "performance-idle.svg").write_text(
        pair_pictures.idle_svg(results(folder, "idle"), idle_name), encoding="utf-8")


def goal_list(all_goals):
    return "".join(f"- {'reached' if good else '**missed**'}: {text}\n" for text, good in all_goals)


def figures(found):
    """median / p95 / max in milliseconds, or a dash."""
    return render.figures(found, 1, 0)


def own(sample):
    """What is neither a prescribed wait nor the library's wait for answers."""
    return sample["overhead"] - sample["pings"]


def figures_of(path, found):
    """The path's summaries; the pings alone are what all probes of a run lasted beyond a second each."""
    samples = path["samples"]
    alone = [sum(probe - 1000 for probe in floor["probes"]) for floor in found["pingFloors"]
             if floor["path"] == path["path"] and floor["probes"]]
    return {**{part: render.summary(sample[part] for sample in samples)
               for part in ("outage", "noticed", "overhead", "pings")},
            "own": render.summary(map(own, samples)), "pingsAlone": render.summary(alone)}


def floor_problems(found):
    """For each path on which pings alone could not all be measured, (path, how many, of how many)."""
    paths = dict.fromkeys(floor["path"] for floor in found["pingFloors"])
    counts = [(path, sum(floor["path"] == path and bool(floor["problem"]) for floor in found["pingFloors"]),
               sum(floor["path"] == path for floor in found["pingFloors"])) for path in paths]
    return [count for count in counts if count[1]]


def takeover_goal(path, found):
    """One path's goal as (text, reached): what an outage lasted beyond the waits, pings and all."""
    goal, wanted, measured = found["goal"], found["runs"], figures_of(path, found)
    beyond, pings, alone = (measured[part] for part in ("overhead", "pings", "pingsAlone"))
    name = f"take-over, {path['path']}"
    if not beyond:
        return f"{name}: not measured, 0 of {wanted} runs", False
    text = f"{name}: {beyond['median']:.0f} ms, median of {beyond['count']} (goal ≤ {goal} ms)"
    if pings["median"] > 0:
        text += f"; {pings['median']:.0f} ms of it are silent pings"
        if alone:
            text += f", for which the library alone takes {alone['median']:.0f} ms as well"
    if beyond["count"] < wanted:
        return f"{text}; only {beyond['count']} of {wanted} runs", False
    return text, beyond["median"] <= goal


def takeover_goals(found):
    all_goals = [takeover_goal(path, found) for path in found["paths"]]
    if not all_goals:
        all_goals.append(("take-over: no path was measured", False))
    all_goals += [(f"pings alone, {path}: {bad} of {number} runs not measured", False)
                  for path, bad, number in floor_problems(found)]
    if not found["complete"] and all(good for _, good in all_goals):
        all_goals.append(("take-over: the campaign is not complete", False))
    return all_goals


def noticed(path, found):
    """Seconds until the decision, median / p95, and what the waits before it are at most."""
    if not found:
        return "-"
    return (f"{found['median'] / 1000:.3f} / {found['p95'] / 1000:.3f} of at most "
            f"{path['longestBefore'] / 1000:.1f} ({path['before']})")


def takeover_rows(found):
    rows = []
    for path in found["paths"]:
        measured = figures_of(path, found)
        rows.append([f"`{path['path']}`", f"{len(path['samples'])} of {found['runs']}",
                     render.figures(measured["outage"]), noticed(path, measured["noticed"]),
                     f"{path['longestAfter'] / 1000:.1f} ({path['after']})",
                     *(figures(measured[part]) for part in ("overhead", "pings", "pingsAlone", "own")),
                     "yes" if takeover_goal(path, found)[1] else "no"])
    return rows


def missed_text(found):
    if not found["missed"]:
        return []
    text = f"{len(found['missed'])} runs gave no sample"
    return [text + (" and were made up for." if found["complete"] else "; not all were made up for."), ""]


def takeover_section(found):
    lines = [
        "### Take-over: beyond the prescribed waits", "",
        "What an outage lasted beyond the waits that the agent prescribes, for each way on which the service "
        "comes back. The waits are those of the settings (interval "
        f"{found['times']['interval']} s, receiving time {found['times']['receivingTime']} s, waiting time "
        f"{found['times']['waitingTime']} s), the agent's own pauses and countdown, and one second for every probe "
        "that nobody answers. Median / p95 / max.", "",
        render.table(["path", "runs", "outage, s", "until the decision, s (median / p95)", "waits after it, s", "beyond, ms",
               "of it pings, ms", "pings alone, ms", "own part, ms", f"median beyond at most {found['goal']} ms"],
              takeover_rows(found), numbers=True),
        "- *Until the decision*: from the first request without an answer. Something fails at any moment of a pause "
        "or of a receiving time, so what passes before the decision has no fixed length, but a longest one.",
        "- *Beyond*: what passed from the decision until the answer, less the waits after it, and what passed before "
        "the decision beyond the longest that the waits there can take. Whatever is shorter than that longest counts "
        "as prescribed, also where the agent's own work is in it: only the column before shows it. Where the decision "
        "ends a whole pass of the agent, the time before it is counted from the beginning of the pass that the "
        "failure met. What the lab itself takes to bring the failure about is left out of *beyond*.",
        "- *Pings*: what the silent probes of the deciding node lasted beyond a second each, seen in its log "
        "(within 20 ms a probe). Ten pings are waited for 100 ms each by the library; every error that the kernel "
        "makes up, once it has found that nobody answers for an address, makes it wait anew.",
        "- *Pings alone*: the same for a program that does nothing but ping, in the same situation, without an "
        "agent: the library's floor.",
        "- *Own part*: beyond, less the pings. It holds everything else: the agent's work, shell, `ifconfig`, the "
        "configured commands, the start of the programs, the first request, and the lab's own 20 ms. It explains "
        "the goal and is not what is judged: that is *beyond*, pings and all.", "",
        *missed_text(found)]
    lines += ["![What each take-over lasted beyond its waits, path by path](performance-takeover.svg)", "",
              goal_list(takeover_goals(found))]
    return "\n".join(lines)


def own_cpu_percent(node):
    """Of a processor."""
    return node["ownCpuPerHour"] / 36


def cpu_percent(node):
    """The same, children included."""
    return (node["ownCpuPerHour"] + node["childrenCpuPerHour"]) / 36


def idle_name(node):
    return f"{node['guard']}, {node['settings']}: {node['role']}"


def idle_rows(found):
    rows = []
    for node in found["nodes"]:
        alone = node["memoryAlone"]
        rows.append([
            idle_name(node), f"{cpu_percent(node):.3f}",
            f"{node['leastCpu']:.3f} to {node['mostCpu']:.3f}",
            f"{node['ownCpuPerHour']:.1f} + {node['childrenCpuPerHour']:.1f}",
            megabytes(node["memory"]["resident"]), megabytes(node["memory"]["proportional"]),
            megabytes(alone["proportional"]) if alone else "-",
            f"{node['processes']} / {node['threads']}", f"{node['wakeUps']:.1f}",
            f"{node['newProcesses']:.2f}", packets(node["cards"][0]), packets(node["cards"][1]),
            f"{node['logPerDay'] / 1e6:.1f} + {node['consolePerDay'] / 1e6:.1f}"])
    return rows


def megabytes(kibibytes):
    """Millions of bytes."""
    return f"{kibibytes * 1024 / 1e6:.1f}"


def of_others(found):
    """For each node of the agent what it takes, divided by what the others' node in that place takes."""
    rows = []
    for node in found["nodes"]:
        for other in found["nodes"]:
            if node["guard"] != AGENT or other["guard"] not in OTHERS or other["node"] != node["node"]:
                continue
            values = [(own_cpu_percent(node), own_cpu_percent(other)), (cpu_percent(node), cpu_percent(other)),
                      *((node["memory"][part], other["memory"][part]) for part in ("resident", "proportional")),
                      *([(node["memoryAlone"]["proportional"], other["memoryAlone"]["proportional"])]
                        if node["memoryAlone"] and other["memoryAlone"] else [(0, 0)])]
            rows.append([f"{node['role']} ÷ {idle_name(other)}",
                         *(f"{own / theirs:.2f}" if theirs else "-" for own, theirs in values)])
    return render.table(["agent ÷ another guard", "CPU, itself", "CPU, with children", "RSS", "PSS", "PSS alone"], rows, True)


def packets(card):
    return f"{card['received']:.1f} / {card['sent']:.1f}"


def mapping_table(found, most=12):
    """Where the memory of the agent on the master is."""
    node = next((node for node in found["nodes"] if node["guard"] == AGENT), None)
    if node is None:
        return ""
    ordered = sorted(node["mappings"].items(), key=lambda entry: -entry[1]["resident"])
    rows = [[f"`{name}`", str(memory["resident"]), str(memory["proportional"]), str(memory["ownPages"])]
            for name, memory in ordered[:most]]
    rest = [memory for _, memory in ordered[most:]]
    if rest:
        rows.append(["the rest"] + [str(sum(memory[part] for memory in rest))
                                    for part in ("resident", "proportional", "ownPages")])
    return render.table(["mapped", "resident, KiB", "proportional, KiB", "own pages, KiB"], rows, True)


def idle_section(found):
    seconds, windows = (round(found["nodes"][0]["seconds"]), found["nodes"][0]["windows"]) if found["nodes"] else (0, 0)
    lines = [
        "### An idle pair, beside keepalived and monit", "",
        f"{windows} windows of {seconds} s in which nothing happens, the median of each figure, all at the same time "
        "on the same machine, each guard in hosts of its own. The client is still, so the packets are the guards' own.", "",
        render.table(["guard", "CPU, % of a core", "least to most", "own + children, s/h", "RSS, MB", "PSS, MB", "PSS alone, MB",
               "processes / threads", "wake-ups/s", "new processes/s", "eth0 in / out, /s", "eth1 in / out, /s",
               "log + console, MB/day"], idle_rows(found), numbers=True),
        of_others(found),
        "- *CPU*: user and kernel time of the guard and of the children it has waited for.",
        "- *PSS*: each page divided by the processes that share it; the two nodes and the machine's other programs "
        "share libraries here. *Alone*: measured again with one guard only, a standby's as soon as its partner's host is "
        "off; not measured while another process of the machine has the same program or the same POCO libraries in "
        "its memory. MB are millions of bytes.",
        "- *Wake-ups*: voluntary switches of all its threads, children not counted. *New processes*: threads, "
        "commands and the announcer of the address included.",
        "- *Console*: what the agent's lines echo; the unit sends it to `/dev/null`.",
        "- The agent's children are the shell and the `cat` with which a master looks at the carrier of its service "
        "card in every pass. A standby that hears heartbeats starts none. keepalived's are its check, a shell script "
        "every second.",
        "- Packets on eth1 are a heartbeat's connection each way and the ten pings that every pass of a master sends "
        "to the gateway (a standby: to its partner); keepalived's advertisements are on eth0.", "",
    ]
    announcer = [node for node in found["nodes"] if node["announcerCpuPerHour"] > 0]
    if announcer:
        cost = max(node["announcerCpuPerHour"] for node in announcer)
        lines += ["Besides, the loop that the start command leaves on the master (it announces the address every "
                  f"4 s) takes {cost:.1f} CPU seconds an hour; it is the settings' and not in the table.", ""]
    lines += ["Where the memory of the agent is (master):", "", mapping_table(found)]
    if found["problems"]:
        lines += ["Not measured:", ""] + [f"- {problem}" for problem in found["problems"]] + [""]
    lines += ["![Processor time and memory of idle guards](performance-idle.svg)", "", goal_list(idle_goals(found))]
    return "\n".join(lines)


def idle_missing(found):
    """Goals that are missed since something was not measured."""
    there = {node["guard"] for node in found["nodes"]}
    gone = [f"idle: {guard} was not measured beside the agent" for guard in OTHERS if guard not in there]
    return [(text, False) for text in [*gone, *(f"idle: not measured: {problem}" for problem in found["problems"])]]


def idle_goals(found):
    """By the worse of the agent's two nodes."""
    goals_of = found["goals"]
    agents = [node for node in found["nodes"] if node["guard"] == AGENT]
    missing = idle_missing(found)
    if not agents:
        return [("the idle pair was not measured", False), *missing]
    resident = 1024 * max(node["memory"]["resident"] for node in agents)
    proportional = 1024 * max(max(node["memory"]["proportional"],
                                  node["memoryAlone"]["proportional"] if node["memoryAlone"] else 0) for node in agents)
    cpu = max(cpu_percent(node) for node in agents)
    itself = max(own_cpu_percent(node) for node in agents)
    return [
        (f"resident memory: {resident / 1e6:.2f} MB (goal ≤ {goals_of['resident'] / 1e6:.0f} MB)",
         resident <= goals_of["resident"]),
        (f"proportional memory: {proportional / 1e6:.2f} MB (goal ≤ {goals_of['proportional'] / 1e6:.0f} MB)",
         proportional <= goals_of["proportional"]),
        (f"processor, the agent itself: {itself:.3f} % of a core (goal ≤ {goals_of['cpuPercent']} %)",
         itself <= goals_of["cpuPercent"]),
        (f"processor, with the commands it runs: {cpu:.3f} % of a core (goal ≤ {goals_of['cpuPercent']} %)",
         cpu <= goals_of["cpuPercent"]),
        *missing,
    ]

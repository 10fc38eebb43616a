"""The pair in the lab: take-overs beyond their prescribed waits, and what idle guards cost."""

import json
import os
import subprocess
import sys

import pair_pictures
from common import ROOT, Unusable

TARGETS = ["velarix-lab"]
LAB = os.path.join(ROOT, "build", "bench", "lab", "velarix-lab")
AGENT = "VelarixHA"


def lab(*words):
    """Runs velarix-lab; it ends with 1 when something could not be measured, which its results tell."""
    command = [LAB, *map(str, words)]
    if subprocess.run(command, stdout=sys.stderr).returncode not in (0, 1):
        raise Unusable(f"{' '.join(command)} failed, see above")


def run(folder, quick):
    """Some 17 minutes on two processors; most of it is waiting."""
    few = ["--runs", 2, "--jobs", 4, "--only", "alone", "--only", "reboot"]
    many = ["--runs", 30, "--jobs", 20]
    lab("takeover", *(few if quick else many), "--records", folder / "takeover.json")
    lab("idle", "--seconds", 10 if quick else 300, "--records", folder / "idle.json")


def results(folder, name):
    path = folder / f"{name}.json"
    if not path.exists():
        raise Unusable(f"{path} is not there: run the part first")
    return json.loads(path.read_text(encoding="utf-8"))


def goals(folder):
    """The goals of both parts as (text, reached)."""
    return takeover_goals(results(folder, "takeover")) + idle_goals(results(folder, "idle"))


def tell(folder):
    return takeover_section(results(folder, "takeover")) + "\n" + idle_section(results(folder, "idle"))


def draw(folder, pictures):
    """Writes performance-takeover.svg and performance-idle.svg into the folder `pictures`."""
    (pictures / "performance-takeover.svg").write_text(
        pair_pictures.takeover_svg(results(folder, "takeover")), encoding="utf-8")
    (pictures / "performance-idle.svg").write_text(
        pair_pictures.idle_svg(results(folder, "idle"), idle_name), encoding="utf-8")


def told(all_goals):
    return "".join(f"- {'reached' if good else '**missed**'}: {text}\n" for text, good in all_goals)


def table(titles, rows):
    """A Markdown table; the first column to the left, the others to the right."""
    lines = ["| " + " | ".join(titles) + " |", "|---|" + "---:|" * (len(titles) - 1)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows]) + "\n"


def figures(summary, unit=1):
    """median / p95 / max, or a dash."""
    if not summary:
        return "-"
    digits = 3 if unit == 1000 else 0
    return " / ".join(f"{summary[part] / unit:.{digits}f}" for part in ("medianMs", "p95Ms", "maxMs"))


def takeover_goals(found):
    goal = found["goalMs"]
    all_goals = []
    for path in found["paths"]:
        if not path["own"]:
            all_goals.append((f"take-over, {path['path']}: not measured", False))
            continue
        own, count = path["own"]["medianMs"], path["own"]["count"]
        text = f"take-over, {path['path']}: {own} ms, median of {count} (goal ≤ {goal} ms)"
        if path["overhead"]["medianMs"] > goal >= own:
            text += f"; {path['overhead']['medianMs']} ms with the silent pings"
        all_goals.append((text, own <= goal))
    return all_goals


def takeover_section(found):
    rows = []
    for path in found["paths"]:
        own = path["own"]
        verdict = "-" if not own else ("yes" if own["medianMs"] <= found["goalMs"] else "no")
        rows.append([f"`{path['path']}`", str(own["count"] if own else 0), figures(path["outage"], 1000),
                     f"{path['before']}, then {path['after']}", figures(path["overhead"]), figures(path["pings"]),
                     figures(path["pingsAlone"]), figures(own), verdict])
    lines = [
        "### Take-over: beyond the prescribed waits", "",
        "What an outage lasted beyond the waits that the agent prescribes, for each way on which the service "
        "comes back. The waits are those of the settings (interval "
        f"{found['intervalS']} s, receiving time {found['receivingTimeS']} s, waiting time "
        f"{found['waitingTimeS']} s), the agent's own pauses and countdown, and one second for every probe "
        "that nobody answers. Median / p95 / max.", "",
        table(["path", "runs", "outage, s", "waits until the decision, at most, then after it", "beyond, ms",
               "of it pings, ms", "pings alone, ms", "own part, ms", f"median at most {found['goalMs']} ms"], rows),
        "- *Beyond*: the outage less the waits.",
        "- *Pings*: what the silent probes of the deciding node lasted beyond a second each, seen in its log "
        "(within 20 ms a probe). Ten pings are waited for 100 ms each by the library; every error that the kernel "
        "makes up, once it has found that nobody answers for an address, makes it wait anew.",
        "- *Pings alone*: the same for a program that does nothing but ping, in the same situation, without an "
        "agent: the library's floor.",
        "- *Own part*: beyond, less the pings. It holds everything else: the agent's work, shell, `ifconfig`, the "
        "configured commands, the start of the programs, the first request, and the lab's own 20 ms.", "",
    ]
    if found["missed"]:
        lines += [f"{len(found['missed'])} runs gave no sample and were made up for.", ""]
    lines += ["![The own part of each take-over, path by path](performance-takeover.svg)", "",
              told(takeover_goals(found))]
    return "\n".join(lines)


def idle_name(node):
    return f"{node['guard']}, {node['settings']}: {node['role']}"


def idle_rows(found):
    rows = []
    for node in found["nodes"]:
        alone = node["memoryAlone"]
        rows.append([
            idle_name(node), f"{node['cpuPercent']:.3f}",
            f"{node['ownCpuSecondsPerHour']:.1f} + {node['childrenCpuSecondsPerHour']:.1f}",
            f"{node['memory']['residentKiB'] / 1024:.1f}", f"{node['memory']['proportionalKiB'] / 1024:.1f}",
            f"{alone['proportionalKiB'] / 1024:.1f}" if alone else "-",
            f"{node['processes']} / {node['threads']}", f"{node['wakeUpsPerSecond']:.1f}",
            f"{node['newProcessesPerSecond']:.2f}", packets(node["eth0"]), packets(node["eth1"]),
            f"{node['logBytesPerDay'] / 1e6:.1f} + {node['consoleBytesPerDay'] / 1e6:.1f}"])
    return rows


def packets(card):
    return f"{card['receivedPerSecond']:.1f} / {card['sentPerSecond']:.1f}"


def mapping_table(found, most=12):
    """Where the memory of the agent on the master is."""
    node = next((node for node in found["nodes"] if node["guard"] == AGENT), None)
    if node is None:
        return ""
    ordered = sorted(node["mappings"].items(), key=lambda entry: -entry[1]["residentKiB"])
    rows = [[f"`{name}`", str(memory["residentKiB"]), str(memory["proportionalKiB"]), str(memory["ownPagesKiB"])]
            for name, memory in ordered[:most]]
    rest = [memory for _, memory in ordered[most:]]
    if rest:
        rows.append(["the rest"] + [str(sum(memory[part] for memory in rest))
                                    for part in ("residentKiB", "proportionalKiB", "ownPagesKiB")])
    return table(["mapped", "resident, KiB", "proportional, KiB", "own pages, KiB"], rows)


def idle_section(found):
    seconds = round(found["nodes"][0]["seconds"]) if found["nodes"] else 0
    lines = [
        "### An idle pair, beside keepalived and monit", "",
        f"{seconds} s in which nothing happens, all at the same time on the same machine, each guard in hosts of its "
        "own. The client is still, so the packets are the guards' own.", "",
        table(["guard", "CPU, % of a core", "own + children, s/h", "RSS, MiB", "PSS, MiB", "PSS alone, MiB",
               "processes / threads", "wake-ups/s", "new processes/s", "eth0 in / out, /s", "eth1 in / out, /s",
               "log + console, MB/day"], idle_rows(found)),
        "- *CPU*: user and kernel time of the guard and of the children it has waited for.",
        "- *PSS*: each page divided by the processes that share it; the two nodes and the machine's other programs "
        "share libraries here. *Alone*: measured again with one guard only.",
        "- *Wake-ups*: voluntary switches of all its threads, children not counted. *New processes*: threads, "
        "commands and the announcer of the address included.",
        "- *Console*: what the agent's lines echo; the unit sends it to `/dev/null`.",
        "- The agent's children are the shell and the `cat` with which a master looks at the carrier of its service "
        "card in every pass. A standby that hears heartbeats starts none. keepalived's are its check, a shell script "
        "every second.",
        "- Packets on eth1 are a heartbeat's connection each way and the ten pings that every pass of a master sends "
        "to the gateway (a standby: to its partner); keepalived's advertisements are on eth0.", "",
    ]
    announcer = [node for node in found["nodes"] if node["announcerCpuSecondsPerHour"] > 0]
    if announcer:
        cost = max(node["announcerCpuSecondsPerHour"] for node in announcer)
        lines += ["Besides, the loop that the start command leaves on the master (it announces the address every "
                  f"4 s) takes {cost:.1f} CPU seconds an hour; it is the settings' and not in the table.", ""]
    lines += ["Where the memory of the agent is (master):", "", mapping_table(found)]
    if found["problems"]:
        lines += ["Not measured:", ""] + [f"- {problem}" for problem in found["problems"]] + [""]
    lines += ["![Processor time and memory of idle guards](performance-idle.svg)", "", told(idle_goals(found))]
    return "\n".join(lines)


def idle_goals(found):
    """By the worse of the agent's two nodes."""
    goals_of = found["goals"]
    own = [node for node in found["nodes"] if node["guard"] == AGENT]
    if not own:
        return [("the idle pair was not measured", False)]
    resident = max(node["memory"]["residentKiB"] for node in own)
    proportional = max(max(node["memory"]["proportionalKiB"],
                           node["memoryAlone"]["proportionalKiB"] if node["memoryAlone"] else 0) for node in own)
    cpu = max(node["cpuPercent"] for node in own)
    itself = max(node["ownCpuPercent"] for node in own)
    return [
        (f"resident memory: {resident / 1024:.1f} MiB (goal ≤ {goals_of['residentKiB'] // 1024} MiB)",
         resident <= goals_of["residentKiB"]),
        (f"proportional memory: {proportional / 1024:.1f} MiB (goal ≤ {goals_of['proportionalKiB'] // 1024} MiB)",
         proportional <= goals_of["proportionalKiB"]),
        (f"processor, the agent itself: {itself:.2f} % of a core (goal ≤ {goals_of['cpuPercent']} %)",
         itself <= goals_of["cpuPercent"]),
        (f"processor, with the commands it runs: {cpu:.2f} % of a core (goal ≤ {goals_of['cpuPercent']} %)",
         cpu <= goals_of["cpuPercent"]),
    ]

#!/usr/bin/env python3
"""Measures what the agent, keepalived and monit cost while nothing happens.

    sudo evidence/scripts/idle.py [--seconds N] [--windows N] [--records FILE]
                               [--report docs/figures/performance.md] [--no-install]
    evidence/scripts/idle.py --render FILE [--report docs/figures/performance.md]

Each runs on both nodes of a pair of its own, all pairs at the same time. A figure is the
median of the windows. The kernel counts processor time in hundredths of a second, so
windows of a few seconds tell nothing.

Ends with 0 when every goal was reached, with 1 when not, with 2 when the work could not
be done.
"""

import contextlib
import json
import os
import statistics
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts", "lib"))
sys.dont_write_bytecode = True

import common
import pair
import peers

AGENT = "VelarixHA"
SETTLE = 10  # seconds until nothing of the start is left
MONIT = """\
set daemon {seconds}
set log /run/peer.log
set idfile /run/monit.id
set statefile /run/monit.state
set pidfile /run/monit.pid
check process service matching "labhttpd"
check host gateway with address 198.51.100.1
  if failed ping then alert
check network service_interface with interface eth0
  if failed link then alert
check network communication_interface with interface eth1
  if failed link then alert
"""
# Every second as the agent looks, and the package's default.
MONIT_SECONDS = {"a": 1, "b": 120}
LOGS = "/usr/velarix/log/velarix.log /usr/velarix/log/console.txt /run/peer.log"
GOALS = [("resident", "resident memory, MB", 12), ("proportional", "proportional memory, MB", 6),
         ("own", "processor of the agent itself, % of a core", 0.2),
         ("cpu", "processor with the commands it runs, % of a core", 0.2)]


def start_keepalived(lab):
    for node in "ab":
        peers.start(lab, node, "keepalived", peers.prepare(lab, node, "keepalived", 1))
        lab.wait_until_served("a")


def start_monit(lab):
    for node, seconds in MONIT_SECONDS.items():
        lab.shell(node, "/usr/velarix/app/labhttpd >/dev/null 2>&1 </dev/null &")
        lab.shell(node, f"umask 077; cat >/run/monitrc <<'END'\n{MONIT.format(seconds=seconds)}END\n")
        lab.shell(node, "monit -I -c /run/monitrc >/run/monit.out 2>&1 </dev/null &")


# Program, what starts it on a pair without agents, and its settings and role on each node.
GUARDS = {
    AGENT: (None, {"a": "heartbeat every 1 s: master", "b": "heartbeat every 1 s: standby"}),
    "keepalived": (start_keepalived, {"a": "advertisement and check every 1 s: master",
                                      "b": "advertisement and check every 1 s: standby"}),
    "monit": (start_monit, {node: f"every {seconds} s: watches" for node, seconds in MONIT_SECONDS.items()}),
}


def processor_seconds(stat):
    """Of the process itself and of the children it has waited for, in a line of /proc/PID/stat."""
    fields = stat[stat.rindex(")") + 1:].split()
    user, system, children_user, children_system = (int(field) for field in fields[11:15])
    ticks = os.sysconf("SC_CLK_TCK")
    return (user + system) / ticks, (children_user + children_system) / ticks


def lasting(lab, node, guard):
    """The guard's processes; a child is of the same name until it has become another program."""
    first, second = (set(lab.shell(node, f"sleep 0.3; pidof {guard} || true").split()) for _ in range(2))
    if not first & second:
        raise common.Unusable(f"{guard} does not run on node {node}")
    return first & second


def look(lab, node, pids):
    """One look at a node: processor seconds, KiB of memory, bytes of logs."""
    found = {"at": time.monotonic(), "own": 0.0, "children": 0.0, "resident": 0, "proportional": 0}
    for pid in pids:
        own, children = processor_seconds(lab.shell(node, f"cat /proc/{pid}/stat"))
        found["own"] += own
        found["children"] += children
        for line in lab.shell(node, f"cat /proc/{pid}/smaps_rollup").splitlines():
            part = {"Rss:": "resident", "Pss:": "proportional"}.get(line.split()[0])
            if part:
                found[part] += int(line.split()[1])
    found["logs"] = sum(map(int, lab.shell(node, f"stat -c %s {LOGS} 2>/dev/null || true").split()))
    return found


def window(before, after):
    """What happened between two looks: percent of a processor, MB, MB a day."""
    seconds = after["at"] - before["at"]
    own, children = (100 * (after[part] - before[part]) / seconds for part in ("own", "children"))
    return {"own": own, "cpu": own + children, "resident": after["resident"] * 1024 / 1e6,
            "proportional": after["proportional"] * 1024 / 1e6,
            "logs": (after["logs"] - before["logs"]) / 1e6 / seconds * 86400}


def measure(seconds, windows):
    """All guards at the same time, each on a pair of its own."""
    with contextlib.ExitStack() as stack:
        watched = []
        for guard, (start, roles) in GUARDS.items():
            lab = stack.enter_context(pair.Pair(f"idle-{guard}", agents=start is None))
            if start:
                start(lab)
            else:
                lab.wait_until_served("a")
            watched += [(guard, lab, node, role) for node, role in roles.items()]
        time.sleep(SETTLE)
        pids = [lasting(lab, node, guard) for guard, lab, node, _ in watched]
        looks = []
        for index in range(windows + 1):
            time.sleep(seconds if index else 0)
            looks.append([look(lab, node, own) for (_, lab, node, _), own in zip(watched, pids)])
    nodes = []
    for (guard, _, _, role), seen in zip(watched, zip(*looks)):
        parts = [window(before, after) for before, after in zip(seen, seen[1:])]
        nodes.append({"guard": guard, "role": role,
                      **{part: statistics.median(one[part] for one in parts) for part in parts[0]}})
    return {"campaign": "idle", "machine": pair.machine_text(), "seconds": seconds, "windows": windows, "nodes": nodes}


def goals(found):
    """(text, reached) of each goal, by the worse of the agent's two nodes."""
    agents = [node for node in found["nodes"] if node["guard"] == AGENT]
    worst = {part: max(node[part] for node in agents) for part, _, _ in GOALS}
    return [(f"{name}: {worst[part]:.3g} (goal ≤ {goal})", worst[part] <= goal) for part, name, goal in GOALS]


def section(found):
    rows = [[f"{node['guard']}, {node['role']}", f"{node['own']:.3f}", f"{node['cpu']:.3f}", f"{node['resident']:.1f}",
             f"{node['proportional']:.1f}", f"{node['logs']:.1f}"] for node in found["nodes"]]
    return (f"{found['machine']}. {found['windows']} windows of {found['seconds']} s in which nothing happens, the median "
            "of each figure, all at the same time.\n\n" +
            common.table(["program", "CPU itself, % of a core", "with its commands, %", "RSS, MB", "PSS, MB",
                          "log + console, MB/day"], rows, numbers=True) + "\n" +
            "".join(f"- {'reached' if reached else '**missed**'}: {text}\n" for text, reached in goals(found)))


def main():
    parser = common.parser(__doc__, "docs/figures/performance.md")
    parser.add_argument("--seconds", type=int, default=60, help="of a window (60)")
    parser.add_argument("--windows", type=int, default=5, help="how many (5)")
    parser.add_argument("--records", help="write the figures to this file as JSON")
    parser.add_argument("--render", metavar="FILE", help="measure nothing, render such a file")
    arguments = parser.parse_args()
    if arguments.render:
        with open(arguments.render, encoding="utf-8") as handle:
            found = json.load(handle)
    else:
        pair.prepare(arguments.no_install, groups=("peers",))
        found = measure(arguments.seconds, arguments.windows)
    if arguments.records:
        with open(arguments.records, "w", encoding="utf-8") as handle:
            json.dump(found, handle, indent=1)
    common.tell(section(found), arguments.report)
    return 0 if all(reached for _, reached in goals(found)) else 1


if __name__ == "__main__":
    common.run_main(main)

"""keepalived and ucarp on the lab's nodes, set up as a competent operator would.

Both guard the virtual address on the service network and speak to each other there.
Neither starts programs: the managed program runs on both nodes all the time, only the
address moves, and nobody goes back to a preferred node. keepalived's own process tracking
needs events that the kernel tells in the machine's first network namespace only, so a
script fetches the page every second.

They are started in the hosts of a lab and nowhere else.
"""

import concurrent.futures
import random
import string
import sys
import time

from common import Unusable
from pair import Pair

ADDRESS, INTERFACE = "192.0.2.100", "eth0"
NODES = {"a": "192.0.2.11", "b": "192.0.2.12"}
FOLDER = "/usr/velarix-peers"  # on the node's own disk

KEEPALIVED = string.Template("""\
global_defs {
  router_id node_$node
  script_user root
  enable_script_security
  vrrp_version 3
  vrrp_garp_master_refresh 5
}
vrrp_script service {
  script "/usr/velarix-peers/check"
  interval 1
  timeout 1
  fall 1
  rise 1
}
vrrp_instance pair {
  state BACKUP
  nopreempt
  interface eth0
  virtual_router_id 51
  priority $priority
  advert_int $interval
  track_interface {
    eth1
  }
  track_script {
    service
  }
  virtual_ipaddress {
    192.0.2.100/24 dev eth0
  }
}
""")

SCRIPTS = {
    "check": """\
#!/bin/bash
exec 3<>/dev/tcp/127.0.0.1/8080 || exit 1
printf 'GET / HTTP/1.0\\r\\n\\r\\n' >&3
IFS= read -r line <&3
[[ $line == *' 200 '* ]]
""",
    # Announced for as long as it is held, so that neighbours learn of it after a repaired partition.
    "up": f"""\
#!/bin/sh
ip addr add {ADDRESS}/24 dev {INTERFACE}
(while ip -4 -o addr show dev {INTERFACE} | grep -q {ADDRESS}/; do
	arping -q -A -c 1 -w 1 -I {INTERFACE} {ADDRESS}
	sleep 4
done) >/dev/null 2>&1 &
""",
    "down": f"#!/bin/sh\nip addr del {ADDRESS}/24 dev {INTERFACE} 2>/dev/null\nexit 0\n",
}

COMMANDS = {
    "keepalived": string.Template("keepalived --dont-fork --log-console --no-syslog --vrrp --release-vips "
                                  f"--use-file {FOLDER}/keepalived.conf"),
    "ucarp": string.Template(f"ucarp --interface={INTERFACE} --srcip=$address --vhid=51 --pass=pair --addr={ADDRESS} "
                             f"--advbase=$interval --advskew=$skew --deadratio=3 --upscript={FOLDER}/up "
                             f"--downscript={FOLDER}/down --shutdown"),
}

# (program, name of its settings, seconds between advertisements)
OURS = ("velarix", "keeper", 1)  # for a switchover alone: its faults are velarix-lab's
PEERS = [("keepalived", "defaults", 1), ("keepalived", "short", 0.1), ("ucarp", "defaults", 1)]

# Test cases of the matrix that apply, and what brings the fault about: the words after
# "velarix-lab inject", or a script on the node. $program is the peer.
FAULTS = {
    "power-off/a/master": ["power-off", "a"],
    "program-kill/a/master": ["program-kill", "a"],
    "program-hang/a/master": ["program-hang", "a"],
    "service-interface/a/master": ["service-interface", "a"],
    "communication-interface/a/master": ["communication-interface", "a"],
    "communication-cut/a/master": ["communication-cut"],
    "gateway/a/master": ["gateway"],
    "address-removed/a/master": ["address-removed", "a"],
    "service-loss-50/a/standby": ["service-loss-50", "a"],
    "agent-kill/a/master": "pkill -KILL -x $program",
    "agent-freeze/a/master": "pkill -STOP -x $program",
}
BOOT = "cold-start/a/master"  # no fault: both start at once
# A planned move: keepalived is stopped, which announces it; ours has a verb. Not one of the matrix's faults.
SWITCHOVER = "switchover/a/master"
MOVES = {"keepalived": FAULTS["agent-kill/a/master"].replace("KILL", "TERM"), "velarix": "velarixctl switchover >/dev/null"}
QUIET = 10  # seconds without a change: more than three advertisements and a skew, twice


def prepare(pair, node, program, interval):
    """Writes the files of the node. Returns the command that starts the peer."""
    first = node == "a"  # preferred, where nobody has the address yet
    values = {"node": node, "address": NODES[node], "interval": interval, "priority": 150 if first else 100,
              "skew": 0 if first else 50}
    files = {"keepalived.conf": KEEPALIVED.substitute(values), **SCRIPTS}
    for name, text in files.items():
        pair.shell(node, f"mkdir -p {FOLDER}; cat >{FOLDER}/{name} <<'END'\n{text}END\n")
    pair.shell(node, f"cd {FOLDER} && chmod 755 {' '.join(SCRIPTS)} && chmod 644 keepalived.conf")
    return COMMANDS[program].substitute(values)


def start(pair, node, program, command):
    """The managed program and the peer; both run on when this returns."""
    pair.shell(node, "/usr/velarix/app/labhttpd >/dev/null 2>&1 </dev/null &")
    pair.shell(node, f"exec >>/run/peer.log 2>&1 </dev/null; {command} &")
    if not pair.shell(node, f"sleep 0.3; pidof {program} || true").strip():
        raise Unusable(f"{program} did not start on node {node}: " + pair.shell(node, "cat /run/peer.log"))


def inject(pair, cell, program):
    fault = MOVES[program] if cell == SWITCHOVER else FAULTS[cell]
    if isinstance(fault, list):
        pair.lab("inject", *fault)
    else:
        pair.shell(cell.split("/")[1], string.Template(fault).substitute(program=program))


def run_cell(name, program, interval, cell, jitter):
    """One run on a pair of its own, as a record of velarix-lab."""
    master = "b" if cell.endswith("/a/standby") else "a"
    ours = program == "velarix"
    with Pair(name, agents=ours) as pair:
        commands = {} if ours else {node: prepare(pair, node, program, interval) for node in "ab"}
        begin = pair.status()["upMs"]
        if ours:
            pair.wait_until_served(master)
        for node in sorted(commands, key=lambda node: node != master):
            start(pair, node, program, commands[node])
            if node == master and cell != BOOT:
                pair.wait_until_served(master)
        if cell != BOOT:
            time.sleep(3 + jitter)
            begin = pair.status()["upMs"]
            inject(pair, cell, program)
        return {"cell": cell, "phases": [pair.observe(begin, QUIET)], "differences": []}


def run_all(runs, jobs, seed, cells=(*FAULTS, BOOT), peers=tuple(PEERS)):
    """Every case `runs` times with each peer; what velarix-lab calls a campaign."""
    chance = random.Random(seed)
    plans = [(peer, cell, chance.random()) for peer in peers for cell in cells
             for _ in range(runs) if peer is not OURS or cell == SWITCHOVER]
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        tasks = [pool.submit(run_cell, f"peers-{index}", peer[0], peer[2], cell, jitter)
                 for index, (peer, cell, jitter) in enumerate(plans)]
        for done, task in enumerate(concurrent.futures.as_completed(tasks), 1):
            task.result()
            print(f"[{done}/{len(tasks)}]", file=sys.stderr)
    found = [{"program": program, "settings": settings, "records": []} for program, settings, _ in peers]
    for (peer, _, _), task in zip(plans, tasks):
        found[peers.index(peer)]["records"].append(task.result())
    return {"campaign": "peers", "peers": found}

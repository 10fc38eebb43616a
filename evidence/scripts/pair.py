"""One pair of the lab, kept running by velarix-lab for as long as a script measures it."""

import json
import os
import platform
import re
import subprocess
import time

import common
import timeline_svg
from common import ROOT, Unusable

def lab_of(preset):
    return os.environ.get("VELARIX_LAB", os.path.join(ROOT, "build", preset, "lab", "velarix-lab"))


LAB = lab_of("demo")


def prepare(no_install, preset="demo", *targets, groups=()):
    """Packages, the agent and the lab, as optimised as installed; another preset for more than them.

    Nothing is built when VELARIX_LAB names a lab.
    """
    global LAB
    common.prepare(no_install, "the pairs live in namespaces of their own", "run", "build", "lab", *groups)
    LAB = lab_of(preset)
    build = [os.path.join(ROOT, "scripts", "build"), preset, *targets]
    if "VELARIX_LAB" not in os.environ and subprocess.run(build).returncode != 0:
        raise Unusable("the lab does not build, see above")


def machine_text():
    """What measured times depend on; without what a host appends to the kernel's version."""
    with open("/proc/cpuinfo", encoding="utf-8") as handle:
        model = re.search(r"^model name\s*: (.*)", handle.read(), re.M)
    gib = os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE") / 2 ** 30
    kernel = re.match(r"[0-9.]*", platform.release()).group()
    return (f"{model[1] if model else platform.machine()}, {os.cpu_count()} processors, {gib:.0f} GiB of memory, "
            f"{platform.freedesktop_os_release()['PRETTY_NAME']}, Linux {kernel}")


def outages(changes, begin, end):
    """The times without an answer between two times, as pairs of begin and end.

    changes: (milliseconds, the node that answers from then on, or "none"), in order of time
    """
    times = ((max(at, begin), min(until, end)) for (at, value), (until, _) in zip(changes, [*changes[1:], (end, "")])
             if value == "none")
    return [(since, until) for since, until in times if until > since]


def longest_outage(changes, begin, end):
    """The longest of the outages, and whether it lasts to the end."""
    since, until = max(outages(changes, begin, end), key=lambda one: one[1] - one[0], default=(0, 0))
    return until - since, until - since > 0 and until >= end


class Pair:
    """Two nodes, a gateway and a client; ended with the block."""

    def __init__(self, name, agents=True, words=()):
        self.name = name
        self.words = [*words, *([] if agents else ["--no-agents"])]

    def __enter__(self):
        try:
            self.lab("up", *self.words)
        except Unusable:
            subprocess.run([LAB, "down", "--name", self.name], capture_output=True)
            raise
        return self

    def __exit__(self, *_):
        self.lab("down")

    def lab(self, verb, *words):
        """What velarix-lab prints. It is Unusable when it fails."""
        command = [LAB, verb, "--name", self.name, *words]
        done = subprocess.run(command, capture_output=True, text=True)
        if done.returncode != 0:
            raise Unusable(f"{' '.join(command)} failed: {done.stdout}{done.stderr}")
        return done.stdout

    def shell(self, host, script):
        """Runs a shell script on a host, in all its namespaces, and returns what it prints."""
        return self.lab("exec", host, "sh", "-c", script)

    def status(self):
        return json.loads(self.lab("status", "--json"))

    def changes(self, kind):
        """(milliseconds, new value) of a track of the timeline: "address" or "service"."""
        events = timeline_svg.read(self.lab("timeline").splitlines())
        return [(round(seconds * 1000), text) for seconds, _, what, text in events if what == kind]

    def wait_until_served(self, node, limit=60, steady=3):
        """Until the client has had its answers from that node alone for some seconds."""
        since = None
        for _ in range(limit * 2):
            state = self.status()
            served = state["service"] == state["address"] == node
            since = (since or time.monotonic()) if served else None
            if since and time.monotonic() - since > steady:
                return
            time.sleep(0.5)
        raise Unusable(f"node {node} did not come to serve within {limit} s: {state}")

    def observe(self, begin, quiet, patience=30):
        """What came of the time since `begin` (milliseconds), once the owner has stayed for `quiet` seconds.

        A phase of a run as velarix-lab records it.
        """
        while True:
            time.sleep(0.5)
            now = self.status()["upMs"]
            address, service = self.changes("address"), self.changes("service")
            changed = max([begin] + [at for at, _ in address])
            steady = now - changed >= quiet * 1000
            if steady or now - begin > (patience + quiet) * 1000:
                break
        outage, is_open = longest_outage(service, begin, now)
        return {"outage": outage, "outageOpen": is_open, "owner": address[-1][1] if address else "none", "steady": steady}

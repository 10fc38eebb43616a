"""The real agent in a world of its own: new network, mount and process namespaces with an overlay on /usr."""

import contextlib
import os
import pathlib
import re
import signal
import subprocess
import sys
import time
import unittest

BINARY, TOOL_THREADS = sys.argv[1], int(sys.argv[2])  # the threads that a sanitizer adds to the agent
HOME = pathlib.Path("/usr/velarix")
PROGRAM = str(HOME / "bin/VelarixHA")
PID_FILE = HOME / "pid/VelarixHA.pid"
SETTINGS = HOME / "bin/ini/config.ini"
RECORD = HOME / "bin/log/runinfo.txt"
LOG = HOME / "log/velarix.log"
RUN_INFO = ("[TRACE]\nLAST_RUN_TIME = 20240131235959\n"
            "MASTER_LAST_RUN_TIME = 20240101000000\nSLAVE_LAST_RUN_TIME = 20240102000000\n")
ABORTED = 128 + signal.SIGABRT


def enter_sandbox():
    """Runs this script again as process 1 of the namespaces; the host is never written."""
    if os.getpid() == 1:
        shell("mount -t tmpfs none /mnt && mkdir /mnt/upper /mnt/work && ip link set lo up && mount -t sysfs none /sys && "
              "mount -t overlay overlay -o lowerdir=/usr,upperdir=/mnt/upper,workdir=/mnt/work /usr")
        return
    user = [] if os.geteuid() == 0 else ["--map-root-user"]
    namespaces = ["unshare", *user, "--net", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc"]
    os.execvp(namespaces[0], [*namespaces, sys.executable, "-B", *sys.argv])


def shell(command):
    subprocess.run(command, shell=True, check=True)


def wait_for(what, predicate, limit=20.0):
    """The value of the predicate as soon as it is true; an error that names what was waited for."""
    end = time.monotonic() + limit
    while not (value := predicate()):
        if time.monotonic() > end:
            raise AssertionError(f"not seen in {limit} s: {what}")
        time.sleep(0.01)
    return value


def read(path):
    with contextlib.suppress(OSError):
        return pathlib.Path(path).read_bytes().decode(errors="replace")
    return ""


def log_lines():
    """(process, thread, event) of each message, the event as "D CAgent:25 text"."""
    lines = []
    for line in read(LOG).splitlines():
        if head := re.match(r".{21} \[(\d+):(\d+)\]\[([\w:]+)\] <(.)> (.*)", line):
            lines.append((int(head[1]), int(head[2]), f"{head[4]} {head[3]} {head[5]}"))
    return lines


def events():
    return [event for _, _, event in log_lines()]


def is_listened_on(port):
    return f":{port:04X} 00000000:0000 0A" in read("/proc/net/tcp")


class Agent:
    """One start of the agent, which comes to this process when its parent ends."""

    known = set()

    def __init__(self, case, name="first", before=(), **options):
        """Runs the program, behind the words `before`, until it returns to the shell."""
        self.console = HOME / f"console.{name}"
        self.pid = 0
        case.addCleanup(self.kill)
        with open(f"{self.console}.out", "ab") as out, open(f"{self.console}.err", "ab") as err:
            done = subprocess.run([*before, PROGRAM], stdout=out, stderr=err, **options)
        self.status = done.returncode if done.returncode >= 0 else 128 - done.returncode
        for process in pathlib.Path("/proc").glob("[0-9]*"):
            with contextlib.suppress(OSError):
                parent = int((process / "stat").read_text().rpartition(") ")[2].split()[1])
                if os.readlink(process / "exe") == PROGRAM and parent == os.getpid() and process.name not in self.known:
                    self.known.add(process.name)
                    self.pid = int(process.name)

    def output(self):
        return read(f"{self.console}.out")

    def errors(self):
        return read(f"{self.console}.err")

    def proc(self, name):
        return pathlib.Path("/proc", str(self.pid), name)

    def threads(self):
        return len(os.listdir(self.proc("task"))) - TOOL_THREADS if self.pid else 0

    def end(self, limit):
        """Its exit status, 128 + n when signal n ended it, or None when it runs on."""
        until = time.monotonic() + limit
        while self.pid:
            ended, status = os.waitpid(self.pid, os.WNOHANG)
            if ended:
                self.pid = 0
                status = os.waitstatus_to_exitcode(status)
                return status if status >= 0 else 128 - status
            if time.monotonic() >= until:
                return None
            time.sleep(0.01)
        return None

    def kill(self):
        if self.pid:
            os.kill(self.pid, signal.SIGKILL)
            os.waitpid(self.pid, 0)


class AgentCase(unittest.TestCase):
    """The program installed, settings in which the node is well, a run-info record and no log."""

    maxDiff = None

    def setUp(self):
        shell(f"rm -rf {HOME}; mkdir -p {HOME}/bin/ini {HOME}/bin/log {HOME}/log {HOME}/pid; cp {BINARY} {PROGRAM}")
        RECORD.write_text(RUN_INFO)
        self.settings = {
            "AGENT": {"MODE": "2", "THIS_SERVER_IP": "127.0.0.1", "HEART_BEAT_RECEIVE_PORT": "7001", "PARTNER_IP": "127.0.0.1",
                      "PARTNER_HEART_BEAT_RECEIVE_PORT": "7002", "HEART_BEAT_INTERVAL": "1", "IGNORE_TIME": "10",
                      "MAX_HEART_BEAT_RECEIING_TIME": "1", "GATEWAY_IP": "127.0.0.1", "VIRTUAL_IP": "127.0.0.1",
                      "VIRTUAL_IP_START_COMMAND": "vip-start", "VIRTUAL_IP_STOP_COMMAND": "true", "RELATED_PROCESS": "",
                      "WAITING_TIME_BEFORE_PROCESS_RUN": "0"},
            "PROCESS_CHECK": {"PROCESS_NUM": "1", "PROCESS_PATH1": "/opt/app/bin/noSuchServer", "PROCESS_CHECK_CYCLE": "5",
                              "OBSERVATION_MODE": "1"},
            "ADVENCE": {"PROCESS_KILL_COMMAND": "true", "KEYWORD": "defunct"},
            "LOG": {"PATH": str(LOG), "PURGEAGE": "30 days"}}
        self.configure()

    def configure(self, **changes):
        """Writes the settings; a change is SECTION__KEY = value, None to leave the key out."""
        for name, value in changes.items():
            section, key = name.split("__")
            self.settings[section][key] = value
        text = ""
        for section, keys in self.settings.items():
            text += f"[{section}]\n" + "".join(f"{key} = {value}\n" for key, value in keys.items() if value is not None)
        SETTINGS.write_text(text)

    def start(self, name="first", **options):
        """An agent whose three workers run."""
        agent = Agent(self, name, **options)
        self.assertEqual(agent.status, 0, agent.errors())
        wait_for("three workers besides the main thread", lambda: agent.threads() == 4)
        return agent


def main(own=2):
    """@param own: words of the command line that are not for unittest"""
    enter_sandbox()
    unittest.main(argv=[sys.argv[0], *sys.argv[1 + own:]])

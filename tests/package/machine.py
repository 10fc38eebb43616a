"""Machines for the package tests: a Debian release in namespaces of its own.

A test program calls private_place() first; from then on whatever it mounts is gone
with it, however it ends.
"""

import atexit
import ctypes
import os
import signal
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin"
LIBC = ctypes.CDLL(None, use_errno=True)


def need_root():
    """Ends the program, without root, with the status that ctest takes for "skipped"."""
    if os.geteuid() != 0:
        print("root is needed: these tests make whole machines", file=sys.stderr)
        sys.exit(77)


def private_place():
    """Moves this program to a mount namespace of its own, with a directory in memory that it returns."""
    need_root()
    CLONE_NEWNS = 0x00020000
    if LIBC.unshare(CLONE_NEWNS) != 0:
        raise OSError(ctypes.get_errno(), "no mount namespace for the machines")
    place = "/dev/shm"
    for arguments in (["--make-rprivate", "/"], ["-t", "tmpfs", "tmpfs", place]):
        subprocess.run(["mount", *arguments], check=True)
    return place


def wait_for(what, predicate, limit):
    """Waits until predicate() is true, `limit` seconds at most, and returns what it gave."""
    end = time.monotonic() + limit
    while True:
        value = predicate()
        if value:
            return value
        if time.monotonic() > end:
            raise AssertionError(f"{limit} s have passed: {what}; last seen: {value!r}")
        time.sleep(0.1)


class Result:
    def __init__(self, done):
        self.status, self.out, self.err = done.returncode, done.stdout, done.stderr

    @property
    def text(self):
        return self.out + self.err

    def __repr__(self):
        return f"status {self.status}\n--- stdout\n{self.out}--- stderr\n{self.err}"


def mounted(place, image):
    """Where the image is mounted for this test program."""
    directory = os.path.join(place, os.path.basename(image) + ".lower")
    if not os.path.isdir(directory):
        os.makedirs(directory)
        done = subprocess.run(["mount", "-t", "squashfs", "-o", "loop,ro", image, directory])
        if done.returncode != 0:
            raise AssertionError(f"{image} cannot be mounted: does this kernel have squashfs and loop devices?")
    return directory


def groups(place):
    """This program's control group, in which those of its machines are."""
    directory = os.path.join(place, "groups")
    if not os.path.isdir(directory):
        os.makedirs(directory)
        subprocess.run(["mount", "-t", "cgroup2", "cgroup2", directory], check=True)
    with open("/proc/self/cgroup") as file:
        own = next(line[3:] for line in file if line.startswith("0::"))
    return os.path.join(directory, own.strip().lstrip("/"))


class Machine:
    """One machine: an image below, a disk of its own above. The disk stays when the machine goes."""

    def __init__(self, place, name, image, init="none", shared=()):
        self.base = os.path.join(place, name)
        self.lower = mounted(place, image)
        self.group = os.path.join(groups(place), f"velarix-package-{os.getpid()}-{name}")
        self.name, self.init, self.process, self.pid = name, init, None, None
        self.shared = [f"{source}={target}" for source, target in shared]

    def power_on(self):
        """Its processes end with this program, however that ends; only its control group outlasts a SIGKILL."""
        atexit.register(self.power_off)
        os.makedirs(self.group)
        self.process = subprocess.Popen(
            ["unshare", "--mount", "--propagation", "private", "--pid", "--net", "--uts", "--ipc", "--cgroup",
             "--fork", "--kill-child=KILL", sys.executable, os.path.join(HERE, "boot.py"),
             os.path.join(self.base, self.name), self.lower, self.base + "/disk", self.init, *self.shared],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True, preexec_fn=self._join)
        if self.process.stdout.readline() != "made\n":
            raise AssertionError(f"the machine {self.name} cannot be made (status {self.process.wait()})")
        with open(f"/proc/{self.process.pid}/task/{self.process.pid}/children") as file:
            self.pid = int(file.read())
        if self.init == "systemd":
            wait_for("the machine is up", self._is_up, 60)

    def _join(self):
        PR_SET_PDEATHSIG = 1
        LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
        with open(self.group + "/cgroup.procs", "w") as file:
            file.write("0")

    def power_off(self):
        """As by pulling the plug: nothing in the machine gets to know."""
        if self.process is not None:
            self.process.kill()
            self.process.wait()
            self.process.stdout.close()
            self.process = None
            with open(self.group + "/cgroup.kill", "w") as file:
                file.write("1")
            wait_for(f"{self.group} is removed", self._is_removed, 10)

    def _is_removed(self):
        """The kernel takes a moment to end what was in the group."""
        try:
            for directory, _, _ in os.walk(self.group, topdown=False):
                os.rmdir(directory)
            return True
        except OSError:
            return False

    def wait_for_end(self, limit):
        """Waits until the machine has switched itself off."""
        wait_for(f"the machine {self.name} is off", lambda: self.process.poll() is not None, limit)
        self.power_off()

    def _is_up(self):
        return self.run("systemctl is-system-running", check=False).out.strip() in ("running", "degraded")

    def _entered(self, command):
        return ["nsenter", "--target", str(self.pid), "--all", "--root", "--wd", "env", "-i", f"PATH={PATH}",
                "LC_ALL=C.UTF-8", "DEBIAN_FRONTEND=noninteractive", "sh", "-c", command]

    def run(self, command, check=True, stdin="", limit=120):
        """Runs a shell command in the machine; fails the test unless its status is 0."""
        done = subprocess.run(self._entered(command), input=stdin, capture_output=True, text=True, errors="replace",
                              timeout=limit)
        result = Result(done)
        if check and result.status != 0:
            raise AssertionError(f"{command}: {result}")
        return result

    def read(self, path):
        return self.run(f"cat '{path}'").out

    def write(self, path, content, mode="0644"):
        self.run(f"mkdir -p '{os.path.dirname(path)}' && cat >'{path}' && chmod {mode} '{path}'", stdin=content)

    def put(self, source, path):
        with open(source, "rb") as file:
            subprocess.run(self._entered(f"cat >'{path}'"), stdin=file, check=True)

    def exists(self, path):
        return self.run(f"test -e '{path}'", check=False).status == 0

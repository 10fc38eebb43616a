"""Machines for the package tests: a Debian release in namespaces of its own.

A test program calls private_place() first; from then on whatever it mounts is gone
with it, however it ends.
"""

import os
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin"
MARK = "VELARIX_PACKAGE_TEST_PLACE"


def need_root():
    """Ends the program, without root, with the status that ctest takes for "skipped"."""
    if os.geteuid() != 0:
        print("root is needed: these tests make whole machines", file=sys.stderr)
        sys.exit(77)


def private_place():
    """Starts this program anew in a mount namespace of its own, with a directory in memory."""
    need_root()
    if MARK not in os.environ:
        os.environ[MARK] = tempfile.mkdtemp(prefix="velarix-package-")
        status = subprocess.run(["unshare", "--mount", "--propagation", "private", sys.executable, *sys.argv]).returncode
        os.rmdir(os.environ[MARK])
        sys.exit(status if status >= 0 else 128 - status)
    place = os.environ[MARK]
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", place], check=True)
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


class Machine:
    """One machine: an image below, a disk of its own above. The disk stays when the machine goes.

    IMAGE is a file, or another machine that is off: what is on its disk is there, too.
    """

    def __init__(self, place, name, image, init="none", shared=()):
        self.base = os.path.join(place, name)
        if isinstance(image, Machine):
            self.lower = f"{image.base}/disk/files:{image.lower}"
        else:
            self.lower = mounted(place, image)
        self.name, self.init, self.shared, self.watcher, self.pid = name, init, list(shared), None, None

    def __enter__(self):
        self.power_on()
        return self

    def __exit__(self, *_):
        self.power_off()

    def power_on(self):
        arguments = [os.path.join(self.base, self.name), self.lower, self.base + "/disk", self.init]
        self.watcher = subprocess.Popen(
            ["unshare", "--mount", "--propagation", "private", sys.executable, os.path.join(HERE, "boot.py"),
             *arguments, *(f"{a}={b}" for a, b in self.shared)],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        if self.watcher.stdout.readline() != "made\n":
            raise AssertionError(f"the machine {self.name} cannot be made (status {self.watcher.wait()})")
        unshare = self._only_child(self.watcher.pid)
        self.pid = self._only_child(unshare)
        if self.init == "systemd":
            wait_for("the machine is up", self._is_up, 60)

    def power_off(self):
        """As by pulling the plug: nothing in the machine gets to know."""
        if self.watcher is not None:
            self.watcher.terminate()
            self.watcher.wait()
            self.watcher.stdout.close()
            self.watcher = None

    def wait_for_end(self, limit):
        """Waits until the machine has switched itself off."""
        wait_for(f"the machine {self.name} is off", lambda: self.watcher.poll() is not None, limit)
        self.power_off()

    def _is_up(self):
        return self.run("systemctl is-system-running", check=False).out.strip() in ("running", "degraded")

    @staticmethod
    def _only_child(pid):
        with open(f"/proc/{pid}/task/{pid}/children") as file:
            return int(file.read().split()[0])

    def run(self, command, check=True, stdin="", limit=120):
        """Runs a shell command in the machine; fails the test unless its status is 0."""
        done = subprocess.run(
            ["nsenter", "--target", str(self.pid), "--mount", "--pid", "--net", "--uts", "--ipc", "--cgroup",
             "--root", "--wd", "env", "-i", f"PATH={PATH}", "LC_ALL=C.UTF-8", "DEBIAN_FRONTEND=noninteractive",
             "sh", "-c", command],
            input=stdin, capture_output=True, text=True, errors="replace", timeout=limit)
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
            subprocess.run(["nsenter", "--target", str(self.pid), "--mount", "--root", "sh", "-c", f"cat >'{path}'"],
                           stdin=file, check=True)

    def exists(self, path):
        return self.run(f"test -e '{path}'", check=False).status == 0

#!/usr/bin/env python3
"""The first process of a test's machine, and the one that watches over it.

    boot.py MERGED LOWER UPPER INIT [SHARED=TARGET...]

Makes a machine of its own namespaces (mounts, processes, network, host name, IPC,
control groups) on an overlay of two directories, and runs INIT ("systemd", or
"none" for a process that only reaps) as its process 1. Each SHARED directory
appears at TARGET in it. Prints "made" when the machine is there, and ends with it.
Ended itself, by whatever, it takes the machine with it: the kernel removes all of it.

To be started in a mount namespace of its own.
"""

import ctypes
import os
import signal
import socket
import subprocess
import sys
import time

DEVICES = ("null", "zero", "full", "random", "urandom", "tty", "net/tun")
# A kernel setting that a machine changes would be the host's.
READ_ONLY_PROC = ("sys", "sysrq-trigger", "irq", "bus")


def mount(*arguments):
    subprocess.run(["mount", *arguments], check=True)


def die_with_parent():
    PR_SET_PDEATHSIG = 1
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def own_group():
    with open("/proc/self/cgroup") as file:
        for line in file:
            if line.startswith("0::"):
                return line[3:].strip().lstrip("/")
    return ""


def remove_group(group):
    """The kernel takes a moment to end what was in it."""
    with open(group + "/cgroup.kill", "w") as file:
        file.write("1")
    for _ in range(100):
        try:
            for directory, _, _ in os.walk(group, topdown=False):
                os.rmdir(directory)
            return
        except OSError:
            time.sleep(0.1)
    print(f"boot: {group} cannot be removed", file=sys.stderr)


def watch(merged, *arguments):
    """Gives the machine a control group, starts it, and removes the group afterwards."""
    groups = merged + ".groups"
    os.makedirs(groups, exist_ok=True)
    mount("-t", "cgroup2", "cgroup2", groups)
    group = os.path.join(groups, own_group(), f"velarix-package-{os.getpid()}")
    os.mkdir(group)

    def join():
        die_with_parent()
        with open(group + "/cgroup.procs", "w") as file:
            file.write("0")

    try:
        child = subprocess.Popen(
            ["unshare", "--mount", "--propagation", "private", "--pid", "--net", "--uts", "--ipc", "--cgroup",
             "--fork", "--kill-child=KILL", sys.executable, __file__, "--inside", merged, *arguments], preexec_fn=join)
        signal.signal(signal.SIGTERM, lambda *_: child.kill())
        child.wait()
    finally:
        remove_group(group)


def make_root(merged, lower, upper, shared):
    for directory in (merged, upper + "/files", upper + "/work"):
        os.makedirs(directory, exist_ok=True)
    mount("-t", "overlay", "overlay", "-o", f"lowerdir={lower},upperdir={upper}/files,workdir={upper}/work", merged)
    for source, target in shared:
        os.makedirs(merged + target, exist_ok=True)
        mount("--bind", source, merged + target)
    os.chdir(merged)
    mount("-t", "proc", "proc", "proc")
    for name in READ_ONLY_PROC:
        if os.path.exists("proc/" + name):
            mount("--bind", "proc/" + name, "proc/" + name)
            mount("-o", "remount,bind,ro", "proc/" + name)
    mount("-t", "sysfs", "-o", "ro", "sysfs", "sys")
    mount("-t", "cgroup2", "cgroup2", "sys/fs/cgroup")
    mount("-t", "tmpfs", "-o", "mode=755", "tmpfs", "dev")
    os.mkdir("dev/net")
    for name in DEVICES:
        open("dev/" + name, "w").close()
        mount("--bind", "/dev/" + name, "dev/" + name)
    os.mkdir("dev/pts")
    os.mkdir("dev/shm")
    mount("-t", "devpts", "-o", "newinstance,ptmxmode=0666", "devpts", "dev/pts")
    for target, name in (("pts/ptmx", "ptmx"), ("/proc/self/fd", "fd"), ("/proc/self/fd/0", "stdin"),
                         ("/proc/self/fd/1", "stdout"), ("/proc/self/fd/2", "stderr")):
        os.symlink(target, "dev/" + name)
    mount("-t", "tmpfs", "-o", "mode=755", "tmpfs", "run")
    os.makedirs("run/host-root")
    subprocess.run(["pivot_root", ".", "run/host-root"], check=True)
    # This process is old root's business still; everything it needs is loaded.
    os.chroot(".")
    os.chdir("/")
    subprocess.run(["umount", "--lazy", "/run/host-root"], check=True)


def reap():
    while True:
        try:
            os.wait()
        except ChildProcessError:
            signal.pause()
        except InterruptedError:
            pass


def inside(merged, lower, upper, init, *shared):
    make_root(merged, lower, upper, [item.split("=", 1) for item in shared])
    socket.sethostname(os.path.basename(merged))
    print("made", flush=True)
    quiet = os.open("/dev/null", os.O_RDWR)
    for descriptor in (0, 1, 2):
        os.dup2(quiet, descriptor)
    if init == "systemd":
        os.execve("/lib/systemd/systemd", ["systemd", "--unit=multi-user.target"],
                  {"container": "velarix-test", "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin"})
    signal.signal(signal.SIGCHLD, lambda *_: None)
    reap()


if __name__ == "__main__":
    if sys.argv[1:2] == ["--inside"]:
        inside(*sys.argv[2:])
    else:
        watch(*sys.argv[1:])

#!/usr/bin/env python3
"""The first process of a test's machine.

    boot.py MERGED LOWER UPPER INIT [SHARED=TARGET...]

To be started in namespaces of its own (mounts, processes, network, host name, IPC,
control groups). Makes the machine's files, an overlay of two directories, prints
"made" and becomes INIT ("systemd", or "none" for a process that only reaps). Each
SHARED directory appears at TARGET.
"""

import os
import signal
import socket
import subprocess
import sys

DEVICES = ("null", "zero", "full", "random", "urandom", "tty", "net/tun")
# A kernel setting that a machine changes would be the host's.
READ_ONLY_PROC = ("sys", "sysrq-trigger", "irq", "bus")


def mount(*arguments):
    subprocess.run(["mount", *arguments], check=True)


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


def main(merged, lower, upper, init, *shared):
    make_root(merged, lower, upper, [item.split("=", 1) for item in shared])
    socket.sethostname(os.path.basename(merged))
    print("made", flush=True)
    quiet = os.open("/dev/null", os.O_RDWR)
    for descriptor in (0, 1, 2):
        os.dup2(quiet, descriptor)
    if init == "systemd":
        os.execve("/lib/systemd/systemd", ["systemd", "--unit=multi-user.target"],
                  {"container": "velarix-test", "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin"})
    # The kernel reaps the children of whoever ignores their end.
    signal.signal(signal.SIGCHLD, signal.SIG_IGN)
    while True:
        signal.pause()


if __name__ == "__main__":
    main(*sys.argv[1:])

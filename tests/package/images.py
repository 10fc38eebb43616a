#!/usr/bin/env python3
"""Makes the file system images of a Debian release that the package tests run in.

    images.py SUITE DIRECTORY [base] [build]

SUITE.base.squashfs has a minimal system with systemd, and in its package cache what
the package, its tunnel and its Ansible role need on a server; nothing of that is installed, so
that a missing dependency shows. SUITE.build.squashfs has all that scripts/package needs besides.
What is named is made, once and again whenever what goes into them has changed; everything
comes from the mirror that apt on this machine uses. One waits for another that makes the same.
"""

import fcntl
import glob
import hashlib
import os
import re
import shutil
import subprocess
import sys
import tempfile

from machine import need_root

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
DEPENDENCIES = os.path.join(ROOT, "packaging", "dependencies.txt")

IN_BASE = ["systemd", "systemd-sysv"]
IN_BUILD = ["ccache"]
# Of packaging/dependencies.txt: what the machine that builds the packages gets.
CACHED = ["run", "tunnel", "ansible"]
GROUPS = ["run", "build", "package"]


class Unusable(Exception):
    """No image can be made; the text says why in plain words."""


def paths(suite, directory):
    return {kind: os.path.join(directory, f"{suite}.{kind}.squashfs") for kind in ("base", "build")}


def key():
    """Changes with everything that decides what an image holds."""
    digest = hashlib.sha256()
    for path in (os.path.abspath(__file__), os.path.join(ROOT, "scripts", "install-deps")):
        with open(path, "rb") as file:
            digest.update(file.read())
    with open(DEPENDENCIES) as file:
        digest.update("".join(line for line in file if line.split()[:1] in ([group] for group in CACHED + GROUPS)).encode())
    return digest.hexdigest()


def mirror():
    """The archive of Debian releases in this machine's apt configuration."""
    targets = subprocess.run(
        ["apt-get", "indextargets", "--format", "$(REPO_URI)|$(RELEASE)|$(ORIGIN)|$(COMPONENT)", "Created-By: Packages"],
        capture_output=True, text=True, check=True).stdout
    for line in targets.splitlines():
        uri, release, origin, component = line.split("|")
        if component == "main" and "-" not in release and origin in ("Debian", "") and uri.startswith("http"):
            return uri
    raise Unusable("apt on this machine has no archive of Debian releases (apt-get indextargets names none): "
                   "these tests make whole systems from it")


def download_settings():
    """How apt on this machine reaches its archives: proxies, retries, clock."""
    dump = subprocess.run(["apt-config", "dump"], capture_output=True, text=True, check=True).stdout
    return "".join(line + "\n" for line in dump.splitlines()
                   if re.match(r'Acquire::(http|https|ftp|Check|Retries|ForceIPv)[^ ]* "', line))


def run(command, log, why):
    """Runs it in a mount namespace of its own: what it mounts goes with it."""
    with open(log, "ab") as output:
        status = subprocess.run(["unshare", "--mount", "--propagation", "private", *command],
                                stdin=subprocess.DEVNULL, stdout=output, stderr=output,
                                env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "DEBIAN_FRONTEND": "noninteractive",
                                     "LC_ALL": "C", **proxies()}).returncode
    if status != 0:
        with open(log, errors="replace") as output:
            last = "".join(output.readlines()[-5:])
        raise Unusable(f"{why} Its last words:\n{last}")


def proxies():
    return {name: value for name, value in os.environ.items() if name.lower().endswith("_proxy")}


def write(root, path, content):
    full = root + path
    os.makedirs(os.path.dirname(full), exist_ok=True)
    with open(full, "w") as file:
        file.write(content)


def squash(root, image, log):
    run(["mksquashfs", root, image, "-noappend", "-quiet", "-no-progress", "-no-xattrs", "-comp", "zstd",
         "-Xcompression-level", "1"],
        log, "The image cannot be written.")


def make(suite, directory, kinds):
    for left in glob.glob(os.path.join(directory, suite + "-making-*")):
        shutil.rmtree(left)
    work = tempfile.mkdtemp(prefix=suite + "-making-", dir=directory)
    root, log = work + "/root", work + "/log"
    try:
        archive = mirror()
        run(["debootstrap", "--variant=minbase", "--include=" + ",".join(IN_BASE), suite, root, archive], log,
            f"A system of {suite} cannot be made from the mirror that apt on this machine uses. "
            "Is the network there, and does the mirror have that release?")
        write(root, "/etc/apt/apt.conf.d/90download", download_settings())
        # Nobody needs this system after a power failure.
        write(root, "/etc/dpkg/dpkg.cfg.d/fast", "force-unsafe-io\n")
        write(root, "/etc/hosts", "127.0.0.1 localhost\n")
        shutil.copy("/etc/resolv.conf", root + "/etc/resolv.conf")
        write(root, "/deps/packaging/dependencies.txt", open(DEPENDENCIES).read())
        shutil.copytree(os.path.join(ROOT, "scripts"), root + "/deps/scripts")
        install_deps = ["chroot", root, "/deps/scripts/install-deps"]
        why = f"{suite}: the packages cannot be fetched. Is the network there?"
        run(["chroot", root, "apt-get", "clean"], log, why)
        run([*install_deps, "--download-only", *CACHED], log, why)
        squash(root, work + "/base", log)
        if "build" in kinds:
            run([*install_deps, *GROUPS], log, why)
            run(["chroot", root, "apt-get", "-qq", "-y", "--no-install-recommends", "install", *IN_BUILD], log, why)
            run(["chroot", root, "apt-get", "clean"], log, why)
            squash(root, work + "/build", log)
        for kind in kinds:
            os.replace(work + "/" + kind, paths(suite, directory)[kind])
    finally:
        shutil.rmtree(work)


def main():
    if len(sys.argv) < 4 or not set(sys.argv[3:]) <= {"base", "build"}:
        print(__doc__, file=sys.stderr)
        return 2
    suite, directory, *kinds = sys.argv[1:]
    need_root()
    os.makedirs(directory, exist_ok=True)
    lock = open(os.path.join(directory, suite + ".lock"), "w")
    fcntl.flock(lock, fcntl.LOCK_EX)
    stamp = os.path.join(directory, suite + ".key")
    if all(os.path.exists(paths(suite, directory)[kind]) for kind in kinds) and os.path.exists(stamp):
        with open(stamp) as file:
            if file.read() == key():
                return 0
    try:
        make(suite, directory, kinds)
    except Unusable as error:
        print(f"images: {error}", file=sys.stderr)
        return 1
    with open(stamp, "w") as file:
        file.write(key())
    return 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Makes the packages for a Debian release.

    build_packages.py SUITE IMAGES OUTPUT TREE

Of the build tree TREE as it is (for the release that this machine runs), or, where TREE
is a tree of sources, with scripts/package in a machine made of SUITE's build image,
which has no network. OUTPUT gets the packages, in OUTPUT/old the same under a lower
version, to upgrade from, and, made of sources, in OUTPUT/unnamed what scripts/package
says to somebody who names no maintainer.
"""

import atexit
import os
import shutil
import subprocess
import sys

import images
import node
from machine import private_place

OLD_VERSION = "0.9.0"
MAINTAINER = "Who Tests <velarix-ha@tests.example.com>"


def without_history(directory, names):
    return {name for name in names if directory == images.ROOT and (name in ("build", ".git") or name.startswith(".cache"))}


def cpack(tree, output, kinds, version=None):
    """The commands that make packages of a build tree, of another version when one is given."""
    other = f" -D CPACK_PACKAGE_VERSION={version}" if version else ""
    return [f"cpack --config {tree}/CPackConfig.cmake -G {kind} -B {output}/made{other} >&2 && "
            f"mv {output}/made/*.{kind.lower()} {output}/ && rm -r {output}/made" for kind in kinds]


def of_build_tree(tree, output):
    for command in cpack(tree, output, ["DEB"]) + cpack(tree, output + "/old", ["DEB"], OLD_VERSION):
        subprocess.run(["sh", "-c", command], check=True)


def main():
    if len(sys.argv) != 5:
        print(__doc__, file=sys.stderr)
        return 2
    suite, directory, output, tree = sys.argv[1], *map(os.path.abspath, sys.argv[2:])
    shutil.rmtree(output, ignore_errors=True)
    os.makedirs(output + "/old")
    if os.path.exists(tree + "/CPackConfig.cmake"):
        of_build_tree(tree, output)
        return 0
    return of_sources(suite, directory, output)


def of_sources(suite, directory, output):
    place = node.Place.directory = private_place()
    node.Place.suite, node.Place.images = suite, directory
    # The tests beside it mostly wait, and some of them measure for how long.
    os.nice(5)
    shutil.copytree(images.ROOT, place + "/sources", ignore=without_history, symlinks=True)
    cache = os.path.join(directory, f"ccache-{suite}")
    os.makedirs(output + "/unnamed")
    os.makedirs(cache, exist_ok=True)
    shared = [(place + "/sources", "/velarix"), (output, "/packages"), (cache, "/ccache")]
    machine = node.boot(atexit.register, "build", image="build", shared=shared)
    built = machine.run(
        "cd /velarix && export CCACHE_DIR=/ccache CCACHE_DEPEND=1 && "
        "{ scripts/package --no-install --output /packages/unnamed deb 2>/packages/unnamed/said ||"
        "  { cat /packages/unnamed/said >&2; exit 1; }; } && "
        f"scripts/package --no-install --output /packages --maintainer '{MAINTAINER}' 2>/packages/said && " +
        " && ".join(cpack("build/package", "/packages/old", ["DEB", "RPM"], OLD_VERSION)),
        check=False, limit=1500)
    if built.status != 0:
        print(built, file=sys.stderr)
        return 1
    print(built.out, end="")
    return 0


if __name__ == "__main__":
    sys.exit(main())

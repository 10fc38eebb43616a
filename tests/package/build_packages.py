#!/usr/bin/env python3
"""Builds the packages for a Debian release, in that release.

    build_packages.py SUITE IMAGES OUTPUT

Runs scripts/package on a copy of the sources in a machine made of SUITE's build
image, which has no network. OUTPUT gets the packages, in OUTPUT/old the same under a
lower version, to upgrade from, and in OUTPUT/unnamed what scripts/package says to
somebody who names no maintainer.
"""

import os
import shutil
import sys

import images
from machine import Machine, private_place

OLD_VERSION = "0.9.0"
MAINTAINER = "Who Tests <velarix-ha@tests.example.com>"


def without_history(directory, names):
    return {name for name in names if directory == images.ROOT and (name in ("build", ".git") or name.startswith(".cache"))}


def main():
    if len(sys.argv) != 4:
        print(__doc__, file=sys.stderr)
        return 2
    suite, directory, output = sys.argv[1], *map(os.path.abspath, sys.argv[2:])
    place = private_place()
    shutil.copytree(images.ROOT, place + "/sources", ignore=without_history, symlinks=True)
    cache = os.path.join(directory, f"ccache-{suite}")
    shutil.rmtree(output, ignore_errors=True)
    os.makedirs(output + "/old")
    os.makedirs(output + "/unnamed")
    os.makedirs(cache, exist_ok=True)
    shared = [(place + "/sources", "/velarix"), (output, "/packages"), (cache, "/ccache")]
    with Machine(place, "build", images.paths(suite, directory)["build"], shared=shared) as machine:
        built = machine.run(
            "cd /velarix && export CCACHE_DIR=/ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache && "
            "{ scripts/package --no-install --output /packages/unnamed deb 2>/packages/unnamed/said ||"
            "  { cat /packages/unnamed/said >&2; exit 1; }; } && "
            f"scripts/package --no-install --output /packages --maintainer '{MAINTAINER}' 2>/packages/said && "
            "for kind in DEB RPM; do"
            "  cpack --config build/package/CPackConfig.cmake -G $kind -B /tmp/old "
            f"   -D CPACK_PACKAGE_VERSION={OLD_VERSION} >&2 || exit 1; "
            "done && cp /tmp/old/*.deb /tmp/old/*.rpm /packages/old/",
            check=False, limit=1500)
    if built.status != 0:
        print(built, file=sys.stderr)
        return 1
    print(built.out, end="")
    return 0


if __name__ == "__main__":
    sys.exit(main())

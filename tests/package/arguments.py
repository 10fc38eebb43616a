"""The command line of the test programs: SUITE IMAGES PACKAGES [unittest's options]."""

import glob
import os
import sys
import unittest

import images
from machine import private_place
from node import package


class Place:
    """Where a test program works; filled by run()."""

    directory = base = build = deb = old_deb = rpm = old_rpm = ""


def run():
    if len(sys.argv) < 4:
        print(f"usage: {sys.argv[0]} SUITE IMAGES PACKAGES [OPTIONS]", file=sys.stderr)
        sys.exit(2)
    Place.directory = private_place()
    suite, directory, packages = sys.argv[1:4]
    made = images.paths(suite, directory)
    Place.base, Place.build = made["base"], made["build"]
    old = os.path.join(packages, "old")
    Place.deb, Place.old_deb = package(packages), package(old)
    # A package made of this machine's own build comes without an RPM.
    if glob.glob(packages + "/*.rpm"):
        Place.rpm, Place.old_rpm = package(packages, "rpm"), package(old, "rpm")
    unittest.main(module="__main__", argv=[sys.argv[0], "-v", *sys.argv[4:]])

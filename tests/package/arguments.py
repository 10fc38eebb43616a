"""What the test programs share: their command line, SUITE IMAGES PACKAGES [unittest's options], and their machines."""

import glob
import os
import sys
import unittest

import images
import node
from machine import private_place


class Place:
    """Where a test program works; filled by run()."""

    directory = base = build = deb = old_deb = rpm = old_rpm = ""


def boot(at_end, name, below, init="none", package=None, shared=()):
    """A machine that goes with its test: AT_END is the test's addCleanup, or its class's. With a package
    that is installed, and all that an agent needs around it."""
    made = node.Node(Place.directory, name, below, init, shared)
    made.power_on()
    at_end(made.power_off)
    if package:
        made.install(package)
        made.equip()
    return made


def run():
    if len(sys.argv) < 4:
        print(f"usage: {sys.argv[0]} SUITE IMAGES PACKAGES [OPTIONS]", file=sys.stderr)
        sys.exit(2)
    Place.directory = private_place()
    suite, directory, packages = sys.argv[1:4]
    made = images.paths(suite, directory)
    Place.base, Place.build = made["base"], made["build"]
    old = os.path.join(packages, "old")
    Place.deb, Place.old_deb = node.package(packages), node.package(old)
    # A package made of this machine's own build comes without an RPM.
    if glob.glob(packages + "/*.rpm"):
        Place.rpm, Place.old_rpm = node.package(packages, "rpm"), node.package(old, "rpm")
    unittest.TestCase.maxDiff = None
    unittest.main(module="__main__", argv=[sys.argv[0], "-v", *sys.argv[4:]])

#!/usr/bin/env python3
"""Runs tests of this folder: run.py SUITE IMAGES PACKAGES MODULE[.CLASS[.TEST]]... [unittest's options]"""

import sys
import unittest

import node
from machine import private_place

if __name__ == "__main__":
    if len(sys.argv) < 5:
        print(__doc__, file=sys.stderr)
        sys.exit(2)
    node.Place.directory = private_place()
    node.Place.suite, node.Place.images, node.Place.packages = sys.argv[1:4]
    unittest.TestCase.maxDiff = None
    unittest.main(module=None, argv=[sys.argv[0], "-v", *sys.argv[4:]])

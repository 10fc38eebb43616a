#!/usr/bin/python3
"""What the attacker of the lab says, and that it knows every attack of the table."""

import os
import random
import sys
import tomllib
import unittest

LAB = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "lab")
sys.path.insert(0, os.path.join(LAB, "guest"))

import attacker
import attacker_connections


class Attacks(unittest.TestCase):
    def test_are_those_of_the_table(self):
        with open(os.path.join(LAB, "tables", "attacks.toml"), "rb") as table:
            self.assertEqual({row["attack"] for row in tomllib.load(table)["cases"]}, set(attacker.ATTACKS))

    def test_random_messages_hold_no_heartbeat_however_they_are_read(self):
        seed = random.randrange(1 << 32)
        dice = random.Random(seed)
        for _ in range(10000):
            payload = attacker_connections.random_payload(dice)
            self.assertLessEqual(len(payload), 600)
            # What is read begins anywhere; six fields, of which the second begins so, are a heartbeat.
            for begin in (at for at in range(len(payload)) if payload.startswith(b"/process", at)):
                self.assertLess(payload[begin:begin + 256].count(b"/"), 5, f"seed {seed}: {payload!r}")


if __name__ == "__main__":
    unittest.main()

#!/usr/bin/python3
"""What the lab's attacker says, that it knows every attack of the table, and the fate of frames on a bad wire."""

import os
import random
import sys
import tomllib
import unittest

LAB = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "lab")
sys.path.insert(0, os.path.join(LAB, "guest"))

import attacker
import attacker_connections
import relay


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


class BadWire(unittest.TestCase):
    @staticmethod
    def dues(loss, delay=0, jitter=0, seed="1 to", source=b"", peer=b""):
        line = relay.Line(loss, delay, jitter, seed, peer)
        return [line.due(source, frame / 10) for frame in range(10000)]

    def test_loses_the_share_asked_for(self):
        for percent in (0, 10, 30, 50, 100):
            lost = self.dues(percent).count(None) / 100
            self.assertAlmostEqual(lost, percent, delta=2 if 0 < percent < 100 else 0)

    def test_is_repeatable_from_its_seed(self):
        self.assertEqual(self.dues(30, 200, 100), self.dues(30, 200, 100))
        self.assertNotEqual(self.dues(30, 200, 100), self.dues(30, 200, 100, "1 from"))

    def test_delays_within_the_jitter_and_keeps_the_order(self):
        dues = self.dues(0, 200, 150)
        self.assertEqual(dues, sorted(dues))
        delays = [due - frame / 10 for frame, due in enumerate(dues)]
        self.assertTrue(0.0499 < min(delays) < 0.07 and 0.33 < max(delays) < 0.3501, (min(delays), max(delays)))

    def test_knows_whom_a_frame_comes_from(self):
        self.assertEqual(set(self.dues(100, source=b"abcdef", peer=b"abcdef")), {None})
        self.assertNotIn(None, self.dues(100, source=b"ghijkl", peer=b"abcdef"))


if __name__ == "__main__":
    unittest.main()

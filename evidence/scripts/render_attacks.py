#!/usr/bin/env python3
"""Writes the table of attacks of docs/security.md from records of velarix-lab.

    sudo velarix-lab hostile --json --output none.json
    sudo velarix-lab hostile --mitigation firewall --json --output firewall.json
    evidence/scripts/render_attacks.py none.json firewall.json [--report docs/security.md]

Each file holds the records of one run; several files may hold the same mitigation.
"""

import argparse
import json
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts", "lib"))

import common
import page

MITIGATIONS = ("none", "port", "firewall", "neighbours")
NO_OUTAGE = 1000  # milliseconds; shorter gaps are those of a busy machine


def seconds(milliseconds):
    return f"{milliseconds / 1000:.1f} s"


def outcome(record):
    """What the client and the address saw of one case."""
    during = record["during"]
    parts = []
    if during["outageMs"] > NO_OUTAGE:
        parts.append(f"outage {seconds(during['noAnswerMs'])} of {seconds(during['durationMs'])}")
    if during["duplicateMs"] > 0:
        parts.append(f"duplicate address {seconds(during['duplicateMs'])}")
    if during["moves"] > 0:
        parts.append(f"{during['moves']} moves")
    if record["differences"]:
        parts.append("**not as expected**")
    return ", ".join(parts) or "no outage"


def table(records):
    """One row for each case, one column for each mitigation that was run."""
    runs = {}
    for record in records:
        runs.setdefault(record["name"], {})[record["mitigation"]] = outcome(record)
    columns = [name for name in MITIGATIONS if any(name in run for run in runs.values())]
    lines = ["| case | " + " | ".join(columns) + " |", "|---" * (len(columns) + 1) + "|"]
    for name, run in runs.items():
        lines.append(f"| `{name}` | " + " | ".join(run.get(column, "") for column in columns) + " |")
    return "\n".join(lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("records", nargs="+", help="JSON files of velarix-lab hostile")
    parser.add_argument("--report", help="a page with marks for the figures; default: standard output")
    arguments = parser.parse_args()
    records = []
    for path in arguments.records:
        with open(path, encoding="utf-8") as handle:
            records += json.load(handle)
    if arguments.report:
        page.put_figures(arguments.report, table(records) + "\n", name="attacks")
    else:
        print(table(records))
    return 0


if __name__ == "__main__":
    common.run_main(main)

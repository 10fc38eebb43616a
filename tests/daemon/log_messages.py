#!/usr/bin/env python3
"""Compares docs/log-messages.md with what the daemon's tests made the daemon say.

    log_messages.py ROOT FOLDER PROGRAM...

FOLDER has a file for each test program that ran (tests/support/SeenLines.h). Every line
seen must be a row of the catalogue, with its level and its text; every numbered row must
have been seen. Where some of the programs did not run, rows that nobody saw are no
mistake. Console texts have no number; the tests of the log and of the entry pin them.
"""

import importlib.util
import pathlib
import re
import sys

# Every failure to launch a program ends the daemon before it could say this.
NEVER_SEEN = {("Utill", "101")}
# The labels of the lines that tests of the log and of the report write themselves.
LABELS_OF_TESTS = {"Source", "Test", "Label", "A", "B", "C"}


def read_catalogue(root):
    """The numbered rows by label and number."""
    spec = importlib.util.spec_from_file_location("catalogue_table", root / "inspect" / "catalogue-table.py")
    table = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(table)
    rows, twice = {}, []
    for row in table.read(root / "docs" / "log-messages.md"):
        key = row["label"], row["number"]
        if row["number"] != "-":
            twice += [f"{row['label']}:{row['number']} stands there twice"] if key in rows else []
            rows[key] = row
    return rows, twice


def pattern(text):
    """What a line of this format looks like."""
    pieces = re.split(r"%[-+ #0]*\d*(?:\.\d+)?[hlzjt]*[a-zA-Z]", text)
    return re.compile(".*".join(re.escape(piece) for piece in pieces), re.DOTALL)


def mistake(row, level, text, function):
    """What of a seen line is not as in its row; empty when nothing."""
    wanted = "debug" if row["level"] == "notice" else row["level"]  # a notice carries the letter of debug
    if level != wanted:
        return f"is a line of level {level}, in the catalogue {wanted}"
    if level == "fatal":
        return "" if (text, function) == (row["text"], row["function"]) else f"says {text!r} in {function!r}"
    return "" if pattern(row["text"]).fullmatch(text) else f"says {text!r}"


def compare(rows, files):
    """The mistakes in the lines seen, and the places seen."""
    found, seen = [], set()
    for file in files:
        for line in file.read_text(encoding="utf-8", errors="replace").split("\n")[:-1]:
            label, number, level, text, function = line.split("\t")
            if label in LABELS_OF_TESTS:
                continue
            row = rows.get((label, number))
            wrong = "is not in the catalogue" if row is None else mistake(row, level, text, function)
            if wrong:
                found.append(f"{label}:{number} {wrong} ({file.name})")
            seen.add((label, number))
    return found, seen


def main(root, folder, *programs):
    rows, problems = read_catalogue(pathlib.Path(root))
    ran = [pathlib.Path(folder, name) for name in programs if pathlib.Path(folder, name).exists()]
    found, seen = compare(rows, ran)
    problems += dict.fromkeys(found)
    unseen = sorted(set(rows) - seen - NEVER_SEEN)
    if len(ran) == len(programs):
        problems += [f"{label}:{number} was seen by no test" for label, number in unseen]
        problems += [f"{label}:{number} is no longer unseen" for label, number in NEVER_SEEN & seen]
    else:
        print(f"{len(ran)} of {len(programs)} programs ran, so that unseen rows are no mistake")
    print(f"{len(rows)} numbered rows, {len(seen)} seen, {len(problems)} problems", *problems, sep="\n")
    return 1 if problems or not ran else 0


if __name__ == "__main__":
    sys.dont_write_bytecode = True
    sys.exit(main(*sys.argv[1:]))

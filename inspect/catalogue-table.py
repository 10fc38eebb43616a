#!/usr/bin/env python3
"""Turns docs/log-messages.md into a C++ table, so that page and program never differ.

Usage: catalogue-table.py PAGE OUTPUT
"""

import pathlib
import re
import sys

HEADING = re.compile(r"^## `(?P<file>[^`]+)` \(label `(?P<label>\w+)`\)$")
ROW = re.compile(
    r"^\| (?P<number>\d+|-) \| (?P<level>\w+) \| (?:`(?P<text>[^`]*)`|\(empty\))(?: in `(?P<function>[^`]*)`)? "
    r"\| (?P<when>[^|]+) \| (?P<action>[^|]+) \|$"
)
AFTER = re.compile(r"after lines? (\d+)(?: to (\d+))?")
REFERENCE = re.compile(r"(as|after) line (\d+)")
ESCAPES = {"n": "\n", "r": "\r"}


def literal(text):
    """A C++ string literal; every byte that is no plain character in octal."""
    plain = []
    for byte in text.encode("utf-8"):
        char = chr(byte)
        plain.append(char if 32 <= byte < 127 and char not in '"\\?' else f"\\{byte:03o}")
    return '"' + "".join(plain) + '"'


def said(text):
    """The page writes a line feed as \\n and a carriage return as \\r."""
    return re.sub(r"\\([nr])", lambda match: ESCAPES[match[1]], text)


def prose(text):
    return text.replace("`", '"')


def read(page):
    rows, place, topic = [], None, []
    for line_number, line in enumerate(page.read_text(encoding="utf-8").splitlines(), 1):
        heading = HEADING.match(line)
        if heading:
            place, topic = heading, []
        elif line.startswith("## "):
            place = None
        elif place is None or not line or line.startswith(("| line |", "|---", "| ---")):
            continue
        elif not line.startswith("|"):
            topic.append(line)
        else:
            row = ROW.match(line)
            if row is None:
                sys.exit(f"{page}:{line_number}: not a row of the catalogue: {line[:60]}")
            rows.append({**row.groupdict(""), "file": place["file"], "label": place["label"], "topic": " ".join(topic)})
    if not rows:
        sys.exit(f"{page}: has no rows")
    return rows


def fatal_numbers(rows):
    """Which fatal condition follows a message: {(label, number): number of the condition}."""
    result = {}
    for row in rows:
        after = AFTER.match(row["when"]) if row["level"] == "fatal" else None
        if after:
            first, last = int(after[1]), int(after[2] or after[1])
            for number in range(first, last + 1):
                result[row["label"], str(number)] = row["number"]
    return result


def resolve(rows):
    """Puts in what "as line 82" and "after line 82" refer to, since here nobody sees that line."""
    by_place = {(row["label"], row["number"]): row for row in rows}
    for column in ("when", "action"):
        for row in rows:
            reference = REFERENCE.match(row[column])
            if not reference:
                continue
            other = by_place.get((row["label"], reference[2]))
            if other is None:
                sys.exit(f"{row['label']}:{row['number']} refers to line {reference[2]}, which is not there")
            row[column] = f"{reference[0]} ({other[column]}){row[column][reference.end():]}"


def main(page, output):
    rows = read(page)
    resolve(rows)
    fatal = fatal_numbers(rows)
    lines = []
    for row in rows:
        number = "0" if row["number"] == "-" else row["number"]
        texts = [row["file"], row["label"], row["level"], said(row["text"]), row["function"]]
        texts += [prose(row["when"]), prose(row["action"]), prose(row["topic"])]
        lines.append(f"{{{number}, {fatal.get((row['label'], row['number']), 0)}, {', '.join(map(literal, texts))}}},\n")
    output.write_text(
        f"// Made from {page.name} by catalogue-table.py.\n"
        '#include "inspect/Catalogue.h"\n\n'
        "namespace velarix::inspect\n{\nnamespace\n{\n"
        "constexpr CatalogueRow kRows[] = {\n" + "".join(lines) + "};\n} // namespace\n\n"
        "std::span<const CatalogueRow> catalogue()\n{\n\treturn kRows;\n}\n} // namespace velarix::inspect\n",
        encoding="utf-8",
    )


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]))

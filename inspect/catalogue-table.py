#!/usr/bin/env python3
"""Turns docs/log-messages.md, and the words that other pages list, into C++ tables, so that
pages and program never differ.

Usage: catalogue-table.py PAGE OUTPUT WORD-PAGE...
"""

import json
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
# The first heading of a table of words: what such a word is, and what to do about it.
WORDS = {
    "event": ("event", 'its place, in brackets, says more: "velarixctl explain LABEL:NUMBER"'),
    "cause": ("cause", 'see what "velarixctl events" shows before it'),
    "fault": ("fault", 'see troubleshooting.md'),
    "id": ("problem", '"velarixctl pair" names a fix; see troubleshooting.md'),
    "agent": ("agent", '"velarixctl status" names the problem'),
    "address": ("address", '"keeper status" and "velarixctl events" say more'),
    "service": ("service", '"keeper status" and "velarixctl events" say more'),
    "finding": ("finding", '"velarixctl check" names place and fix'),
}


def literal(text):
    return json.dumps(text, ensure_ascii=False)


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


def read_words(page):
    """The rows of the tables of words: [label, level, word, meaning, action, topic]."""
    rows, heading = [], None
    for line in page.read_text(encoding="utf-8").splitlines():
        cells = [cell.strip() for cell in re.split(r"(?<!\\)\|", line)[1:-1]]
        if not cells:
            heading = None
        elif heading is None:
            heading = cells
        elif heading[0] in WORDS and cells[0].startswith("`"):
            named = dict(zip(heading, cells))
            label, action = WORDS[heading[0]]
            meaning = prose(named.get("meaning") or named["found when"])
            level = named.get("grade") or named.get("severity") or ""
            for word in re.findall(r"`([^`]+)`", cells[0]):
                rows.append([label, prose(level), word, meaning, action, f"docs/{page.name}"])
    if not rows:
        sys.exit(f"{page}: has no table of words")
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


def table(name, rows):
    """Each row: number, fatal, and the eight texts of a CatalogueRow."""
    lines = [f"{{{number}, {fatal}, {', '.join(map(literal, texts))}}},\n" for number, fatal, *texts in rows]
    return f"constexpr CatalogueRow {name}[] = {{\n" + "".join(lines) + "};\n"


def main(page, output, *word_pages):
    rows = read(page)
    resolve(rows)
    fatal = fatal_numbers(rows)
    lines = [(row["number"].replace("-", "0"), fatal.get((row["label"], row["number"]), 0), row["file"], row["label"],
              row["level"], said(row["text"]), row["function"], prose(row["when"]), prose(row["action"]), prose(row["topic"]))
             for row in rows]
    words = [(0, 0, "", label, level, word, "", *rest)
             for each in word_pages for label, level, word, *rest in read_words(each)]
    output.write_text(
        f"// Made from {page.name} and others by catalogue-table.py.\n"
        '#include "inspect/Catalogue.h"\n\n'
        "namespace velarix::inspect\n{\nnamespace\n{\n"
        + table("kRows", lines) + table("kWords", words) + "} // namespace\n\n"
        "std::span<const CatalogueRow> catalogue()\n{\n\treturn kRows;\n}\n\n"
        "std::span<const CatalogueRow> words()\n{\n\treturn kWords;\n}\n} // namespace velarix::inspect\n",
        encoding="utf-8",
    )


if __name__ == "__main__":
    main(*map(pathlib.Path, sys.argv[1:]))

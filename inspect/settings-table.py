#!/usr/bin/env python3
"""Turns settings-keys.toml into what is made of it, so that program and manual page never differ.

Usage: settings-table.py KEYS OUTPUT.cpp              the C++ table
       settings-table.py KEYS OUTPUT TEMPLATE         velarix.ini(5): the template's comment line KEYS is where the keys go
"""

import json
import pathlib
import sys
import tomllib

FIELDS = ("unit", "meaning", "when_read", "missing", "zero", "negative", "example")
TYPES = {"integer": "whole number", "address": "IPv4 address", "command": "shell command", "path": "path", "text": "text"}
NUMBERED = "PROCESS_CHECK.PROCESS_PATH"
PLACE = '.\\" KEYS\n'


def table(keys):
    rows = [f"    {{{json.dumps(key['name'])}, KeyType::{key['type']}, "
            + ", ".join(json.dumps(key.get(field, "")) for field in FIELDS) + "},\n" for key in keys]
    return ('#include "inspect/SettingsKeys.h"\n\nnamespace velarix::inspect\n{\n\nstd::span<const KeyInfo> settingsKeys()\n{\n'
            "\tstatic constexpr KeyInfo kKeys[] = {\n" + "".join(rows) + "\t};\n\treturn kKeys;\n}\n\n"
            "} // namespace velarix::inspect\n")


def escaped(text):
    """The text as the page formatter prints it letter for letter."""
    special = {"\\": "\\e", "-": "\\-", "~": "\\(ti", "^": "\\(ha", "'": "\\(aq", "`": "\\(ga"}
    # A line that begins with a dot is a request to the formatter, as one with an apostrophe.
    return ("\\&" if text.startswith(".") else "") + "".join(special.get(char, char) for char in text)


def page(keys):
    text, section = "", ""
    for key in keys:
        before, (section, name) = section, key["name"].split(".")
        if section != before:
            text += f'.SS "Section [{section}]"\n'
        numbered = key["name"] == NUMBERED
        measured = f", {key['unit']}" if "unit" in key and key["type"] in ("integer", "text") else ""
        text += f".TP\n\\fB{escaped(name)}\\fR{chr(92) + 'fIN' + chr(92) + 'fR' if numbered else ''} "
        text += f"({escaped(TYPES[key['type']] + measured)})\n{escaped(key['meaning'])}\n.RS\n"
        # The table's column is one for both: a text that is empty, a number that is zero.
        empty = "Zero" if key["type"] == "integer" else "Empty"
        for title, fact in (("Read", key["when_read"]), ("Missing", key["missing"]),
                            (empty, key["zero"].removeprefix("empty: ")), ("Negative", key.get("negative"))):
            text += f'.IP "{title}" 11\n{escaped(fact)}\n' if fact else ""
        if key.get("example"):
            text += f".IP Example 11\n{escaped(name)}{'1' if numbered else ''} = {escaped(key['example'])}\n"
        text += ".RE\n"
    return text


def main(source, output, template=None):
    read = tomllib.loads(source.read_text(encoding="utf-8"))
    keys = [read["default"] | key for key in read["key"]]
    text = table(keys)
    if template:
        before, after = template.read_text(encoding="utf-8").split(PLACE)
        text = before + page(keys) + after
    output.write_text(text, encoding="utf-8")


if __name__ == "__main__":
    main(*map(pathlib.Path, sys.argv[1:]))

#!/usr/bin/env python3
"""The manual, the completion for bash and docs/check.md name what velarixctl has, and nothing else; the
alerts of docs/operating.md watch metrics that it writes.

    pages_test.py SOURCES VELARIXCTL MANUALS [UNITTEST OPTIONS]
"""

import collections
import os
import pathlib
import re
import subprocess
import sys
import unittest

SOURCES, PROGRAM, MANUALS = pathlib.Path(sys.argv[1]), sys.argv[2], pathlib.Path(sys.argv[3])
PAGE = SOURCES / "packaging/man/velarixctl.1.in"
COMPLETION = SOURCES / "packaging/completion/velarixctl"
Option = collections.namedtuple("Option", "names value")
Verb = collections.namedtuple("Verb", "options arguments verbs")


def output_of(command, script=None):
    done = subprocess.run(command, input=script, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}: {done.stdout}")
    return done.stdout


def help_of(verb):
    """What the program's own help tells of a verb, or without one of itself."""
    entries = collections.defaultdict(list)
    section = None
    for line in output_of([PROGRAM, *verb.split(), "--help"]).splitlines():
        entry = re.fullmatch(r"  (\S+)(.*)", line)
        if line and not line.startswith(" "):
            section = line
        elif entry:
            entries[section].append(entry.groups())
    options = []
    for names, rest in entries["Options:"]:
        # " SECONDS:POSITIVE  give up ...", " a|b=a  ...", " Excludes: --other" or "   print ..."
        value = re.match(r" ([^ :=]+)", rest)
        options.append(Option(names.split(","), value[1] if value and value[1] not in ("Excludes", "Needs") else ""))
    return Verb(options, [name for name, _ in entries["Positionals:"]], [name for name, _ in entries["Subcommands:"]])


OWN = help_of("")
HELP = {"": OWN} | {verb: help_of(verb) for verb in OWN.verbs}


def names_of(verb):
    return {name for option in HELP[verb].options for name in option.names}


def options_in(text):
    return re.findall(r"(?:^|[ (\[])(--?[a-z][a-z-]*)", text)


def plain(line):
    """A line of the page as it is read: without macro, quotation marks and escapes."""
    line = re.sub(r"^\.[A-Z]+ +", "", line).replace("\\-", "-").replace("\\(aq", "'")
    return re.sub(r'\\[|e]|"', "", line)


class Manual(unittest.TestCase):
    def setUp(self):
        self.page = collections.defaultdict(list)  # by heading, of a section or of a part of one
        heading = ""
        for line in PAGE.read_text().splitlines():
            if line.startswith((".SH ", ".SS ")):
                heading = plain(line)
                self.page[heading] = []
            else:
                self.page[heading].append(line)

    def terms(self, heading):
        lines = self.page[heading]
        return [plain(term) for before, term in zip(lines, lines[1:]) if before == ".TP"]

    def test_has_every_verb_and_no_other(self):
        self.assertEqual({heading for heading in self.page if heading[:1].islower()}, set(OWN.verbs))

    def test_has_every_option_of_each_verb_and_no_other(self):
        for verb in HELP:
            reported = {name for term in self.terms(verb or "GLOBAL OPTIONS") for name in options_in(term)}
            self.assertEqual(reported, names_of(verb) - ({"--help", "-h"} if verb else set()), verb)

    def test_mentions_no_option_that_nobody_has(self):
        mentioned = {name for lines in self.page.values() for line in lines for name in options_in(plain(line))}
        long_ones = {name for name in mentioned if name.startswith("--")}
        self.assertGreater(len(long_ones), 20)
        self.assertLessEqual(long_ones, {name for verb in HELP for name in names_of(verb)})

    def test_has_every_exit_status_and_no_other(self):
        statuses = re.findall(r"\w+ = (\d+)[,\n]", (SOURCES / "inspect/ExitCode.h").read_text())
        self.assertIn("78", statuses)
        self.assertEqual(self.terms("EXIT STATUS"), statuses)

    def test_leaves_the_formatter_nothing_to_warn_about(self):
        for page in ("keeper.8", "velarixctl.1", "velarixha.8", "velarix.ini.5"):
            for width in ("78n", "120n"):
                command = ["groff", "-man", "-ww", "-Wbreak", "-z", "-Tutf8", f"-rLL={width}", str(MANUALS / page)]
                self.assertEqual(output_of(command), "", command)


def offered_for(value):
    """What has to be offered for a value that the help calls so; "dirnames" and "default" ask the shell for names."""
    choices = value.split("|") if "|" in value else []
    return {"DIR": ["dirnames"], "FILE": ["default"], "PATH": ["default"]}.get(value, choices)


class Completion(unittest.TestCase):
    def offers(self, typed):
        """What bash is offered for the last word of each line."""
        # Out of a completion compopt has no meaning and says so.
        script = f"set -u\nsource '{COMPLETION}'\ncompopt() {{ printf '%s\\n' \"$2\"; }}\n"
        for words in typed:
            quoted = " ".join(f"'{word}'" for word in words)
            script += f"COMP_WORDS=(velarixctl {quoted}); COMP_CWORD={len(words)}; _velarixctl\n"
            script += "[[ ${#COMPREPLY[@]} = 0 ]] || printf '%s\\n' \"${COMPREPLY[@]}\"; echo .\n"
        return [part.split() for part in re.split(r"(?m)^\.\n", output_of(["bash"], script))[:-1]]

    def expect(self, lines):
        for (words, expected), offered in zip(lines, self.offers([words for words, _ in lines]), strict=True):
            self.assertEqual(sorted(offered), sorted(expected), words)

    def test_is_that_of_the_program(self):
        said = output_of(["bash"], f"source '{COMPLETION}'; complete -p velarixctl")
        self.assertEqual(said, "complete -F _velarixctl velarixctl\n")

    def test_offers_every_verb_and_nothing_else(self):
        verbs = OWN.verbs
        self.expect([([""], verbs), (["--root", "/mnt", ""], verbs), (["sw"], ["switchover"]), (["x"], [])])

    def test_offers_every_option_of_each_verb_and_nothing_else(self):
        # --root may stand behind every verb, too.
        lines = [([*verb.split(), "-"], names_of(verb) | {"--root"}) for verb in HELP]
        self.expect([*lines, (["--root", "/mnt", "check", "--part"], ["--partner"]), (["check", "--x"], [])])

    def test_offers_behind_each_option_what_it_takes(self):
        lines = []
        for verb, page in HELP.items():
            for option in page.options:
                before = [*verb.split(), option.names[-1]]
                expected = offered_for(option.value)
                if not option.value:
                    lines.append(([*before, "--roo"], ["--root"]))  # what follows is no value of it
                    continue
                lines += [([*before, *typed], expected) for typed in ([""], ["="], ["=", ""])]
                lines.append(([*before, "=", "x", "--roo"], ["--root"]))
                # A value is wanted, and no option.
                lines.append(([*before, "--roo"], [] if "|" in option.value else expected))
        self.assertGreater(len(lines), 100)
        self.expect(lines)

    def test_offers_files_for_the_argument_that_is_one(self):
        lines = []
        for verb in OWN.verbs:
            expected = ["default"] if HELP[verb].arguments == ["FILE"] else []
            lines.append(([verb, ""], ["on", "off"] if verb == "maintenance" else expected))
            lines.append(([verb, "--root", "/mnt", "x"], expected))
        self.expect(lines)


class Findings(unittest.TestCase):
    def setUp(self):
        self.listed = set(re.findall(r"\n\| `([a-z0-9]+-[a-z0-9-]+)` \|", (SOURCES / "docs/check.md").read_text()))
        texts = (SOURCES / "ctl/check/findings.txt").read_text()
        whole = re.findall(r"(?m)^((?:\[[a-z0-9/-]+\] (?:error|warning)\n)+)[^\[\n].*\n.+\n.+$", texts)
        self.entries = re.findall(r"\[(.+)\]", "".join(whole))
        self.assertEqual(len(self.entries), texts.count("\n["))

    @staticmethod
    def text_below(folder):
        paths = [path for path in (SOURCES / folder).iterdir() if path.suffix in (".cpp", ".txt")]
        return "".join(path.read_text(errors="replace") for path in paths)

    def test_are_those_that_the_checks_can_tell(self):
        self.assertEqual(self.listed, {entry.split("/")[0] for entry in self.entries})
        # Every name has a hyphen.
        names = set(re.findall(r'"([a-z]+(?:-[a-z0-9]+)+(?:/[a-z-]+)?)"', self.text_below("ctl/check")))
        self.assertLessEqual(set(self.entries), names)
        self.assertLessEqual(names, self.listed | set(self.entries))

    def test_are_each_found_in_a_test(self):
        tests = "".join(self.text_below("tests/ctl" + folder) for folder in ("", "/stories", "/tables"))
        found = set(re.findall(r"\b(?:error|warning) ([a-z0-9-]+) |times \d \[([a-z0-9-]+)\]", tests))
        found = {name for either in found for name in either}
        self.assertLessEqual(self.listed, found)


class Alerts(unittest.TestCase):
    def test_know_the_metrics_their_labels_and_problems(self):
        golden = "".join((SOURCES / f"tests/ctl/golden/metrics-{state}.txt").read_text() for state in ("master", "dead"))
        metrics = collections.defaultdict(set)
        for name, labels in re.findall(r"(?m)^(velarix_\w+)(.*)", golden):
            metrics[name] |= set(re.findall(r'(\w+)="', labels))
        problems = re.findall(r"(?m)^\| `([a-z-]+)` \| ", (SOURCES / "docs/monitoring.md").read_text())
        rules = re.findall(r"expr: (.*)", (SOURCES / "docs/operating.md").read_text())
        self.assertGreater(len(rules), 3)
        for rule in rules:
            for name, labels in re.findall(r"\b(velarix_\w+)(?:\{(.*?)\})?", rule):
                self.assertIn(name, metrics, rule)
                self.assertLessEqual(set(re.findall(r"(\w+)=", labels)), metrics[name], rule)
            grouped = re.findall(r"(?:by|group_left) \((\w+)\)", rule)
            self.assertLessEqual(set(grouped), metrics["velarix_info"], rule)
            for label, value in re.findall(r'(problem|severity)="(.*?)"', rule):
                self.assertIn(value, problems if label == "problem" else ("critical", "warning", "unknown"), rule)


if __name__ == "__main__":
    os.environ["LC_ALL"] = "C.UTF-8"
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]])

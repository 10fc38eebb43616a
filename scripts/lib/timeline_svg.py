#!/usr/bin/env python3
"""Draws the timeline of a pair, as "velarix-lab timeline" and "velarix-demo --timeline" write it.

    scripts/lib/timeline_svg.py [FILE]      the picture goes to standard output
"""

import html
import re
import sys

LEFT, RIGHT, LANE, STEP, LABEL, LETTER = 150, 30, 30, 46, 16, 6.6
COLOURS = {"master": ("#2e7d32", "#ffffff"), "slave": ("#b0bec5", "#263238"), "starting": ("#ffe082", "#4e342e"),
           "frozen": ("#81d4fa", "#01579b"), "no agent": ("#f8bbd0", "#880e4f"), "off": ("#37474f", "#ffffff"),
           "a": ("#1565c0", "#ffffff"), "b": ("#ef6c00", "#ffffff"), "a+b": ("#c62828", "#ffffff"),
           "none": ("#fafafa", "#9e9e9e")}
KINDS = {"phase": r"---- (.*)", "fault": r"FAULT +(.*)", "repair": r"repaired +(.*)", "role": r"role +(.*)",
         "address": r"address +owned by (.*)", "service": r"service +(?:answered by node (.)|does not.*)",
         "action": r" +(.*)"}
TRACKS = [("node a", "role", "a"), ("node b", "role", "b"), ("address owner", "address", ""),
          ("answers client", "service", "")]


def read(lines):
    """[(seconds, node or "", kind, text)]"""
    events = []
    for line in lines:
        head = re.match(r" *([\d.]+)  (.)  (.*)", line)
        for kind, pattern in KINDS.items() if head else ():
            found = re.fullmatch(pattern, head[3])
            if found:
                events.append((float(head[1]), head[2].strip(), kind, found[1] or "none"))
                break
    return events


class Picture:
    def __init__(self, events):
        self.events = events
        self.until = max([1.0] + [event[0] for event in events]) + 1
        self.width = min(max(self.until * 12, 880), 3000)
        self.parts, self.over = [], []

    def x(self, at):
        return LEFT + self.width * at / self.until

    def text(self, x, y, words, attributes, over=False):
        (self.over if over else self.parts).append(
            f'<text x="{x:.1f}" y="{y:.1f}" {attributes}>{html.escape(str(words))}</text>')

    def rect(self, x, y, width, height, fill, title=""):
        self.parts.append(f'<rect x="{x:.1f}" y="{y:.1f}" width="{width:.1f}" height="{height:.1f}" fill="{fill}" '
                          f'stroke="#90a4ae" stroke-width="0.5"><title>{html.escape(title)}</title></rect>')

    def line(self, x1, y1, x2, y2, attributes):
        self.parts.append(f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" {attributes}/>')

    def of(self, *kinds):
        return [event for event in self.events if event[2] in kinds]

    def labels(self):
        """Gives every fault and repair a label on the first row with room for it: [(x, row, text, repair)]."""
        ends, labels = [], []
        for at, node, kind, text in self.of("fault", "repair"):
            words, x = text + (f" ({node})" if node else ""), self.x(at)
            begin = x if x + len(words) * LETTER < LEFT + self.width else x - len(words) * LETTER - 6
            row = next((row for row, end in enumerate(ends) if end <= begin), len(ends))
            ends[row:row + 1] = [begin + len(words) * LETTER + 16]
            labels.append((x, row, words, kind == "repair", begin < x))
        return labels, len(ends)

    def track(self, name, kind, node, y):
        self.text(LEFT - 12, y + LANE / 2 + 4, name, 'text-anchor="end" fill="#212121" font-weight="bold"')
        changes = [event for event in self.of(kind) if event[1] == node]
        for (at, _, _, value), after in zip(changes, [event[0] for event in changes[1:]] + [self.until]):
            fill, ink = COLOURS.get(value, COLOURS["none"])
            width = max(self.x(after) - self.x(at), 0.6)
            self.rect(self.x(at), y, width, LANE, fill, f"{value}, {at:.3f} s to {after:.3f} s")
            if len(value) * LETTER + 8 < width:
                self.text(self.x(at) + width / 2, y + LANE / 2 + 4, value, f'text-anchor="middle" fill="{ink}"', True)
        for at, _, _, text in [event for event in self.of("action") if event[1] == node and node]:
            self.parts.append(f'<circle cx="{self.x(at):.1f}" cy="{y + LANE + 5}" r="2.5" fill="#5d4037">'
                              f"<title>{at:.3f} s {html.escape(text)}</title></circle>")

    def draw(self):
        phases = self.of("phase")
        for index, (phase, end) in enumerate(zip(phases, [event[0] for event in phases[1:]] + [self.until])):
            self.rect(self.x(phase[0]), 12, self.x(end) - self.x(phase[0]), 20, "#fff3e0" if index % 2 else "#e3f2fd")
            self.text((self.x(phase[0]) + self.x(end)) / 2, 26, index + 1, 'text-anchor="middle" fill="#424242"')
        labels, rows = self.labels()
        top = 60 + rows * LABEL
        for number, (name, kind, node) in enumerate(TRACKS):
            self.track(name, kind, node, top + number * STEP)
        bottom = top + len(TRACKS) * STEP
        for x, row, words, repair, left in labels:
            colour = "#1b5e20" if repair else "#b71c1c"
            self.line(x, 40 + row * LABEL, x, bottom - 8,
                      f'stroke="{colour}" stroke-width="1.6"' + (' stroke-dasharray="5,3"' if repair else ""))
            self.text(x + (-4 if left else 4), 51 + row * LABEL, words, f'fill="{colour}" paint-order="stroke" '
                      f'stroke="#ffffff" stroke-width="4" text-anchor="{"end" if left else "start"}"', True)
        self.parts += self.over
        self.line(LEFT, bottom, LEFT + self.width, bottom, 'stroke="#424242"')
        for second in range(0, int(self.until) + 1, 2 if self.until <= 40 else 5 if self.until <= 90 else 10):
            self.text(self.x(second), bottom + 18, second, 'text-anchor="middle" fill="#424242"')
        self.text(LEFT - 12, bottom + 18, "seconds", 'text-anchor="end" fill="#424242"')
        x, y = 20, bottom + 44
        for value, (fill, _) in COLOURS.items():
            words = "split-brain" if value == "a+b" else value
            self.rect(x, y - 10, 14, 12, fill)
            self.text(x + 19, y, words, 'fill="#424242"')
            x += 30 + len(words) * LETTER
        for index, (at, _, _, text) in enumerate(phases):
            y += 20
            self.text(LEFT, y, f"{index + 1}  {text}  (from {at:.1f} s)", 'fill="#424242"')
        width, height = LEFT + self.width + RIGHT, y + 16
        return "\n".join([f'<svg xmlns="http://www.w3.org/2000/svg" width="{width:.0f}" height="{height:.0f}" '
                          f'viewBox="0 0 {width:.0f} {height:.0f}" font-family="DejaVu Sans, sans-serif" font-size="12">',
                          '<rect width="100%" height="100%" fill="#ffffff"/>', *self.parts, "</svg>\n"])


if __name__ == "__main__":
    with open(sys.argv[1], encoding="utf-8") if len(sys.argv) > 1 else sys.stdin as handle:
        sys.stdout.write(Picture(read(handle.read().splitlines())).draw())

"""Pictures of the pair's measurements, as SVG that is the same for the same figures."""

import html
import statistics

GRID = "#dddddd"
INK = "#24292f"
BLUE = "#2563a8"
ORANGE = "#c2570c"
GREY = "#999999"


def beyond(sample):
    return sample["overhead"]


def own(sample):
    return sample["overhead"] - sample["pings"]


def takeover_svg(results):
    """A strip of points for each path: what every run lasted beyond its waits; two medians."""
    paths = [path for path in results["paths"] if path["samples"]]
    left, width, row, top = 130, 560, 26, 40
    longest = max([results["goal"] * 2] + [sample["overhead"] for path in paths for sample in path["samples"]])
    scale = width / longest
    height = top + row * len(paths) + 40
    parts = [head(left + width + 30, height, "Take-over beyond its waits, ms: each run, the median (black), and without the pings (grey)")]
    step = nice_step(longest)
    for tick in range(0, int(longest) + 1, step):
        x = left + tick * scale
        parts.append(line(x, top - 8, x, height - 32, GRID))
        parts.append(text(x, height - 16, str(tick), "middle"))
    goal = left + results["goal"] * scale
    parts.append(line(goal, top - 8, goal, height - 32, ORANGE))
    parts.append(text(goal + 4, top - 12, "goal of the median", "start", ORANGE))
    for index, path in enumerate(paths):
        y = top + row * index + row / 2
        parts.append(text(left - 10, y + 4, path["path"], "end"))
        for sample in path["samples"]:
            x = left + max(beyond(sample), 0) * scale
            parts.append(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3" fill="{BLUE}" fill-opacity="0.35"/>')
        for value, colour in ((own, GREY), (beyond, INK)):
            median = left + max(statistics.median(map(value, path["samples"])), 0) * scale
            parts.append(line(median, y - 9, median, y + 9, colour, 2))
    return "\n".join(parts + ["</svg>", ""])


def idle_svg(results, name_of):
    """Two groups of bars: processor time (own and children) and memory."""
    nodes = results["nodes"]
    left, width, row = 330, 420, 22
    block = 56 + row * len(nodes)
    parts = [head(left + width + 80, 2 * block + 10, "")]
    cpu = [(node["ownCpuPerHour"], node["childrenCpuPerHour"]) for node in nodes]
    memory = [(node["memory"]["proportional"] * 1024 / 1e6,
               (node["memory"]["resident"] - node["memory"]["proportional"]) * 1024 / 1e6) for node in nodes]
    for top, title, values, colours in (
            (0, "CPU seconds an hour: own (blue), children (orange)", cpu, (BLUE, ORANGE)),
            (block, "MB: proportional (blue), shared with others (grey)", memory, (BLUE, GREY))):
        parts.append(text(10, top + 24, title, "start", INK, 14))
        longest = max([sum(value) for value in values] + [0.001])
        for index, (node, value) in enumerate(zip(nodes, values)):
            y = top + 40 + row * index
            parts.append(text(left - 8, y + 13, name_of(node), "end"))
            x = left
            for part, colour in zip(value, colours):
                length = part / longest * width
                parts.append(f'<rect x="{x:.1f}" y="{y}" width="{max(length, 0):.1f}" height="{row - 6}" '
                             f'fill="{colour}"/>')
                x += length
            parts.append(text(x + 6, y + 13, f"{sum(value):.1f}", "start"))
    return "\n".join(parts + ["</svg>", ""])


def nice_step(longest):
    """A step of 1, 2 or 5 times a power of ten, for eight ticks or fewer."""
    step = 1
    while longest / step > 8:
        step = step * 2 if str(step)[0] != "2" else step * 5 // 2
    return step


def head(width, height, title):
    return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height:.0f}" '
            f'viewBox="0 0 {width} {height:.0f}" font-family="sans-serif" font-size="12">\n'
            f'<rect width="100%" height="100%" fill="white"/>\n' + text(10, 18, title, "start", INK, 14))


def text(x, y, words, anchor, colour=INK, size=12):
    return (f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" fill="{colour}" font-size="{size}">'
            f"{html.escape(words)}</text>")


def line(x1, y1, x2, y2, colour, width=1):
    return (f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="{colour}" '
            f'stroke-width="{width}"/>')

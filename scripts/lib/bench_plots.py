"""The plots of the micro benchmarks, as SVG that is the same for the same figures."""

import matplotlib

matplotlib.use("svg")

from matplotlib import pyplot  # noqa: E402 (the output must be chosen first)

matplotlib.rcParams.update({
    "svg.hashsalt": "performance", "svg.fonttype": "none", "font.family": "sans-serif", "font.size": 10,
    "axes.spines.top": False, "axes.spines.right": False, "axes.grid": True, "grid.color": "#dddddd",
    "axes.axisbelow": True, "figure.facecolor": "white",
})
BLUE, GREY, ORANGE, GREEN = "#2563a8", "#777777", "#c2570c", "#2f7d4f"


def save(figure, path):
    figure.savefig(path, format="svg", metadata={"Date": None, "Creator": None}, bbox_inches="tight")
    pyplot.close(figure)


def growth(results, programs, path):
    """Milliseconds of a check against the number of processes, both in powers of ten."""
    figure, axes = pyplot.subplots(figsize=(7, 4.2))
    numbers = list(results)

    def line(label, value, **look):
        axes.plot(numbers, [value(result) / 1000 for result in results.values()], marker="o", markersize=4, label=label,
                  **look)

    for tool, colour in (("pgrep", ORANGE), ("pidof", GREEN)):
        line(f"{tool}, its scan, 3 programs", lambda result, tool=tool: result.scan(tool, 3), color=colour)
    for number, style in zip(programs, (":", "-", "--")):
        line(f"agent, {number} program" + "s" * (number > 1), lambda result, n=number: result.median(f"agent/{n}"),
             color=BLUE, linestyle=style)
    line("floor: a bare C loop", lambda result: result.median("floor/0"), color=GREY, linewidth=1)
    axes.set_xscale("log")
    axes.set_yscale("log")
    axes.set_xticks(numbers, [f"{number:,}" for number in numbers])
    axes.minorticks_off()
    axes.set_xlabel("processes on the machine")
    axes.set_ylabel("milliseconds of processor time")
    axes.legend(frameon=False)
    save(figure, path)


def own_parts(heartbeat, steps, path):
    """For each step a bar of what the library takes and what the agent adds."""
    figure, axes = pyplot.subplots(figsize=(7, 3.4))
    places = range(len(steps))
    library = [heartbeat.median(f"{step}/library") for step in steps]
    own = [max(0.0, heartbeat.median(f"{step}/agent") - cost) for step, cost in zip(steps, library)]
    axes.barh(places, library, color=GREY, label="the library's bare calls")
    axes.barh(places, own, left=library, color=BLUE, label="the agent's own part")
    axes.set_yticks(places, steps)
    axes.invert_yaxis()
    axes.grid(axis="y", visible=False)
    axes.set_xlabel("microseconds of processor time")
    axes.legend(frameon=False, loc="lower right")
    save(figure, path)

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
    """A check against the number of processes, and against the number of programs."""
    figure, (left, right) = pyplot.subplots(1, 2, figsize=(10, 4), gridspec_kw={"wspace": 0.3})
    against_processes(left, results)
    against_programs(right, results, programs)
    save(figure, path)


def milliseconds(microseconds):
    """No point where nothing could be measured."""
    return microseconds / 1000 if microseconds is not None else float("nan")


def against_processes(axes, results):
    """Milliseconds with three programs, both axes in powers of ten."""
    numbers = list(results)
    for label, colour, value in (
            ("pgrep's scan", ORANGE, lambda result: result.scan("pgrep", 3)),
            ("pidof's scan", GREEN, lambda result: result.scan("pidof", 3)),
            ("agent", BLUE, lambda result: result.median("agent/3")),
            ("floor: a bare C loop", GREY, lambda result: result.median("floor/0"))):
        axes.plot(numbers, [milliseconds(value(result)) for result in results.values()], marker="o", markersize=4,
                  color=colour, label=label, linewidth=1 if colour == GREY else 1.5)
    axes.set_xscale("log")
    axes.set_yscale("log")
    axes.set_xticks(numbers, [f"{number:,}" for number in numbers])
    axes.yaxis.set_major_formatter("{x:g}")
    axes.minorticks_off()
    axes.set_xlabel("processes on the machine (3 programs)")
    axes.set_ylabel("milliseconds of processor time")
    axes.legend(frameon=False)


def against_programs(axes, results, programs):
    """How many times the floor's time."""
    for (processes, result), style in zip(results.items(), (":", "--", "-")):
        floor = result.median("floor/0")
        axes.plot(programs, [result.median(f"agent/{number}") / floor for number in programs], marker="o", markersize=4,
                  color=BLUE, linestyle=style, label=f"{processes:,} processes")
    axes.axhline(1, color=GREY, linewidth=1)
    axes.set_xticks(programs)
    axes.set_ylim(bottom=0.9)
    axes.set_xlabel("configured programs")
    axes.set_ylabel("times the floor")
    axes.legend(frameon=False, loc="upper left", bbox_to_anchor=(1.0, 1.0))


def own_parts(heartbeat, steps, path):
    """For each step a bar of what the library takes, the echo of the agent's lines, and what the agent adds."""
    figure, axes = pyplot.subplots(figsize=(7, 3.4))
    places = range(len(steps))
    library = [heartbeat.median(f"{step}/library") for step in steps]
    own = [max(0.0, heartbeat.median(f"{step}/agent") - cost) for step, cost in zip(steps, library)]
    quiet = [heartbeat.median(f"{step}/library-quiet") if f"{step}/library-quiet" in heartbeat else cost
             for step, cost in zip(steps, library)]
    echo = [max(0.0, cost - least) for cost, least in zip(library, quiet)]
    axes.barh(places, [cost - part for cost, part in zip(library, echo)], color=GREY, label="the library's bare calls")
    axes.barh(places, echo, left=[cost - part for cost, part in zip(library, echo)], color=ORANGE,
              label="the echo on the console")
    axes.barh(places, own, left=library, color=BLUE, label="the agent's own part")
    axes.set_yticks(places, steps)
    axes.invert_yaxis()
    axes.grid(axis="y", visible=False)
    axes.set_xlabel("microseconds of processor time")
    axes.legend(frameon=False, loc="lower right")
    save(figure, path)

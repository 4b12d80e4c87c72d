"""Draws the rows of docs/benchmarks.md as bars beside their targets."""
import re

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.fonttype"] = "none"  # words stay words
matplotlib.rcParams["svg.hashsalt"] = "clipworks"  # the same rows make the same file

from matplotlib import pyplot  # noqa: E402  the settings come first

OURS, TARGET = "#2f7d6d", "#c0392b"


def times(rows):
    """(work, share of the other program's time, most allowed) of the rows that are beside another program."""
    for work, measured, target, *_ in rows:
        slower = re.match(r"([0-9.]+) × the time", measured)
        faster = re.match(r"([0-9.]+) times faster", measured)
        limit = re.match(r"[≤≥] ([0-9.]+)$", target)
        if limit and slower:
            yield work, float(slower[1]), float(limit[1])
        elif limit and faster:
            yield work, 1 / float(faster[1]), 1 / float(limit[1])


def memory(rows):
    """(work, highest MiB, most allowed)."""
    for work, measured, target, *_ in rows:
        if not work.startswith("peak memory"):
            continue
        beside = re.match(r"([0-9]+) MiB against ([0-9]+) MiB", measured)
        if beside:
            yield work, float(beside[1]), float(beside[2]) * float(re.search(r"[0-9]+", target)[0]) / 100
        else:
            yield work, max(map(float, re.findall(r"[0-9]+", measured))), float(re.search(r"< ([0-9]+)", target)[1])


def shortened(text, length=78):
    return text if len(text) <= length else text[: length - 1] + "…"


def bars(values, path, label, logarithmic=False):
    values = sorted(values, key=lambda value: value[1] / value[2])
    figure, axes = pyplot.subplots(figsize=(11, 0.8 + 0.32 * len(values)))
    axes.barh(range(len(values)), [value for _, value, _ in values], color=OURS, height=0.6)
    for i, (_, _, limit) in enumerate(values):
        axes.plot([limit, limit], [i - 0.42, i + 0.42], color=TARGET, linewidth=2)
    axes.set_yticks(range(len(values)), [shortened(work) for work, _, _ in values])
    axes.set_xlabel(label + "; the red lines are the targets")
    if logarithmic:
        axes.set_xscale("log")
    figure.savefig(path, bbox_inches="tight", metadata={"Date": None})
    pyplot.close(figure)


def draw(rows, folder):
    folder.mkdir(exist_ok=True)
    bars(list(times(rows)), folder / "benchmark_times.svg", "share of the other program's time", logarithmic=True)
    bars(list(memory(rows)), folder / "benchmark_memory.svg", "MiB")

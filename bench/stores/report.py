#!/usr/bin/env python3
"""Writes the measurements of scripts/bench into docs/performance.md, between its markers, with a plot beside it.

Usage: report.py STORES.jsonl TEXTS.jsonl COMMAND...
"""
import datetime
import json
import os
import platform
import shlex
import statistics
import subprocess
import sys
import textwrap
from collections import defaultdict

import matplotlib

matplotlib.use("svg")
from matplotlib import pyplot, ticker

matplotlib.rcParams.update({"svg.hashsalt": "kaldb", "svg.fonttype": "none"})

DOCUMENT = "docs/performance.md"
PLOT = "performance-growth.svg"
BEGIN, END = "<!-- stores: begin -->", "<!-- stores: end -->"
ROWS = {
    "load": "load, µs a record",
    "key": "query by key",
    "identifier": "query by identifier",
    "missing key": "query of a missing key",
    "scan": "scan of all, µs a record",
    "scan of 100": "scan of 100 by prefix, µs a scan",
    "update": "update",
    "delete": "deletion of half, µs a record",
    "close": "close, ms",
    "close, backup": "close with backup, ms",
    "reopen": "reopen, ms",
    "file bytes": "files at the end, MiB",
    "peak bytes": "peak memory, MiB",
}
UNITS = {"close": 1e-3, "close, backup": 1e-3, "reopen": 1e-3, "file bytes": 2**-20, "peak bytes": 2**-20}


def lines(path):
    with open(path, encoding="utf-8") as file:
        return [json.loads(line) for line in file]


def medians(runs):
    """(count, cache, order, store) to the median of every figure, in the units of the table."""
    figures = defaultdict(lambda: defaultdict(list))
    for run in runs:
        of = figures[run["count"], run["cache"], run["order"], run["store"]]
        for phase, taken in run["phases"].items():
            of[phase].append(taken["us"])
        for size in ("file bytes", "peak bytes"):
            of[size].append(run[size])
    return {
        key: {name: statistics.median(values) * UNITS.get(name, 1) for name, values in of.items()}
        for key, of in figures.items()
    }


def cell(figures, own, row):
    if row not in figures:
        return ""
    text = f"{figures[row]:.3g}" if figures[row] < 1000 else f"{figures[row]:.0f}"
    if own is None or own is figures or row not in own:
        return text
    return f"{text} ({figures[row] / own[row]:.2g})"


def tables(found, stores):
    for count, cache, order in sorted({key[:3] for key in found}):
        present = [store for store in stores if (count, cache, order, store) in found]
        of = {store: found[count, cache, order, store] for store in present}
        loaded = "in the order of the keys" if order == "ordered" else "in random order"
        yield f"### {count:,} records, loaded {loaded}, cache of {cache} MiB\n"
        yield "| | " + " | ".join(present) + " |"
        yield "|---|" + "---:|" * len(present)
        for row, title in ROWS.items():
            cells = [cell(of[store], of.get("kaldb"), row) for store in present]
            if any(cells):
                yield f"| {title} | " + " | ".join(cells) + " |"
        yield ""


def roomiest(found):
    """Of every count the figures with the largest cache: (count, order, store) to figures."""
    largest = {}
    for count, cache, order, store in found:
        largest[count, order, store] = max(cache, largest.get((count, order, store), 0))
    return {key: found[key[0], cache, key[1], key[2]] for key, cache in largest.items()}


def growth(found, stores):
    """How often the cost at the smallest count every operation costs at the largest, with caches that hold the file."""
    counts = sorted({key[0] for key in found})
    low, high = counts[0], counts[-1]
    if low == high:
        return
    yield f"### Growth: the cost at {high:,} records as a multiple of that at {low:,}\n"
    yield "| | " + " | ".join(stores) + " |"
    yield "|---|" + "---:|" * len(stores)
    for phase in list(ROWS)[:8]:
        for order in ("ordered", "random"):
            pairs = [(found.get((high, order, store)), found.get((low, order, store))) for store in stores]
            cells = [f"{top[phase] / base[phase]:.2g}" if top and base else "" for top, base in pairs]
            yield f"| {phase}, {order} | " + " | ".join(cells) + " |"
    yield ""


def plot(found, stores, path):
    panels = [("load", "ordered"), ("load", "random")]
    panels += [(phase, "random") for phase in list(ROWS)[1:8]]
    figure, grid = pyplot.subplots(3, 3, figsize=(11, 9), sharex=True)
    for axes, (phase, order) in zip(grid.flat, panels):
        for store in stores:
            points = sorted((key[0], of[phase]) for key, of in found.items() if key[1:] == (order, store))
            axes.loglog(*zip(*points), marker="o", markersize=3, label=store) if points else None
        axes.set_title(f"{phase}, {order}" if phase == "load" else phase, fontsize=10)
        axes.grid(alpha=0.3)
    for axes in grid[-1]:
        axes.set_xlabel("records")
        axes.set_xticks(counts := sorted({key[0] for key in found}), [f"{count:,}" for count in counts])
        axes.xaxis.set_minor_locator(ticker.NullLocator())
    for axes in grid[:, 0]:
        axes.set_ylabel("µs an operation")
    figure.legend(*grid[0][0].get_legend_handles_labels(), loc="upper center", ncols=len(stores))
    figure.tight_layout(rect=(0, 0, 1, 0.96))
    figure.savefig(path, metadata={"Date": None})


def machine():
    with open("/proc/cpuinfo", encoding="ascii") as file:
        model = next(line.split(":")[1].strip() for line in file if line.startswith("model name"))
    memory = os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE") / 2**30
    place = os.environ.get("TMPDIR", "/tmp")
    kind = subprocess.run(["findmnt", "-no", "FSTYPE", "-T", place], capture_output=True, text=True, check=True)
    return (
        f"{os.cpu_count()} cores of {model}, {memory:.0f} GiB of memory, Linux {platform.release()}, "
        f"files on {kind.stdout.split()[-1]}, load {os.getloadavg()[1]:.1f} at the end"
    )


def text_table(texts):
    yield "| Texts out of line | store | read | delete |"
    yield "|---|---:|---:|---:|"
    each = defaultdict(list)
    for run in texts:
        each[run["texts"], run["length"]].append(run["us"])
    for (count, length), runs in sorted(each.items()):
        cells = (f"{statistics.median(run[phase] for run in runs):.3g} µs" for phase in ("store", "read", "delete"))
        yield f"| {count:,} of {length} bytes | " + " | ".join(cells) + " |"


def report(runs, texts, command):
    found = medians(runs)
    stores = list(dict.fromkeys(run["store"] for run in runs))
    plot(roomiest(found), stores, os.path.join(os.path.dirname(DOCUMENT), PLOT))
    versions = ", ".join(dict.fromkeys(f"{run['store']} {run['version']}" for run in runs))
    rounds = len({run["seed"] for run in runs})
    rounds_of_largest = len({run["seed"] for run in runs if run["count"] == max(run["count"] for run in runs)})
    driver = statistics.median(run["phases"]["plain memory"]["us"] for run in runs)
    text = f"""
        Measured on {datetime.date.today():%-d %B %Y} by the command below: {machine()}. {versions}. Medians of {rounds}
        runs ({rounds_of_largest} of the largest count), each in a process of its own; in brackets the multiple of
        kaldb's figure, which is the better one where that is above 1. Microseconds an operation where nothing else is said; of each,
        making and comparing a record takes {driver:.3f}."""
    yield textwrap.fill(" ".join(text.split()), 120, break_on_hyphens=False)
    yield f"\n```\n{command}\n```\n"
    yield from tables(found, stores)
    yield from growth(roomiest(found), stores)
    yield f"![Microseconds an operation against the number of records]({PLOT})\n"
    yield from text_table(texts)


def main():
    stores, texts, *command = sys.argv[1:]
    with open(DOCUMENT, encoding="utf-8") as file:
        before, rest = file.read().split(BEGIN)
    after = rest.split(END)[1]
    text = "\n".join(report(lines(stores), lines(texts), shlex.join(command)))
    with open(DOCUMENT, "w", encoding="utf-8") as file:
        file.write(f"{before}{BEGIN}\n{text}\n{END}{after}")


main()

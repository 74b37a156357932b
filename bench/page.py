# SPDX-License-Identifier: MIT
"""usage: page.py times|count|wine FOLDER

Puts what bench_peers wrote to the folder into docs/performance.md, between the marks of each
section, and draws its pictures.
"""

import glob
import json
import math
import os
import platform
import re
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
PAGE = os.path.join(ROOT, "docs", "performance.md")
PICTURES = os.path.join(ROOT, "docs", "pictures")
PHASES = ["make a key", "set, own commit", "overwrite", "get, open key", "get, hot", "get by path",
          "enumerate, a value", "delete a key with its values", "reopen + 1 get"]
GROWING = ["make a key", "set, own commit", "get, open key", "get by path", "enumerate, a value",
           "list by place, a value"]
OURS, EACH = "ours, lock held", "ours, a lock for each change"
ITEMS_OF_A_KEY = 21


def load(name):
    with open(os.path.join(FOLDER, name), encoding="utf-8") as file:
        return json.load(file)


def replace(section, text):
    with open(PAGE, encoding="utf-8") as file:
        page = file.read()
    begin, end = f"<!-- {section} -->\n", f"<!-- /{section} -->"
    first, last = page.index(begin) + len(begin), page.index(end)
    with open(PAGE, "w", encoding="utf-8") as file:
        file.write(page[:first] + text + page[last:])


def table(heads, rows):
    lines = ["| " + " | ".join(heads) + " |", "| --- |" + " ---: |" * (len(heads) - 1)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows]) + "\n"


def number(value, digits=0):
    return "" if value is None else f"{value:,.{digits}f}"


def machine():
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / 2**30
    kernel = re.match(r"\d+\.\d+", platform.release()).group()
    compiler = subprocess.run(["g++", "-dumpfullversion"], capture_output=True, text=True,
                              check=True).stdout.strip()
    files = subprocess.run(["df", "--output=fstype", "/tmp"], capture_output=True, text=True,
                           check=True).stdout.split()[-1]
    model = "unknown"
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        for line in file:
            if line.startswith("model name"):
                model = line.split(":", 1)[1].strip()
    return (f"{os.cpu_count()} cores ({model}), {memory:.0f} GiB of memory, Linux {kernel}, "
            f"{files}, GCC {compiler} with `-O3`")


def times_table(results, clock):
    stores = list(dict.fromkeys(row["store"] for row in results))
    cell = {(row["store"], row["phase"]): row[clock] for row in results}
    return table(["store", *PHASES],
                 [[store] + [number(cell.get((store, phase))) for phase in PHASES]
                  for store in stores])


def goals_table(goals):
    rows = {}
    for goal in goals:
        kind = "must" if goal["must"] else "at best"
        digits = 2 if goal["goal"] < 100 else 0
        text = (f"{goal['ratio']:,.{digits}f} of {goal['goal']:,g}, "
                f"{'met' if goal['met'] else 'missed'}")
        rows.setdefault(goal["phase"], {})[goal["to"], kind] = text
    columns = list(dict.fromkeys((goal["to"], "must" if goal["must"] else "at best")
                                 for goal in goals))
    return table(["phase"] + [f"{to}, {kind}" for to, kind in columns],
                 [[phase] + [row.get(column, "") for column in columns]
                  for phase, row in rows.items()])


def plotter():
    import matplotlib
    matplotlib.use("svg")
    import matplotlib.pyplot as plot
    # The same figures give the same file.
    plot.rcParams.update({"svg.fonttype": "none", "svg.hashsalt": "bench", "font.size": 8})
    return plot


def save(figure, name):
    os.makedirs(PICTURES, exist_ok=True)
    figure.savefig(os.path.join(PICTURES, name), metadata={"Date": None}, bbox_inches="tight",
                   facecolor="white")


def draw_bars(results, clock, name):
    plot = plotter()
    stores = list(dict.fromkeys(row["store"] for row in results))
    cell = {(row["store"], row["phase"]): row[clock] for row in results}
    figure, axes = plot.subplots(3, 3, figsize=(11, 8), sharey=True, layout="constrained")
    for axis, phase in zip(axes.flat, PHASES):
        values = [cell.get((store, phase), 0) for store in stores]
        colours = ["#c2410c" if store.startswith("our") else "#64748b" for store in stores]
        bars = axis.barh(stores, values, color=colours)
        axis.bar_label(bars, [number(value) for value in values], padding=2, fontsize=7)
        axis.set_xscale("log")
        axis.set_xlim(min(value for value in values if value > 0) / 2, max(values) * 8)
        axis.set_title(phase)
        axis.spines[["top", "right"]].set_visible(False)
    axes.flat[0].invert_yaxis()  # the axis is one for all
    figure.supxlabel("ns an operation, logarithmic; shorter is faster")
    save(figure, name)


def draw_growth(growth):
    plot = plotter()
    names = list(dict.fromkeys(row["axis"] for row in growth))
    styles = ["-", "--", ":"]
    figure, axes = plot.subplots(2, 3, figsize=(11, 7), layout="constrained")
    for axis, name in zip(axes.flat, names):
        rows = [row for row in growth if row["axis"] == name and row["cpu"]]
        stores = list(dict.fromkeys(row["store"] for row in rows))
        for style, store in zip(styles, stores):
            for colour, phase in enumerate(GROWING):
                points = [(max(row["point"], 1), row["cpuNs"]) for row in rows
                          if row["store"] == store and row["phase"] == phase]
                if points and (phase != "make a key" or name == "subkeys of a key"):
                    axis.plot(*zip(*sorted(points)), style, color=f"C{colour}", marker=".")
        low, high = (math.log10(edge) for edge in axis.dataLim.intervaly)
        axis.set(xscale="log", yscale="log", title=name, ylabel="ns",
                 ylim=(10 ** math.floor(low), 10 ** math.ceil(high)))
        axis.spines[["top", "right"]].set_visible(False)
    last = axes.flat[-1]
    last.axis("off")
    for colour, phase in enumerate(GROWING):
        last.plot([], [], color=f"C{colour}", label=phase)
    for style, store in zip(styles, ["ours, lock held", "SQLite, exclusive", "LMDB"]):
        last.plot([], [], style, color="black", label=store)
    last.legend(loc="center", frameon=False)
    save(figure, "performance-growth.svg")


def growth_table(growth):
    rows = []
    for name in dict.fromkeys(row["axis"] for row in growth):
        ours = [row for row in growth if row["axis"] == name and row["store"] == OURS]
        points = sorted({row["point"] for row in ours})
        for phase in dict.fromkeys(row["phase"] for row in ours if row["cpu"]):
            cell = {row["point"]: row["cpuNs"] for row in ours if row["phase"] == phase}
            rows.append([f"{name}: {phase}", number(points[0]), number(cell[points[0]]),
                         number(points[-1]), number(cell[points[-1]]),
                         number(cell[points[-1]] / cell[points[0]], 2)])
    return table(["ours, lock held", "from", "ns", "to", "ns", "ratio"], rows)


def callgrind():
    """Instructions and calls of a lock an operation, by store and phase."""
    taking = re.compile(r"pthread_(mutex_lock|rwlock_(rd|wr)lock)\b")
    counted = {}
    for name in glob.glob(os.path.join(FOLDER, "callgrind", "out.*")):
        with open(name, encoding="latin-1") as file:
            text = file.read()
        what = re.search(r"^desc: Trigger: Client Request: (.*)\|(.*)\|(\d+)$", text, re.M)
        if not what:
            continue
        store, phase, operations = what[1], what[2], int(what[3])
        total = int(re.search(r"^totals: (\d+)", text, re.M)[1])
        locks = sum(int(call[2]) for call in re.finditer(r"^cfn=(.*)\ncalls=(\d+)", text, re.M)
                    if taking.search(call[1]))
        counted[store, phase] = (total / operations, locks / operations)
    return counted


def count_table(store):
    counted = callgrind()
    calls = {row["phase"]: row for row in load("calls.json")["calls"] if row["store"] == store}
    heads = [phase.replace("delete a key with its values", "delete, an item (21 a key)")
             for phase in PHASES]

    def row(name, digits, value):
        return [name] + [number(value(phase) / (ITEMS_OF_A_KEY if phase.startswith("delete")
                                                else 1), digits) for phase in PHASES]

    rows = [row("instructions", 0, lambda phase: counted[store, phase][0])]
    for sort in ["writes", "reads", "locks", "others"]:
        rows.append(row(f"system calls: {sort}", 2, lambda phase: calls[phase][sort]))
    rows.append(row("lock and unlock pairs", 1, lambda phase: counted[store, phase][1]))
    return table([store, *heads], rows)


def main():
    if MODE == "times":
        times, growth = load("times-1.json"), load("growth.json")["growth"]
        bare = times["bare"]
        replace("machine", machine() + ". "
                f"A bare write of a page of 512 bytes took {bare['pageWriteNs']:.0f} ns there, "
                f"a bare read {bare['pageReadNs']:.0f} ns.\n")
        replace("times", times_table(times["results"], "cpuNs"))
        replace("goals", goals_table(times["goals"]))
        replace("growth", growth_table(growth))
        draw_bars(times["results"], "cpuNs", "performance.svg")
        draw_growth(growth)
    elif MODE == "count":
        text = count_table(OURS) + "\n" + count_table(EACH)
        print(text)
        replace("count", text)
    else:
        results = load("wine.json")["results"]
        replace("wine", times_table(results, "wallNs"))
        draw_bars(results, "wallNs", "performance-wine.svg")


MODE, FOLDER = sys.argv[1:]
main()

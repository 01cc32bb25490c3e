#!/usr/bin/env python3
"""Puts one run's measurements together: a table for each operation, the goals and whether they are met, the cost of an
element over the number of elements. Reads FOLDER/{counts,times,allocations,sizes,facts}.csv and goals.csv beside this
program, prints the report, and leaves report.csv and what the plots are drawn from in FOLDER. It measures nothing."""
import csv
import operator
import os
import re
import sys
from collections import Counter

# The plot has the other peers.
NOT_PLOTTED = ["ours", "tracked", "memcpy", "spelled"]
TEXT = ["print", "to_xml", "from_xml"]
SCALE = [0, 10, 100, 1000, 10000, 100000]
FACT_ROWS = ["hash_bytes", "text_megabytes", "load_milliseconds", "text_relocations"]
ELEMENTS = {"W3": 4094, "W4": 200}
POOLED = "_pooled"

folder = sys.argv[1]
verdicts = Counter()


def read(name, column=1):
    """The values of one file by (workload, operation, peer), or by one name, in the order of the file."""
    with open(os.path.join(folder, name + ".csv")) as file:
        rows = [row for row in csv.reader(file) if len(row) > column]
    return {tuple(row[0].split("/")): float(row[column]) for row in rows}


counts, floors = read("counts"), read("counts", 2)
times, allocations, sizes, facts = read("times"), read("allocations"), read("sizes"), read("facts")
if not counts:
    sys.exit(f"{folder}/counts.csv holds nothing")
# The report has a row for each loop that was measured.
workloads, operations, peers = (list(dict.fromkeys(names)) for names in zip(*counts))


def number(value):
    return f"{value:,.1f}" if value < 10 and value % 1 else f"{value:,.0f}"


def table(head, rows):
    """A table on a terminal and in Markdown alike: the first column to the left, the others to the right."""
    widths = [max(len(row[i]) for row in [head, *rows]) for i in range(len(head))]
    lines = [[cell.rjust(width) if i else cell.ljust(width) for i, (cell, width) in enumerate(zip(row, widths))]
             for row in [head, *rows]]
    lines = ["| " + " | ".join(line) + " |" for line in lines]
    rule = "|" + "|".join("-" * (width + 1) + (":" if i else "-") for i, width in enumerate(widths)) + "|"
    print("\n".join([lines[0], rule, *lines[1:]]) + "\n")


def operation_table(operation, pooled=False):
    present = [peer for peer in peers
               if peer.endswith(POOLED) == pooled and any((w, operation, peer) in counts for w in workloads)]
    if not present:
        return
    rows = []
    for workload in [w for w in workloads if "x" not in w]:
        for kind, values in [("instructions", counts), ("ns", times), ("allocations", allocations), ("bytes", sizes)]:
            cells = [values.get((workload, operation, peer)) for peer in present]
            if any(cell is not None for cell in cells):
                first = workload if kind == "instructions" else ""
                rows.append([first, kind, *("" if cell is None else number(cell) for cell in cells)])
    print(f"### {operation}{', pooled' if pooled else ''}\n")
    table(["", "each", *(peer.removesuffix(POOLED) for peer in present)], rows)


def holds(value, goal):
    relation, limit = goal.split()
    return {"<": operator.lt, "<=": operator.le, ">=": operator.ge}[relation](value, float(limit))


def verdict(value, goal):
    """Counts the verdict, too."""
    if value is None:
        word = "not measured"
    else:
        word = "met" if holds(value, goal) else "NOT MET"
    verdicts[word.lower()] += 1
    return word


def ratio(values, dividend, divisor):
    return values[dividend] / values[divisor] if dividend in values and values.get(divisor) else None


def shown(value):
    return "" if value is None else f"{value:.2f}"


def split_goals(goals, peers_wanted):
    """One (operation, workload, peer, goal) for each workload of each goal; a goal has one limit for all its workloads
    or one for each."""
    for g in goals:
        names = g["workloads"].split()
        relation, *limits = g["goal"].split()
        if names and len(limits) not in (1, len(names)):
            sys.exit(f"goals.csv: {g['operation']} has {len(limits)} limits for {len(names)} workloads")
        if peers_wanted(g["peer"]):
            for i, workload in enumerate(names):
                yield g["operation"], workload, g["peer"], f"{relation} {limits[i % len(limits)]}"


def goal_row(operation, workload, peer, goal):
    pool = POOLED if peer.endswith(POOLED) else ""
    ours, other = (workload, operation, "ours" + pool), (workload, operation, peer)
    said = f" to {peer.removesuffix(POOLED)}{', pooled' if pool else ''}"
    floor = None
    if peer == "tracked":  # here the library is its own peer, and the ratio is turned round
        ours, other, said = other, ours, ", tracked to untracked"
    elif operation not in TEXT and ours in counts and counts.get(other):
        floor = floors[ours] / counts[other]
    count = ratio(counts, ours, other)
    return [f"{workload} {operation}{said}", shown(count), shown(ratio(times, ours, other)), goal, shown(floor),
            verdict(count, goal)]


def goal_tables(goals):
    print("""## Goals

Ratio of the library to the peer; instructions decide, times are shown beside them. The floor is the ratio
of what the runtime itself executes, with nine instructions for each call that the library makes: where it is
above the limit, only fewer calls or a cheaper runtime can meet the goal. Text is mostly the runtime's own work,
so there is no such floor.
""")
    table(["goal", "instructions", "times", "limit", "floor", ""],
          [goal_row(*goal) for goal in split_goals(goals, lambda peer: not peer.startswith("instructions"))])
    hashed = ("W3", "hash", "ours")
    measured = {name: value for (name,), value in facts.items()}
    if hashed in sizes and times.get(hashed):
        measured["hash_bytes"] = sizes[hashed] / times[hashed]
    rows = [[g["operation"], shown(measured.get(g["peer"])), g["goal"], verdict(measured.get(g["peer"]), g["goal"])]
            for g in goals if g["peer"] in FACT_ROWS]
    for operation, workload, each, goal in split_goals(goals, lambda peer: peer.startswith("instructions")):
        value = counts.get((workload, operation, "ours"))
        if value is not None and each == "instructions_each":
            value /= ELEMENTS[workload]
        rows.append([f"{workload} {operation}, instructions{' an element' if each == 'instructions_each' else ''}",
                     "" if value is None else number(value), goal, verdict(value, goal)])
    table(["goal", "measured", "limit", ""], rows)


def scale_table(kind, values, judge):
    """What each further element costs, from one number of elements to the next. judge: the verdict on a spread."""
    rows = []
    with open(os.path.join(folder, f"scale_{kind}.dat"), "w") as data:
        for workload in ["W3", "W4"]:
            for operation in [o for o in operations if (f"{workload}x0", o, "ours") in counts]:
                at = {n: values.get((f"{workload}x{n}", operation, "ours")) for n in SCALE}
                costs = {to: (at[to] - at[start]) / (to - start) for start, to in zip(SCALE, SCALE[1:])
                         if at[start] is not None and at[to] is not None}
                data.write(f'"{workload} {operation}"\n' + "".join(f"{n} {costs[n]:g}\n" for n in costs) + "\n\n")
                further = [costs[n] for n in costs if n > 10]
                spread = (max(further) / min(further) - 1) * 100 if further and min(further) > 0 else None
                rows.append([f"{workload} {operation}", *(shown(costs.get(n)) for n in SCALE[1:]),
                             "" if spread is None else f"{number(round(spread))} %", judge(operation, spread)])
    table([kind, *(f"to {n:,}" for n in SCALE[1:]), "spread", ""], rows)


def scale_tables(goal):
    print("""## Scale

What each further element costs from one number of elements to the next. The first ten pay for what is done
once; the spread, between the dearest and the cheapest, goes from ten up. Instructions decide. Reading XML
grows an array by one element at a time, by contract: quadratic, no goal, and measured up to fewer.
""")
    scale_table("instructions", counts,
                lambda operation, spread: "by contract" if operation == "from_xml" else verdict(spread, goal))
    scale_table("ns", times, lambda operation, spread: "")


def write_files():
    """Every measurement in one file, and the rivals' instructions as multiples of the library's for the plot."""
    with open(os.path.join(folder, "report.csv"), "w") as file:
        print("workload,operation,peer,instructions,ns,allocations,bytes", file=file)
        for name in sorted(counts):
            values = [f"{values[name]:.10g}" if name in values else "" for values in (counts, times, allocations, sizes)]
            print(*name, *values, sep=",", file=file)
    rivals = [peer for peer in peers if peer not in NOT_PLOTTED and not peer.endswith(POOLED)]
    with open(os.path.join(folder, "rivals.dat"), "w") as file:
        print("-", *rivals, file=file)
        for operation in operations:
            for workload in workloads:
                of = [ratio(counts, (workload, operation, peer), (workload, operation, "ours")) for peer in rivals]
                if any(of):
                    print(f'"{workload} {operation}"', *(f"{value:.6f}" if value else "NaN" for value in of), file=file)


print("""# Benchmark report

One operation's instructions (callgrind), time (median), allocations, and the bytes that it reads or
writes. W1: a message with one entry of a list. W2: a message with all grants to a client. W3: a VLAN
group of 4,094. W4: 200 domain names. `flat`, `call` and `memcpy` are references, not rivals; for print
and XML, protobuf's column is its TextFormat; `tracked` is the library in tracked mode. Memory comes from
malloc, for the library through hooks that call it. Pooled, the library is in the runtime's default Domain,
which keeps released blocks, and the peers' malloc keeps them on the same lists.
""")
with open(os.path.join(os.path.dirname(__file__), "goals.csv")) as goals_file:
    all_goals = list(csv.DictReader(goals_file))
for missing in dict.fromkeys(goal["peer"].removesuffix(POOLED) for goal in all_goals
                             if goal["workloads"] and not goal["peer"].startswith("instructions")
                             and goal["peer"] not in peers):
    print(f"{missing} is not on this machine and is left out.\n")
for name in operations:
    operation_table(name)
    operation_table(name, pooled=True)
goal_tables(all_goals)
scale_tables(next(goal["goal"] for goal in all_goals if goal["peer"] == "spread"))
print("{} goals met, {} not met, {} not measured.".format(
    *(verdicts[word] for word in ["met", "not met", "not measured"])))
write_files()

#!/usr/bin/env python3
"""Markdown tables from tesselux_bench's JSON output.

    tesselux_bench --benchmark_out=run.json --benchmark_out_format=json
    bench/tables.py run.json [before.json]

Prints the full table (median ms per frame, median per-pair ratio to memcpy
and its spread) and the README's summary table. With a second file, also a
before/after table of the ratios.
"""
import json
import sys

DEPTHS = [("8bit", "8-bit"), ("16bit", "16-bit"), ("float", "float")]
SIZES = ["1920x1080", "3840x2160"]
CASES = [
    ("default", "default"),
    ("intensity50", "intensity 50"),
    ("timeframes16", "16 time frames"),
    ("blocks8x8_strength1", "8x8, strength 1"),
    ("blocks2x2_strength1", "2x2, strength 1"),
]


def load(path):
    with open(path) as f:
        data = json.load(f)
    runs = {}
    for b in data["benchmarks"]:
        name = b.get("run_name", b["name"]).split("/iterations:")[0].replace("/manual_time", "")
        runs[name] = b
    return data.get("context", {}), runs


def get(runs, depth, size, case):
    return runs.get("%s/%s/%s" % (depth, size, case))


def full_table(runs):
    head = "| Depth | Size | memcpy ms | " + " | ".join(c[1] for c in CASES) + " |"
    lines = [head, "|" + "---|" * (3 + len(CASES))]
    for d, dn in DEPTHS:
        for s in SIZES:
            cells = []
            copy = None
            for c, _ in CASES:
                b = get(runs, d, s, c)
                if b is None:
                    cells.append("-")
                    continue
                copy = b["memcpy_ms"] if copy is None else copy
                cells.append("%.2f (%.2fx, %.2f-%.2f)" % (b["render_ms"], b["ratio"], b["ratio_min"], b["ratio_max"]))
            lines.append("| %s | %s | %s | %s |" % (dn, s, "%.2f" % copy if copy else "-", " | ".join(cells)))
    return "\n".join(lines)


def ratio_table(runs):
    head = "| Depth | Size | " + " | ".join(c[1] for c in CASES) + " |"
    lines = [head, "|" + "---|" * (2 + len(CASES))]
    for d, dn in DEPTHS:
        for s in SIZES:
            cells = []
            for c, _ in CASES:
                b = get(runs, d, s, c)
                cells.append("%.2fx" % b["ratio"] if b else "-")
            lines.append("| %s | %s | %s |" % (dn, s, " | ".join(cells)))
    return "\n".join(lines)


def compare_table(after, before):
    head = "| Depth | Size | " + " | ".join(c[1] for c in CASES) + " |"
    lines = [head, "|" + "---|" * (2 + len(CASES))]
    for d, dn in DEPTHS:
        for s in SIZES:
            cells = []
            for c, _ in CASES:
                a, b = get(after, d, s, c), get(before, d, s, c)
                if a and b:
                    cells.append("%.2fx -> %.2fx" % (b["ratio"], a["ratio"]))
                else:
                    cells.append("-")
            lines.append("| %s | %s | %s |" % (dn, s, " | ".join(cells)))
    return "\n".join(lines)


def main():
    ctx, runs = load(sys.argv[1])
    print("Full table: median ms per frame (median ratio to memcpy, lowest-highest pair ratio)\n")
    print(full_table(runs))
    print("\nRatios only\n")
    print(ratio_table(runs))
    if len(sys.argv) > 2:
        _, before = load(sys.argv[2])
        print("\nBefore -> after (median ratio)\n")
        print(compare_table(runs, before))
    if ctx:
        print("\nload average at start: %s" % ctx.get("load_avg"))


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""Markdown tables from tesselux_bench's JSON output.

    tesselux_bench --benchmark_out=run.json --benchmark_out_format=json
    bench/tables.py run.json [before.json]

Prints the full table (median ms per frame, median per-pair ratios to
memcpy by wall clock and by thread CPU time) and ratio-only tables. With a second file, also a
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
                cells.append("%.2f ms, %.2fx / cpu %.2fx" % (b["render_ms"], b["ratio"], b["cpu_ratio"]))
            lines.append("| %s | %s | %s | %s |" % (dn, s, "%.2f" % copy if copy else "-", " | ".join(cells)))
    return "\n".join(lines)


def ratio_table(runs, key="ratio"):
    head = "| Depth | Size | " + " | ".join(c[1] for c in CASES) + " |"
    lines = [head, "|" + "---|" * (2 + len(CASES))]
    for d, dn in DEPTHS:
        for s in SIZES:
            cells = []
            for c, _ in CASES:
                b = get(runs, d, s, c)
                cells.append("%.2fx" % b[key] if b else "-")
            lines.append("| %s | %s | %s |" % (dn, s, " | ".join(cells)))
    return "\n".join(lines)


def compare_table(after, before, key="ratio"):
    head = "| Depth | Size | " + " | ".join(c[1] for c in CASES) + " |"
    lines = [head, "|" + "---|" * (2 + len(CASES))]
    for d, dn in DEPTHS:
        for s in SIZES:
            cells = []
            for c, _ in CASES:
                a, b = get(after, d, s, c), get(before, d, s, c)
                if a and b:
                    cells.append("%.2fx -> %.2fx" % (b[key], a[key]))
                else:
                    cells.append("-")
            lines.append("| %s | %s | %s |" % (dn, s, " | ".join(cells)))
    return "\n".join(lines)


def main():
    ctx, runs = load(sys.argv[1])
    print("Full table: median wall ms per frame, median per-pair wall ratio / CPU-time ratio to memcpy\n")
    print(full_table(runs))
    print("\nMedian per-pair ratio, wall clock\n")
    print(ratio_table(runs))
    print("\nMedian per-pair ratio, thread CPU time\n")
    print(ratio_table(runs, "cpu_ratio"))
    if len(sys.argv) > 2:
        _, before = load(sys.argv[2])
        print("\nBefore -> after, wall clock\n")
        print(compare_table(runs, before))
        print("\nBefore -> after, thread CPU time\n")
        print(compare_table(runs, before, "cpu_ratio"))
    if ctx:
        print("\nload average at start: %s" % ctx.get("load_avg"))


if __name__ == "__main__":
    main()

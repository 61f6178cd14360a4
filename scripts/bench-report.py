#!/usr/bin/python3
"""Turns the JSON results of scripts/bench.sh into a report: the machine and the date, every
benchmark's figures, the comparison with the baseline, and a cost curve (gnuplot, SVG) for each
benchmark that was run at three or more sizes.

Without --doc the report goes to standard output. With --doc it replaces the part of that file
between the markers below (appended when they are missing), and the curves are written to the
--plots directory and linked from it.
"""

import argparse
import json
import os
import platform
import re
import subprocess
import sys

BEGIN = "<!-- scripts/bench.sh: begin -->"
END = "<!-- scripts/bench.sh: end -->"
TO_US = {"ns": 1e-3, "us": 1.0, "ms": 1e3, "s": 1e6}


def machine():
    model, cores, memory = "unknown CPU", os.cpu_count(), "?"
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    model = line.split(":", 1)[1].strip()
                    break
        with open("/proc/meminfo") as f:
            kb = int(f.readline().split()[1])
            memory = f"{kb / 1024 / 1024:.0f} GiB"
    except OSError:
        pass
    system = platform.platform()
    try:
        with open("/etc/os-release") as f:
            for line in f:
                if line.startswith("PRETTY_NAME="):
                    system = line.split("=", 1)[1].strip().strip('"')
    except OSError:
        pass
    return f"{model}, {cores} cores, {memory}, {system}"


def family_and_args(name):
    """'BM_X/10/0/real_time' -> ('BM_X', [10, 0])."""
    parts = name.split("/")
    args = [int(p) for p in parts[1:] if re.fullmatch(r"\d+", p)]
    return parts[0], args


def fmt(value, unit):
    return f"{value:,.3g} {unit}" if value < 100 else f"{value:,.0f} {unit}"


def plot(family, points, plots_dir):
    """points: {series label: [(x, microseconds)]}. Returns the SVG's file name."""
    os.makedirs(plots_dir, exist_ok=True)
    svg = f"{family}.svg"
    data = []
    lines = []
    for i, (label, xy) in enumerate(sorted(points.items())):
        block = "\n".join(f"{x} {y}" for x, y in sorted(xy))
        data.append(f"$d{i} << EOD\n{block}\nEOD")
        title = family if not label else f"{family} {label}"
        lines.append(f"$d{i} using 1:2 with linespoints title '{title}'")
    script = "\n".join(data + [
        "set terminal svg size 640,400 dynamic",
        f"set output '{os.path.join(plots_dir, svg)}'",
        "set logscale x 10",
        "set logscale y 10",
        "set grid",
        "set key top left",
        "set xlabel 'size (first argument)'",
        "set ylabel 'time per iteration (us)'",
        "plot " + ", ".join(lines),
    ])
    subprocess.run(["gnuplot"], input=script, text=True, check=True)
    return svg


def report(args):
    out = []
    when = None
    curves = []
    for name in args.names:
        path = os.path.join(args.results, f"{name}.json")
        with open(path) as f:
            result = json.load(f)
        when = when or result["context"]["date"]
        out.append(f"### {name}\n")
        out.append("| benchmark | time | CPU | counters |")
        out.append("|---|---:|---:|---|")
        families = {}
        for b in result["benchmarks"]:
            if b.get("run_type", "iteration") != "iteration":
                continue
            unit = b["time_unit"]
            skip = {"name", "run_name", "run_type", "repetitions", "repetition_index", "threads",
                    "iterations", "real_time", "cpu_time", "time_unit", "family_index",
                    "per_family_instance_index", "aggregate_name", "aggregate_unit",
                    "error_occurred", "error_message"}
            counters = ", ".join(f"{k}={v:,.4g}" for k, v in b.items()
                                 if k not in skip and isinstance(v, (int, float)))
            error = b.get("error_message", "")
            out.append(f"| `{b['name']}` | {fmt(b['real_time'], unit)} | "
                       f"{fmt(b['cpu_time'], unit)} | {error or counters} |")
            family, fargs = family_and_args(b["name"])
            if fargs and not error:
                label = " ".join(str(a) for a in fargs[1:])
                # Real time where the benchmark asked for it (work in other processes), else CPU.
                t = b["real_time"] if b["name"].endswith("/real_time") else b["cpu_time"]
                families.setdefault(family, {}).setdefault(label, []).append(
                    (fargs[0], t * TO_US[unit]))
        out.append("")
        compare = os.path.join(args.results, f"{name}.compare.txt")
        if os.path.exists(compare):
            with open(compare) as f:
                text = f.read().strip()
            out.append("Against the baseline (`compare.py benchmarks`: time and CPU change as a "
                       "fraction, baseline and this run):\n")
            out.append("```\n" + text + "\n```\n")
        else:
            out.append("No baseline to compare with (`scripts/bench.sh --save-baseline` stores "
                       "one).\n")
        for family, points in families.items():
            if max(len(xy) for xy in points.values()) >= 3 and args.plots:
                curves.append((family, plot(family, points, args.plots)))

    head = [BEGIN, "## Measured by `scripts/bench.sh`", "",
            f"Machine: {machine()}. Compiler: {args.compiler}, the default build type "
            f"(`-O2 -g`). Date: {when}. Generated by `scripts/bench.sh`; edit the script, not "
            "this section.", ""]
    if curves:
        head.append("Cost curves (time per iteration against the first argument, log-log):\n")
        rel = os.path.relpath(args.plots, os.path.dirname(args.doc)) if args.doc else args.plots
        for family, svg in curves:
            head.append(f"![{family}]({rel}/{svg})")
        head.append("")
    return "\n".join(head + out + [END]) + "\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--results", required=True)
    parser.add_argument("--names", nargs="+", required=True)
    parser.add_argument("--compiler", default="")
    parser.add_argument("--doc")
    parser.add_argument("--plots")
    args = parser.parse_args()
    text = report(args)
    if not args.doc:
        sys.stdout.write(text)
        return
    with open(args.doc) as f:
        doc = f.read()
    if BEGIN in doc and END in doc:
        doc = doc[:doc.index(BEGIN)] + text + doc[doc.index(END) + len(END) + 1:]
    else:
        doc = doc.rstrip("\n") + "\n\n" + text
    with open(args.doc, "w") as f:
        f.write(doc)
    print(f"wrote {args.doc}" + (f" and the curves in {args.plots}" if args.plots else ""),
          file=sys.stderr)


if __name__ == "__main__":
    main()

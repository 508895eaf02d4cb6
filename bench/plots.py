#!/usr/bin/env python3
"""Draws the plots of docs/performance.md from the JSON that the benchmarks print.

Usage: bench/plots.py growth|soak RESULTS FOLDER
"""
import json
import math
import os
import re
import sys

KIB = 1 << 10
MIB = 1 << 20
WIDTH, HEIGHT = 320, 240  # of a panel
LEFT, RIGHT, TOP, BOTTOM = 52, 20, 34, 44
COLOURS = ("#1f5fa8", "#c2571a")


def ceiling(value):
    """The smallest of 1, 1.5, 2, 3, 4, 5, 6, 8, 10 times a power of ten that is not below the value."""
    power = 10 ** math.floor(math.log10(value))
    return next(step * power for step in (1, 1.5, 2, 3, 4, 5, 6, 8, 10) if step * power >= value)


def panel(title, x_title, x_labels, positions, series):
    """One plot with a y axis from 0; positions run from 0 to 1, series are (name, values)."""
    named = sum(1 for name, _ in series if name)  # names go above the lines
    top = ceiling(max(max(values) for _, values in series) * (1.02 + 0.12 * named))
    plot_width, plot_height = WIDTH - LEFT - RIGHT, HEIGHT - TOP - BOTTOM

    def x(position):
        return LEFT + plot_width * position

    def y(value):
        return TOP + plot_height * (1 - value / top)

    parts = [f'<text x="{LEFT}" y="18" class="title">{title}</text>']
    for step in range(5):
        value = top * step / 4
        parts.append(f'<path d="M{LEFT} {y(value):.1f}H{WIDTH - RIGHT}" class="grid"/>'
                     f'<text x="{LEFT - 6}" y="{y(value) + 4:.1f}" text-anchor="end">{value:g}</text>')
    for position, label in x_labels:
        parts.append(f'<text x="{x(position):.1f}" y="{HEIGHT - BOTTOM + 16}" '
                     f'text-anchor="middle">{label}</text>')
    parts.append(f'<text x="{LEFT + plot_width / 2}" y="{HEIGHT - 8}" text-anchor="middle">'
                 f'{x_title}</text>')
    for number, (name, values) in enumerate(series):
        points = [f"{x(position):.1f},{y(value):.1f}" for position, value in zip(positions, values)]
        colour = COLOURS[number]
        parts.append(f'<polyline points="{" ".join(points)}" fill="none" stroke="{colour}" '
                     'stroke-width="1.8"/>')
        if len(points) <= 16:
            parts += [f'<circle cx="{point.split(",")[0]}" cy="{point.split(",")[1]}" r="2.6" '
                      f'fill="{colour}"/>' for point in points]
        if name:
            parts.append(f'<text x="{WIDTH - RIGHT - 4}" y="{TOP + 14 + 14 * number}" '
                         f'text-anchor="end" fill="{colour}">{name}</text>')
    return "\n".join(parts)


def write_plots(path, panels):
    """Panels side by side in one SVG file."""
    with open(path, "w", encoding="utf-8") as file:
        file.write(f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH * len(panels)}" '
                   f'height="{HEIGHT}" viewBox="0 0 {WIDTH * len(panels)} {HEIGHT}">\n'
                   '<style>text{font:11px sans-serif}.title{font-weight:bold;font-size:12px}'
                   '.grid{stroke:#ddd;stroke-width:1}</style>\n'
                   '<rect width="100%" height="100%" fill="white"/>\n')
        for number, content in enumerate(panels):
            file.write(f'<g transform="translate({WIDTH * number} 0)">\n{content}\n</g>\n')
        file.write("</svg>\n")
    print(path)


def spread(count):
    return [(i + 0.5) / count for i in range(count)]


def growth(results, folder):
    samples = results["samples"]
    by_block = {sample["request"]["shape"]["blockSize"]: sample for name, sample in samples.items()
                if name.startswith("blocks of")}
    by_job = {sample["request"]["shape"]["total"]: sample for name, sample in samples.items()
              if name.startswith("job of")}
    for key, x_title, unit, runs in (("block-size", "Block_size (KiB)", KIB, by_block),
                                     ("job-size", "job (MiB)", MIB, by_job)):
        sizes = sorted(runs)
        labels = [(at, size // unit) for at, size in zip(spread(len(sizes)), sizes)]
        timings = [runs[size]["timing"] for size in sizes]
        mebibytes = [timing["bytes"] / MIB for timing in timings]
        write_plots(os.path.join(folder, f"growth-{key}.svg"), [
            panel("throughput (MiB/s)", x_title, labels, spread(len(sizes)),
                  [("", [amount / timing["seconds"]
                         for amount, timing in zip(mebibytes, timings)])]),
            panel("processor time (ms per MiB)", x_title, labels, spread(len(sizes)),
                  [("host, module and writer", [1000 * runs[size]["processorTime"] / amount
                                                for size, amount in zip(sizes, mebibytes)]),
                   ("Wine server", [1000 * runs[size]["serverTime"] / amount
                                    for size, amount in zip(sizes, mebibytes)])]),
            panel("working set (MiB)", x_title, labels, spread(len(sizes)),
                  [("", [runs[size]["samples"][-1]["workingSet"] / MIB for size in sizes])])])

    side = {int(re.match(r"\d+", name).group()): sample for name, sample in samples.items()
            if re.fullmatch(r"\d+ jobs", name)}
    counts = sorted(side)
    labels = list(zip(spread(len(counts)), counts))
    totals = [sum(job["timing"]["bytes"] for job in side[count]["jobs"]) / MIB for count in counts]
    write_plots(os.path.join(folder, "growth-jobs.svg"), [
        panel("throughput of all jobs (MiB/s)", "jobs side by side", labels, spread(len(counts)),
              [("", [total / max(job["timing"]["seconds"] for job in side[count]["jobs"])
                     for count, total in zip(counts, totals)])]),
        panel("processor time (ms per MiB)", "jobs side by side", labels, spread(len(counts)),
              [("host, module and writer",
                [1000 * sum(job["processorTime"] for job in side[count]["jobs"]) / total
                 for count, total in zip(counts, totals)]),
               ("Wine server", [1000 * side[count]["serverTime"] / total
                                for count, total in zip(counts, totals)])]),
        panel("working set of one job (MiB)", "jobs side by side", labels, spread(len(counts)),
              [("", [max(job["samples"][-1]["workingSet"] for job in side[count]["jobs"]) / MIB
                     for count in counts])])])


def soak(results, folder):
    # The last one was taken after the writer had ended.
    samples = results["samples"][:-1]
    times = [sample["seconds"] for sample in samples]
    end = ceiling(times[-1])
    labels = [(step / 4, f"{end * step / 4:g}") for step in range(5)]
    positions = [time / end for time in times]
    steps = list(zip(samples, samples[1:]))
    mebibytes = [(later["bytes"] - earlier["bytes"]) / MIB for earlier, later in steps]
    write_plots(os.path.join(folder, "soak.svg"), [
        panel("throughput (MiB/s)", "seconds", labels, positions[1:],
              [("", [amount / (later["seconds"] - earlier["seconds"])
                     for amount, (earlier, later) in zip(mebibytes, steps)])]),
        panel("processor time (ms per MiB)", "seconds", labels, positions[1:],
              [("", [1000 * (later["processorTime"] - earlier["processorTime"]) / amount
                     for amount, (earlier, later) in zip(mebibytes, steps)])]),
        panel("working set (MiB)", "seconds", labels, positions,
              [("", [sample["workingSet"] / MIB for sample in samples])]),
        panel("open handles", "seconds", labels, positions,
              [("", [sample["handles"] for sample in samples])])])


def main():
    kind, path, folder = sys.argv[1:4]
    with open(path, encoding="utf-8") as file:
        results = json.load(file)
    os.makedirs(folder, exist_ok=True)
    {"growth": growth, "soak": soak}[kind](results, folder)


if __name__ == "__main__":
    main()

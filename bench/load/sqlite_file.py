#!/usr/bin/env python3
"""Rows a second of tallow-load into a file of SQLite, against a bare loop with the same parser and
library, and against sqlite3's .import of the same file.

Usage: bench/load/sqlite_file.py BUILD_FOLDER RESULTS.json [--rows N] [--runs N] [--only NAME,...]

Prints one table and writes the figures as JSON; the status is 0 only when every ratio is at its
target. The runs alternate, and the median of the ratios of neighbours counts. The fallback file is
in memory, since the others keep none. The time of tallow-load runs from its start to its end, with
the opening of the file, the pipe and the checkpoints; the loads are long enough for the start to
count little.
"""

import argparse
import csv
import json
import os
import pathlib
import random
import sqlite3
import statistics
import subprocess
import sys
import tempfile
import time

TARGETS = {"bare": 0.95, "import": 1.20, "clean": 0.5}
BAD_EVERY = 10_000  # rows for each bad one, where there are some
WORDS = ["red", "green", "blue, dark", "a longer value", "x"]


def typed_row(chance, number):
    return [number, chance.randrange(10**6), f"{chance.randrange(10**7) / 100:.2f}",
            f"2026-{chance.randrange(1, 13):02}-{chance.randrange(1, 29):02} 12:34:{number % 60:02}",
            "1" if number % 3 else "0", f"note {chance.choice(WORDS)}, number {number}"]


def text_row(columns):
    return lambda chance, number: [number] + [
        chance.choice(WORDS) if i % 3 else chance.randrange(10**6) for i in range(1, columns)]


# By name: the columns of the table, a row, and the part of the rows that a run has.
SHAPES = {
    "6": (["integer primary key", "integer", "real", "text", "boolean", "text"], typed_row, 1),
    "3": (["text"] * 3, text_row(3), 1),
    "30": (["text"] * 30, text_row(30), 4),
}


def write_file(path, row, rows, bad_every=None):
    chance = random.Random(1)
    with open(path, "w", newline="", encoding="utf-8") as file:
        writer = csv.writer(file)
        for number in range(rows):
            values = row(chance, number)
            if bad_every and number % bad_every == bad_every // 2:
                values[0] = "no number"
            writer.writerow(values)


class Bench:
    def __init__(self, build, folder, fallback):
        self.bin = build / "bin"
        self.folder = folder
        self.fallback = fallback
        self.database = folder / "bench.sqlite"
        self.variables = dict(os.environ, WINEDEBUG="-all")
        self.variables.setdefault("WINEPREFIX", str(build.parent / "wine"))
        self.pipes = 0

    def renew(self, types):
        for file in self.folder.glob("bench.sqlite*"):
            file.unlink()
        columns = ", ".join(f"c{i} {kind}" for i, kind in enumerate(types))
        with sqlite3.connect(self.database) as connection:
            connection.execute(f"create table t ({columns})")
        connection.close()

    def rows(self):
        with sqlite3.connect(self.database) as connection:
            (count,) = connection.execute("select count(*) from t").fetchone()
        connection.close()
        return count

    def wine(self, *command):
        return subprocess.Popen(["wine", *map(str, command)], stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                env=self.variables)

    @staticmethod
    def finish(process):
        out, err = process.communicate(timeout=1200)
        if process.returncode != 0:
            raise RuntimeError(f"{process.args}: {out}{err}")
        return out

    def bare(self, path):
        program = self.wine(self.bin / "bare_sqlite.exe", self.database, "t", path)
        return float(self.finish(program).split()[1])

    def load(self, path, *options):
        self.pipes += 1
        pipe = rf"\\.\pipe\sqlite-{os.getpid()}-{self.pipes}"
        feed = self.wine(self.bin / "tallow-feed.exe", "--pipe", pipe, "--wait", 60, "--in", path)
        load = self.wine(self.bin / "tallow-load.exe", "--pipe", pipe, "--to",
                         f"sqlite:Z:{self.database}", "--table", "t", "--json", "--init",
                         f"Fallback_Directory=Z:{self.fallback}", *options)
        outcome = json.loads(self.finish(load))
        self.finish(feed)
        return outcome["seconds"]

    def with_rejects(self, path):
        for file in self.folder.glob("rejects*"):
            file.unlink()
        rejects = self.folder / "rejects"
        return self.load(path, "--rejects", f"Z:{rejects}", "--max-rejects", 1_000_000)

    def own_loader(self, path):
        start = time.monotonic()
        subprocess.run(["sqlite3", self.database, f".import --csv {path} t"], check=True,
                       capture_output=True)
        return time.monotonic() - start


def alternate(bench, types, ways, runs):
    """Seconds of each way, one for each run. A way is a function, a file and the rows it leaves."""
    seconds = {way: [] for way in ways}
    for _ in range(runs):
        for way, (run, path, wanted) in ways.items():
            bench.renew(types)
            seconds[way].append(run(path))
            if bench.rows() != wanted:
                raise RuntimeError(f"{way}: {bench.rows()} rows instead of {wanted}")
    return seconds


def measure(bench, name, rows, runs):
    types, row, part = SHAPES[name]
    rows //= part
    path = bench.folder / "rows.csv"
    write_file(path, row, rows)
    ways = {"bare": bench.bare, "load": bench.load, "import": bench.own_loader}
    seconds = alternate(bench, types, {way: (run, path, rows) for way, run in ways.items()}, runs)
    return result(f"{name} columns", path, rows, seconds)


def measure_bad_rows(bench, rows, runs):
    types, row, _ = SHAPES["6"]
    clean, bad = bench.folder / "rows.csv", bench.folder / "bad.csv"
    write_file(clean, row, rows)
    write_file(bad, row, rows, BAD_EVERY)
    left = rows - len(range(BAD_EVERY // 2, rows, BAD_EVERY))
    ways = {"load": (bench.with_rejects, bad, left), "clean": (bench.load, clean, rows)}
    return result(f"6 columns, 1 bad row in {BAD_EVERY}", bad, rows,
                  alternate(bench, types, ways, runs))


def result(name, path, rows, seconds):
    ratios = {peer: [other / own for other, own in zip(times, seconds["load"])]
              for peer, times in seconds.items() if peer != "load"}
    return {
        "name": name, "rows": rows, "bytes": path.stat().st_size, "seconds": seconds,
        "rowsPerSecond": {way: rows / statistics.median(times) for way, times in seconds.items()},
        "ratios": ratios,
        "medians": {peer: statistics.median(values) for peer, values in ratios.items()},
    }


def show(figures):
    print(f"{figures['name']}, {figures['rows']:,} rows, {figures['bytes'] / 1e6:.0f} MB: "
          f"{figures['rowsPerSecond']['load']:,.0f} rows/s", flush=True)
    for peer, ratio in figures["medians"].items():
        values = figures["ratios"][peer]
        print(f"  {ratio:5.2f} of {peer} ({min(values):.2f} to {max(values):.2f}, target "
              f"{TARGETS[peer]}), which has {figures['rowsPerSecond'][peer]:,.0f}", flush=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("results", type=pathlib.Path)
    parser.add_argument("--rows", type=int, default=4_000_000)
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--only", default="3,6,30,bad")
    arguments = parser.parse_args()
    results = []
    scratch = tempfile.TemporaryDirectory(prefix="tallow-bench-")
    memory = tempfile.TemporaryDirectory(prefix="tallow-bench-", dir="/dev/shm")
    with scratch as folder, memory as fallback:
        bench = Bench(arguments.build.resolve(), pathlib.Path(folder), fallback)
        for name in arguments.only.split(","):
            results.append(measure_bad_rows(bench, arguments.rows, arguments.runs)
                           if name == "bad"
                           else measure(bench, name, arguments.rows, arguments.runs))
            show(results[-1])
    arguments.results.write_text(json.dumps(results, indent=2) + "\n")
    missed = sum(ratio < TARGETS[peer] for figures in results
                 for peer, ratio in figures["medians"].items())
    print("every ratio is at its target" if not missed else f"{missed} ratios are below target")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())

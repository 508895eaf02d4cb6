#!/usr/bin/env python3
"""Rows a second of tallow-load by COPY, against a bare loop with the same parser and libpq, against
psql's \\copy of the same file, and against pgloader if it is installed.

Usage: bench/load/copy.py BUILD_FOLDER RESULTS.json [--rows N] [--runs N] [--only NAME,...]

Prints one table and writes the figures as JSON; the status is 0 only when every ratio is at its
target. The runs alternate, and the median of the ratios of neighbours counts. The fallback file is
in memory, since the others keep none. The time of tallow-load runs from its start to its end, with
the connection, the pipe and the checkpoints.
"""

import argparse
import contextlib
import csv
import json
import os
import pathlib
import random
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

TARGETS = {"bare": 0.95, "psql": 0.80, "pgloader": 4.0, "clean": 0.5}
BAD_EVERY = 10_000  # rows for each bad one, where there are some

WORDS = ["red", "green", "blue, dark", "a longer value", "x"]


def typed_row(chance, number, columns):
    del columns
    return [number, chance.randrange(10**6), f"{chance.randrange(10**7) / 100:.2f}",
            f"2026-{chance.randrange(1, 13):02}-{chance.randrange(1, 29):02} 12:34:{number % 60:02}",
            "true" if number % 3 else "false", f"note {chance.choice(WORDS)}, number {number}"]


def text_row(chance, number, columns):
    return [number] + [chance.choice(WORDS) if i % 3 else chance.randrange(10**6)
                       for i in range(1, columns)]


# Name, columns of the table, a row, part of the rows that a run has.
SHAPES = [
    ("6 typed columns", ["bigint", "integer", "numeric(12,2)", "timestamp", "boolean", "text"],
     typed_row, 1),
    ("3 text columns", ["text"] * 3, text_row, 1),
    ("30 text columns", ["text"] * 30, text_row, 4),
]


def write_file(path, row, columns, rows, bad_every=None):
    chance = random.Random(1)
    with open(path, "w", newline="", encoding="utf-8") as file:
        writer = csv.writer(file)
        for number in range(rows):
            values = row(chance, number, columns)
            if bad_every and number % bad_every == bad_every // 2:
                values[1] = "no number"
            writer.writerow(values)


class Bench:
    def __init__(self, build, folder, fallback, server, libpq):
        self.bin = build / "bin"
        self.folder = folder
        self.fallback = fallback
        self.server = server
        self.libpq = f"Z:{libpq}"
        self.address = f"postgresql://{server.user}@127.0.0.1:{server.port}/postgres"
        self.variables = dict(os.environ, WINEDEBUG="-all", TALLOW_LIBPQ=self.libpq)
        self.variables.setdefault("WINEPREFIX", str(build.parent / "wine"))
        self.pipes = 0

    def renew(self, types):
        columns = ", ".join(f"c{i} {kind}" for i, kind in enumerate(types))
        self.server.psql("postgres", "drop table if exists t, tallow_checkpoint",
                         f"create table t ({columns})", "checkpoint")

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
        program = self.wine(self.bin / "bare_copy.exe", self.address, self.libpq, "t", path)
        return float(self.finish(program).split()[1])

    def load(self, path, *options):
        self.pipes += 1
        pipe = rf"\\.\pipe\copy-{os.getpid()}-{self.pipes}"
        feed = self.wine(self.bin / "tallow-feed.exe", "--pipe", pipe, "--wait", 60, "--in", path)
        load = self.wine(self.bin / "tallow-load.exe", "--pipe", pipe, "--to", self.address,
                         "--table", "t", "--json", "--init",
                         f"Fallback_Directory=Z:{self.fallback}", *options)
        outcome = json.loads(self.finish(load))
        self.finish(feed)
        return outcome["seconds"]

    def with_rejects(self, path):
        rejects = self.folder / "rejects"
        for file in self.folder.glob("rejects*"):
            file.unlink()
        return self.load(path, "--rejects", f"Z:{rejects}", "--max-rejects", 1_000_000)

    def psql(self, path):
        start = time.monotonic()
        self.server.psql("postgres", rf"\copy t from '{path}' (format csv)")
        return time.monotonic() - start

    def pgloader(self, path, types):
        command = self.folder / "pgloader.load"
        columns = ", ".join(f"c{i}" for i in range(len(types)))
        target = f"{self.address}?tablename=t"
        command.write_text(
            f"LOAD CSV FROM '{path}' ({columns}) INTO {target} TARGET COLUMNS ({columns})"
            " WITH fields terminated by ',', fields optionally enclosed by '\"',"
            " fields escaped by double-quote;\n", encoding="utf-8")
        start = time.monotonic()
        subprocess.run(["pgloader", "-q", command], check=True, capture_output=True,
                       env=dict(os.environ, PGSSLMODE="disable"))
        return time.monotonic() - start

    def rows(self):
        return int(self.server.psql("postgres", "select count(*) from t"))


def measure(bench, shape, rows, runs):
    """Seconds of each way, one for each run."""
    name, types, row, part = shape
    rows //= part
    path = bench.folder / "rows.csv"
    write_file(path, row, len(types), rows)
    ways = {"load": (bench.load, rows), "bare": (bench.bare, rows), "psql": (bench.psql, rows)}
    if shutil.which("pgloader"):
        ways["pgloader"] = (lambda file: bench.pgloader(file, types), rows)
    seconds = alternate(bench, types, {way: (run, path, wanted)
                                       for way, (run, wanted) in ways.items()}, runs)
    return result(name, path, rows, seconds, [way for way in ways if way != "load"])


def measure_bad_rows(bench, shape, rows, runs):
    """The same file without and with bad rows; the server must tell them apart."""
    name, types, row, _ = shape
    clean, bad = bench.folder / "rows.csv", bench.folder / "bad.csv"
    write_file(clean, row, len(types), rows)
    write_file(bad, row, len(types), rows, BAD_EVERY)
    left = rows - len(range(BAD_EVERY // 2, rows, BAD_EVERY))
    ways = {"load": (bench.with_rejects, bad, left), "clean": (bench.load, clean, rows)}
    seconds = alternate(bench, types, ways, runs)
    return result(f"{name}, 1 bad row in {BAD_EVERY}", bad, rows, seconds, ["clean"])


def alternate(bench, types, ways, runs):
    seconds = {way: [] for way in ways}
    for _ in range(runs):
        for way, (run, path, wanted) in ways.items():
            bench.renew(types)
            seconds[way].append(run(path))
            if bench.rows() != wanted:
                raise RuntimeError(f"{way}: {bench.rows()} rows instead of {wanted}")
    return seconds


def result(name, path, rows, seconds, peers):
    ratios = {peer: [other / own for other, own in zip(seconds[peer], seconds["load"])]
              for peer in peers}
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
    parser.add_argument("--rows", type=int, default=1_000_000)
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--libpq", type=pathlib.Path, required=True)
    parser.add_argument("--only", default="3,6,30,bad")
    arguments = parser.parse_args()
    build = arguments.build.resolve()
    if not shutil.which("pgloader"):
        print("pgloader is not installed, so it is left out")

    # The tests have the code that starts and stops the server.
    source = pathlib.Path(__file__).resolve().parents[2]
    os.environ.update(TALLOW_BINARY_DIR=str(build), TALLOW_SOURCE_DIR=str(source))
    sys.path[:0] = [str(source / "tests" / folder)
                    for folder in ("load", "support")]
    import harness

    results = []
    with contextlib.ExitStack() as stack:
        folder = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="tallow-bench-")))
        folder.chmod(0o755)
        fallback = stack.enter_context(
            tempfile.TemporaryDirectory(prefix="tallow-bench-", dir="/dev/shm"))
        server = harness.PostgresServer()
        stack.callback(server.close)
        bench = Bench(build, folder, fallback, server, arguments.libpq.resolve())
        only = arguments.only.split(",")
        for shape in SHAPES:
            if shape[0].split()[0] in only:
                results.append(measure(bench, shape, arguments.rows, arguments.runs))
                show(results[-1])
        if "bad" in only:
            results.append(measure_bad_rows(bench, SHAPES[0], arguments.rows, arguments.runs))
            show(results[-1])
    arguments.results.write_text(json.dumps(results, indent=2) + "\n")
    missed = [peer for figures in results for peer, ratio in figures["medians"].items()
              if ratio < TARGETS[peer]]
    print("every ratio is at its target" if not missed else f"{len(missed)} ratios are below target")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())

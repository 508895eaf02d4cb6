#!/usr/bin/env python3
"""Rows a second of tallow-load against a bare loop, into SQLite and PostgreSQL.

Usage: bench/load/run.py BUILD_FOLDER RESULTS.json [--rows N] [--runs N]

Prints one table and writes the figures as JSON; the status is 0 only when every ratio is at its
target. For comparison it also shows the databases' own loaders on the same file. The runs
alternate, and the median of the ratios of neighbours counts. The fallback file is in memory: a bare
loop has none, and this measures the program, not the disk. The time of tallow-load runs from its
start to its end, including the connection, the pipe and the checkpoints; the loads are long enough
for the start to count little.
"""

import argparse
import csv
import json
import os
import pathlib
import random
import re
import statistics
import subprocess
import sys
import tempfile
import threading
import time

TARGET = 0.9
BATCH_LIMIT = 2000  # parameters of a statement, as in tallow-load


def write_file(path, rows, columns):
    """Short values: numbers and words, some of them quoted."""
    chance = random.Random(1)
    words = ["red", "green", "blue, dark", "a longer value", "x"]
    with open(path, "w", newline="", encoding="utf-8") as file:
        writer = csv.writer(file)
        for number in range(rows):
            values = [chance.choice(words) if i % 3 else chance.randrange(10**6)
                      for i in range(1, columns)]
            writer.writerow([number, *values])


class Sqlite:
    name = "SQLite"

    def __init__(self, folder):
        self.path = folder / "bench.sqlite"
        self.connection = f"Driver={{SQLite3}};Database={self.path}"

    def renew(self, columns):
        self.path.unlink(missing_ok=True)
        self.sql(f"create table t ({', '.join(f'c{i} text' for i in range(columns))})")

    def sql(self, statement):
        return subprocess.run(["sqlite3", self.path, statement], check=True, capture_output=True,
                              text=True).stdout

    def count(self):
        return int(self.sql("select count(*) from t"))

    def own_loader(self, path):
        start = time.monotonic()
        self.sql(f".import --csv {path} t")
        return time.monotonic() - start

    own_name = "sqlite3 .import"


class Postgres:
    name = "PostgreSQL"

    def __init__(self, server):
        self.server = server
        self.connection = ("Driver={PostgreSQL Unicode};Server=127.0.0.1;"
                           f"Port={server.port};Database=postgres;Uid={server.user}")

    def renew(self, columns):
        names = ", ".join(f"c{i} text" for i in range(columns))
        self.server.psql("postgres", "drop table if exists t", f"create table t ({names})")
        self.server.psql("postgres", "drop table if exists tallow_checkpoint", "checkpoint")

    def count(self):
        return int(self.server.psql("postgres", "select count(*) from t"))

    def own_loader(self, path):
        start = time.monotonic()
        self.server.psql("postgres", rf"\copy t from '{path}' (format csv)")
        return time.monotonic() - start

    own_name = r"psql \copy"


class Bench:
    def __init__(self, build, folder, fallback):
        self.bin = build / "bin"
        self.folder = folder
        self.fallback = fallback
        self.variables = dict(os.environ, WINEDEBUG="-all")
        self.variables.setdefault("WINEPREFIX", str(build.parent / "wine"))
        self.pipes = 0

    def wine(self, *command):
        return subprocess.Popen(["wine", *map(str, command)], stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                env=self.variables)

    def finish(self, process):
        out, err = process.communicate(timeout=1200)
        if process.returncode != 0:
            raise RuntimeError(f"{process.args}: {out}{err}")
        return out

    def bare(self, database, path, columns, batch):
        out = self.finish(self.wine(self.bin / "bare_load.exe", database.connection, "t", columns,
                                    batch, path))
        return float(out.split()[1])

    def load(self, database, path):
        """Runs a load and returns its seconds and its peak memory in bytes."""
        self.pipes += 1
        pipe = rf"\\.\pipe\bench-{os.getpid()}-{self.pipes}"
        init = f"Fallback_Directory=Z:{self.fallback}"
        feed = self.wine(self.bin / "tallow-feed.exe", "--pipe", pipe, "--in", path)
        load = self.wine(self.bin / "tallow-load.exe", "--pipe", pipe, "--to", database.connection,
                         "--table", "t", "--init", init, "--json")
        peaks = []
        watcher = threading.Thread(target=watch_memory, args=(load, peaks))
        watcher.start()
        out = self.finish(load)
        watcher.join()
        self.finish(feed)
        return json.loads(out)["seconds"], max(peaks, default=0)


def watch_memory(process, peaks):
    """Follows the process's peak resident size until it ends."""
    status = pathlib.Path(f"/proc/{process.pid}/status")
    while process.poll() is None:
        try:
            found = re.search(r"VmHWM:\s+(\d+) kB", status.read_text())
        except OSError:
            return
        if found:
            peaks.append(int(found.group(1)) * 1024)
        time.sleep(0.02)


def measure(bench, database, columns, rows, runs):
    batch = max(1, min(100, BATCH_LIMIT // columns))
    rows -= rows % batch
    path = bench.folder / f"{columns}.csv"
    write_file(path, rows, columns)
    figures = {"load": [], "bare": [], "own": []}
    peaks = []
    for _ in range(runs):
        database.renew(columns)
        figures["bare"].append(bench.bare(database, path, columns, batch))
        check(database, rows)
        database.renew(columns)
        seconds, peak = bench.load(database, path)
        figures["load"].append(seconds)
        peaks.append(peak)
        check(database, rows)
        database.renew(columns)
        figures["own"].append(database.own_loader(path))
        check(database, rows)
    rates = {name: rows / statistics.median(times) for name, times in figures.items()}
    ratios = [bare / load for bare, load in zip(figures["bare"], figures["load"])]
    return {
        "database": database.name, "columns": columns, "rows": rows, "bytes": path.stat().st_size,
        "batch": batch, "rowsPerSecond": rates["load"], "bareRowsPerSecond": rates["bare"],
        "ratio": statistics.median(ratios), "ratios": ratios, "target": TARGET,
        "ownLoader": database.own_name, "ownRowsPerSecond": rates["own"],
        "peakMemory": max(peaks), "seconds": figures,
    }


def check(database, rows):
    if database.count() != rows:
        raise RuntimeError(f"{database.name} has {database.count()} rows instead of {rows}")


def show(result):
    print(f"{result['database']:<11}{result['columns']:>3} columns "
          f"{result['rowsPerSecond']:>9,.0f} rows/s, bare loop {result['bareRowsPerSecond']:>9,.0f}"
          f", ratio {result['ratio']:.2f} ({min(result['ratios']):.2f} to "
          f"{max(result['ratios']):.2f}, target {TARGET}); {result['ownLoader']} "
          f"{result['ownRowsPerSecond']:,.0f}; peak {result['peakMemory'] / 1e6:.0f} MB", flush=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("results", type=pathlib.Path)
    parser.add_argument("--rows", type=int, default=8_000_000)
    parser.add_argument("--runs", type=int, default=3)
    arguments = parser.parse_args()
    build = arguments.build.resolve()

    # The tests have the code that starts and stops the server.
    source = pathlib.Path(__file__).resolve().parents[2]
    os.environ.update(TALLOW_BINARY_DIR=str(build), TALLOW_SOURCE_DIR=str(source))
    sys.path[:0] = [str(source / "tests" / folder) for folder in ("support", "load")]
    import harness

    harness.wake_wine()
    results = []
    scratch = tempfile.TemporaryDirectory(prefix="tallow-bench-")
    memory = tempfile.TemporaryDirectory(prefix="tallow-bench-", dir="/dev/shm")
    with scratch, memory:
        folder = pathlib.Path(scratch.name)
        folder.chmod(0o755)
        bench = Bench(build, folder, memory.name)
        server = harness.PostgresServer()
        try:
            for database in (Sqlite(folder), Postgres(server)):
                for columns, rows in ((3, arguments.rows), (30, arguments.rows // 8)):
                    results.append(measure(bench, database, columns, rows, arguments.runs))
                    show(results[-1])
        finally:
            server.close()
    arguments.results.write_text(json.dumps(results, indent=2) + "\n")
    missed = [result for result in results if result["ratio"] < TARGET]
    print("every ratio is at its target" if not missed else f"{len(missed)} ratios are below target")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())

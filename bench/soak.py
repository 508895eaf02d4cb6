#!/usr/bin/env python3
"""One long job through the module; scripts/bench builds what it needs and calls this.

Usage: bench/soak.py BUILD GIGABYTES RESULTS

Every block is compared with what was sent. Status 0 if all data was equal, memory and handles did
not grow, and the last quarter ran as fast as the first (or cost no more processor time, if other
programs share the processor).
"""
import json
import os
import shutil
import statistics
import sys

import run

WARM = 1 << 30  # bytes; memory and handles count only after these


def verdict(samples):
    """Pairs of a finding and whether it is good."""
    warm = [sample for sample in samples if sample["bytes"] >= WARM]
    memory = [sample["workingSet"] for sample in warm]
    handles = [sample["handles"] for sample in warm]
    steps = list(zip(samples, samples[1:]))
    quarter = len(steps) // 4
    speeds, costs = [], []
    for part in (steps[:quarter], steps[-quarter:]):
        speeds.append(statistics.median((later["bytes"] - earlier["bytes"]) / 1e6 /
                                        (later["seconds"] - earlier["seconds"])
                                        for earlier, later in part))
        costs.append((part[-1][1]["processorTime"] - part[0][0]["processorTime"]) * 1000 * run.MIB /
                     (part[-1][1]["bytes"] - part[0][0]["bytes"]))
    return [
        (f"working set {min(memory) / run.MIB:.1f} to {max(memory) / run.MIB:.1f} MiB, at the end "
         f"{memory[-1] / memory[0] - 1:+.1%}", memory[-1] <= 1.02 * memory[0]),
        (f"open handles {min(handles)} to {max(handles)}, at the end {handles[-1] - handles[0]:+}",
         handles[-1] <= handles[0]),
        (f"throughput {speeds[0]:.0f} MB/s in the first quarter, {speeds[1]:.0f} MB/s in the last; "
         f"processor time {costs[0]:.2f} and {costs[1]:.2f} ms per MiB",
         speeds[1] >= 0.8 * speeds[0] or costs[1] <= 1.1 * costs[0]),
    ]


def main():
    build, gigabytes, results = sys.argv[1], int(sys.argv[2]), sys.argv[3]
    total = max(gigabytes * 10**9 // run.MIB, 2 * WARM // run.MIB) * run.MIB
    bench = run.Bench(build, "")
    report = {"machine": run.machine()}
    try:
        bench.pin()
        # Stops at the first block that differs.
        answer = bench.jobs("soak", scenario="watch", timeout=24 * 3600,
                            shape={"total": total}, sampleEvery=total // 160)
    finally:
        bench.release()
        shutil.rmtree(bench.folder)
    report["machine"]["loadAtEnd"] = os.getloadavg()[0]
    report.update(answer)
    with open(results, "w", encoding="utf-8") as file:
        json.dump(report, file, indent=1)
    timing = answer["timing"]
    print(f"{timing['bytes'] / 1e9:.1f} GB in {timing['blocks']} blocks, {timing['seconds']:.0f} s, "
          "every block equal to what was sent")
    findings = verdict(answer["samples"])
    for text, good in findings:
        print(f"{text}{'' if good else '   NOT LEVEL'}")
    print(f"samples: {results}")
    return 0 if all(good for _, good in findings) else 1


if __name__ == "__main__":
    sys.exit(main())

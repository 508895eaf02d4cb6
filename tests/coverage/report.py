#!/usr/bin/env python3
"""Sums up a gcovr JSON report.

Usage: report.py REPORT

exceptions.txt, beside this, lists what may stay unreached, one entry per line, in three parts separated by ` | `: the
file, the source line (its text, without the blanks around it) and the reason. An exception counts
neither as reached nor as not reached. An exception that no longer fits is an error.
"""
import json
import pathlib
import sys

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
LEAST = {"lines": 98.0, "branches": 90.0}


def read_exceptions(path):
    """{(file, text): reason}"""
    exceptions = {}
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        if not line.strip() or line.startswith("#"):
            continue
        parts = [part.strip() for part in line.split(" | ")]
        if len(parts) != 3 or not parts[2]:
            sys.exit(f"{path}:{number}: needs a file, a source line and a reason")
        exceptions[parts[0], parts[1]] = parts[2]
    return exceptions


def main():
    report = json.loads(pathlib.Path(sys.argv[1]).read_text(encoding="utf-8"))
    exceptions = read_exceptions(HERE / "exceptions.txt")
    unused = set(exceptions)
    reached = {"lines": 0, "branches": 0}
    total = {"lines": 0, "branches": 0}
    for file in report["files"]:
        text = (ROOT / file["file"]).read_text(encoding="utf-8").splitlines()
        for line in file["lines"]:
            if line.get("gcovr/noncode"):
                continue
            source = text[line["line_number"] - 1].strip()
            branches = line.get("branches", [])
            missed = [branch for branch in branches if not branch["count"]]
            if line["count"] and not missed:
                total["lines"] += 1
                reached["lines"] += 1
                total["branches"] += len(branches)
                reached["branches"] += len(branches)
                continue
            if (file["file"], source) in exceptions:
                unused.discard((file["file"], source))
                continue
            total["lines"] += 1
            reached["lines"] += line["count"] > 0
            total["branches"] += len(branches)
            reached["branches"] += len(branches) - len(missed)
            what = f"{len(missed)} of {len(branches)} branches of" if line["count"] else "line"
            print(f'not reached: {what} {file["file"]}:{line["line_number"]}: {source}')
    for (file, source), reason in sorted(exceptions.items()):
        print(f"exception: {file}: {source} ({reason})")
    failed = False
    for file, source in sorted(unused):
        print(f"exception without need: {file}: {source}")
        failed = True
    for kind, least in LEAST.items():
        share = 100.0 * reached[kind] / total[kind] if total[kind] else 0.0
        print(f"{kind}: {share:.2f} % ({reached[kind]} of {total[kind]}), at least {least} % wanted")
        failed = failed or share < least
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()

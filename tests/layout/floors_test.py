#!/usr/bin/env python3
"""The folders under src/ are floors: a file includes only from its own floor or a lower one, and the
pure core never sees <windows.h>. The programs are floors too, and so are the folders of tools/load."""
import re
import unittest

from tallow_tests import SOURCE as ROOT
from tallow_tests.reports import main

SOURCE = ROOT / "src"
# From the bottom up. Folders in one set do not include each other. The host interface is the
# ground.
FLOORS = [{"tallow"}, {"runtime", "text"}, {"resources"}, {"diag"}, {"config"}, {"pipe", "fallback"}, {"delivery"}, {"entry"}]
HEIGHT = {folder: height for height, floor in enumerate(FLOORS) for folder in floor}


def includes(path):
    """The names between quotes and between angle brackets, in two lists."""
    text = path.read_text(encoding="utf-8")
    return (re.findall(r'^\s*#\s*include\s*"([^"]+)"', text, re.MULTILINE),
            re.findall(r"^\s*#\s*include\s*<([^>]+)>", text, re.MULTILINE))


def sources():
    return sorted(path for path in SOURCE.rglob("*") if path.suffix in (".cpp", ".hpp"))


def offences(folder, included):
    """The reason why a file of `folder` may not include `included`, or nothing."""
    if "/" not in included:
        return f"names {included} without its folder"
    other = included.split("/")[0]
    if other not in HEIGHT:
        return f"includes {included}, which is on no floor"
    if other != folder and HEIGHT[other] >= HEIGHT[folder]:
        return f"includes {included}, which is not below {folder}"
    return None


class Floors(unittest.TestCase):
    def test_every_folder_is_a_floor(self):
        self.assertEqual({path.name for path in SOURCE.iterdir() if path.is_dir()}, set(HEIGHT) - {"tallow"})

    def test_a_file_includes_only_from_its_own_floor_or_below(self):
        found = []
        for path in sources():
            folder = path.relative_to(SOURCE).parts[0]
            for included in includes(path)[0]:
                offence = offences(folder, included)
                # The resource compiler's files and the table of messages are in one folder.
                if offence and not (path.parent / included).exists():
                    found.append(f"{path.relative_to(SOURCE)} {offence}")
        self.assertEqual(found, [])

    def test_the_rule_is_one(self):
        self.assertIsNone(offences("delivery", "pipe/pipe_name.hpp"))
        self.assertIsNone(offences("pipe", "pipe/pipe_name.hpp"))
        for folder, included in (("pipe", "fallback/md5.hpp"), ("fallback", "pipe/pipe_name.hpp"),
                                 ("diag", "config/option_tokens.hpp"), ("pipe", "nowhere/x.hpp"),
                                 ("delivery", "entry/records.hpp"), ("pipe", "pipe_name.hpp")):
            self.assertIsNotNone(offences(folder, included), f"{folder} -> {included}")

    def test_the_pure_core_never_includes_windows(self):
        build = (SOURCE / "CMakeLists.txt").read_text(encoding="utf-8")
        listed = re.search(r"tallow_core STATIC(.*?)\)", build, re.DOTALL).group(1).split()
        self.assertGreater(len(listed), 5)
        for name in listed:
            seen, todo = set(), [SOURCE / name]
            while todo:
                path = todo.pop()
                if path in seen:
                    continue
                seen.add(path)
                ours, system = includes(path)
                self.assertNotIn("windows.h", [header.lower() for header in system],
                                 f"{path.relative_to(SOURCE)}, which {name} includes")
                todo += [SOURCE / header for header in ours if (SOURCE / header).exists()]


TOOLS = ROOT / "tools"
# What each folder of the programs may include: of tools/, itself and what is common to all; of src/,
# what a file or an option means. LOAD_MAY divides `load` further.
TOOLS_MAY = {
    "common": {"common", "config", "fallback", "pipe/unique_file_handle.hpp", "resources", "text"},
    "feed": {"common", "feed"},
    "host": {"common", "host", "config", "fallback"},
    "inspect": {"common", "inspect", "config", "fallback"},
    "load": {"common", "load", "text"},
}


def tool_offence(folder, included):
    """The reason why a file of that folder of tools/ may not include this, or nothing."""
    if "/" not in included:
        return f"names {included} without its folder"
    if included in TOOLS_MAY[folder] or included.split("/")[0] in TOOLS_MAY[folder]:
        return None
    return f"includes {included}"


class ToolFloors(unittest.TestCase):
    def test_every_folder_is_a_floor(self):
        self.assertEqual({path.name for path in TOOLS.iterdir() if path.is_dir()}, set(TOOLS_MAY))

    def test_a_file_includes_only_what_its_folder_may_know(self):
        found = []
        for folder in TOOLS_MAY:
            paths = sorted(path for path in (TOOLS / folder).rglob("*") if path.suffix in (".cpp", ".hpp"))
            self.assertGreater(len(paths), 5)
            for path in paths:
                for included in includes(path)[0]:
                    if offence := tool_offence(folder, included):
                        found.append(f"{path.relative_to(TOOLS)} {offence}")
        self.assertEqual(found, [])

    def test_the_rule_is_one(self):
        for folder, included in (("host", "common/text.hpp"), ("host", "fallback/md5.hpp"),
                                 ("common", "pipe/unique_file_handle.hpp"), ("load", "load/job/loader.hpp")):
            self.assertIsNone(tool_offence(folder, included), f"{folder} -> {included}")
        for folder, included in (("host", "load/secrets.hpp"), ("common", "host/job.hpp"),
                                 ("common", "pipe/pipe_read.hpp"), ("host", "delivery/requests.hpp"),
                                 ("inspect", "entry/records.hpp"), ("load", "diag/log.hpp"),
                                 ("feed", "input_stream.hpp")):
            self.assertIsNotNone(tool_offence(folder, included), f"{folder} -> {included}")


LOAD = ROOT / "tools" / "load"
# What each floor of the loader may include from the others. A folder stands for all its files.
LOAD_MAY = {
    "rows": {"rows"},
    "target": {"rows", "target"},
    "job": {"rows", "job", "target/database.hpp", "target/fault.hpp", "target/target_table.hpp"},
}


def load_offence(floor, included):
    """The reason why a file of that floor of the loader may not include this, or nothing."""
    if not included.startswith("load/"):
        return None
    name = included.removeprefix("load/")
    if name in LOAD_MAY[floor] or name.split("/")[0] in LOAD_MAY[floor]:
        return None
    return f"includes {included}"


class LoaderFloors(unittest.TestCase):
    def test_every_folder_is_a_floor(self):
        self.assertEqual({path.name for path in LOAD.iterdir() if path.is_dir()}, set(LOAD_MAY))

    def test_a_file_includes_only_what_its_floor_may_know(self):
        found = []
        for floor in LOAD_MAY:
            paths = sorted(path for path in (LOAD / floor).iterdir() if path.suffix in (".cpp", ".hpp"))
            self.assertGreater(len(paths), 5)
            for path in paths:
                for included in includes(path)[0]:
                    if offence := load_offence(floor, included):
                        found.append(f"{path.relative_to(LOAD)} {offence}")
        self.assertEqual(found, [])

    def test_the_rule_is_one(self):
        for floor, included in (("job", "load/target/database.hpp"), ("target", "load/rows/bytes.hpp"),
                                ("rows", "common/utf8.hpp")):
            self.assertIsNone(load_offence(floor, included), f"{floor} -> {included}")
        for floor, included in (("job", "load/target/odbc.hpp"), ("job", "load/target/way.hpp"),
                                ("target", "load/job/protocol.hpp"), ("job", "load/command_line.hpp"),
                                ("rows", "load/target/fault.hpp")):
            self.assertIsNotNone(load_offence(floor, included), f"{floor} -> {included}")

    def test_the_job_knows_no_dialect(self):
        for path in sorted((LOAD / "job").iterdir()):
            text = path.read_text(encoding="utf-8")
            self.assertNotRegex(text, r"\bDialect\b|\bclassify\(|\bnative\b", path.name)


if __name__ == "__main__":
    main()

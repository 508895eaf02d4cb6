#!/usr/bin/env python3
"""No source is missing from the build: a test that never runs would never fail."""
import re
import unittest

from tallow_tests import SOURCE as ROOT
from tallow_tests.reports import main

BUILT = ("src", "tools", "tests", "bench", "examples")


def build_text(folder):
    """The build files of a folder and of those above it, up to the repo's top."""
    texts = []
    while True:
        for path in sorted(folder.iterdir()):
            if path.name == "CMakeLists.txt" or path.suffix == ".cmake":
                texts.append(re.sub(r"#.*", "", path.read_text(encoding="utf-8")))
        if folder == ROOT:
            return "\n".join(texts)
        folder = folder.parent


def is_named(path):
    """True if the build names the file, by its name or, for a program of one source, by its stem. A
    variable within such a name stands for any text."""
    text = build_text(path.parent)
    if re.search(rf"(?<![\w-])({re.escape(path.name)}|{re.escape(path.stem)})(?![\w-])", text):
        return True
    patterns = [re.sub(r"\\\$\\\{\w+\\\}", r"\\w+", re.escape(token))
                for token in re.findall(r"\w+\$\{\w+\}[\w.]*", text)]
    return any(re.fullmatch(pattern, path.name) for pattern in patterns)


class Registered(unittest.TestCase):
    def check(self, wanted):
        paths = [path for folder in BUILT for path in sorted((ROOT / folder).rglob("*"))
                 if path.is_file() and wanted(path)]
        self.assertGreater(len(paths), 0)
        self.assertEqual([str(path.relative_to(ROOT)) for path in paths if not is_named(path)], [])

    def test_every_cpp_file_is_built(self):
        self.check(lambda path: path.suffix in (".cpp", ".c"))

    def test_every_test_script_is_run(self):
        self.check(lambda path: re.search(r"_test\.(py|sh)$", path.name))

    def test_every_test_script_reports_its_cases(self):
        for path in (ROOT / "tests").rglob("*_test.py"):
            text = path.read_text(encoding="utf-8")
            self.assertRegex(text, r"(?m)^ *from tallow_tests\.reports import main$", path.name)
            self.assertRegex(text, r"\n    +main\(\)\n\Z", path.name)

    def test_every_folder_of_tests_is_built(self):
        top = (ROOT / "tests" / "CMakeLists.txt").read_text(encoding="utf-8")
        for folder in sorted((ROOT / "tests").iterdir()):
            if (folder / "CMakeLists.txt").exists():
                self.assertRegex(top, rf"\b{folder.name}\b")


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""The documents point to what exists, and name each option, attribute and request that there is."""

import re
import unittest

from tallow_tests import BIN, SOURCE
from tallow_tests.programs import Program
from tallow_tests.reports import main


def documents():
    return sorted(SOURCE.glob("*.md")) + sorted((SOURCE / "docs").glob("*.md"))


def read(path):
    return path.read_text(encoding="utf-8")


def anchors(text):
    """The anchors that a page's headings get."""
    headings = re.findall(r"^#+ (.*)$", text, re.MULTILINE)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


class Docs(unittest.TestCase):
    def test_link_to_what_exists(self):
        for document in documents():
            for target in re.findall(r"\]\(([^)\s]+)\)", read(document)):
                if re.match(r"[a-z]+:", target):
                    continue
                with self.subTest(document=document.name, target=target):
                    name, _, anchor = target.partition("#")
                    page = document.parent / name if name else document
                    self.assertTrue(page.exists())
                    if anchor:
                        self.assertIn(anchor, anchors(read(page)))

    def test_give_the_tools_options_that_they_have(self):
        helps = {}
        for document in documents():
            for tool, rest in re.findall(r"\b(tallow-(?:host|feed|inspect|load)) ([^\n`]*)",
                                         read(document)):
                for option in re.findall(r"(?<![\w-])--[a-z][a-z-]*", rest):
                    with self.subTest(document=document.name, tool=tool, option=option):
                        if tool not in helps:
                            helps[tool] = Program(BIN / f"{tool}.exe", "--help").outcome().text
                        self.assertIn(option, helps[tool])

    def test_explain_every_option_of_a_tool(self):
        for tool, page in (("feed", "tools.md"), ("host", "tools.md"), ("inspect", "tools.md"),
                           ("load", "loading-databases.md")):
            shown = Program(BIN / f"tallow-{tool}.exe", "--help").outcome().text
            given = set(re.findall(r'add_(?:option|flag)\(\s*"(--[a-z-]+)', "".join(
                read(path) for path in sorted((SOURCE / "tools" / tool).rglob("*.cpp")))))
            self.assertGreater(len(given), 3)
            text = read(SOURCE / "docs" / page)
            for option in sorted(given | set(re.findall(r"^ +(--[a-z-]+)", shown, re.MULTILINE))):
                with self.subTest(tool=tool, option=option):
                    self.assertRegex(shown, rf"(?<![\w-]){option}(?![\w-])", "missing in --help")
                    if option not in ("--help", "--version"):
                        self.assertRegex(text, rf"(?<![\w-]){option}(?![\w-])",
                                         f"not explained in docs/{page}")

    def test_explain_every_option_of_the_initialisation_string(self):
        guide = read(SOURCE / "docs" / "operator-guide.md")
        options = re.findall(r'OptionName\{OptionId::\w+, "(\w+)", "(\w+)"\}',
                             read(SOURCE / "src/config/option_setting.cpp"))
        self.assertTrue(options)
        for name, short in options:
            with self.subTest(option=name):
                self.assertIn(f"| `{name}` (`{short}`) |", guide)

    def test_explain_every_attribute(self):
        guide = read(SOURCE / "docs" / "operator-guide.md")
        names = set(re.findall(r'"([A-Z]+_[A-Z_]+)"', read(SOURCE / "src/entry/attributes.cpp")))
        self.assertTrue(names)
        for name in sorted(names):
            with self.subTest(attribute=name):
                self.assertIn(f"`{name}`", guide)

    def test_tell_what_to_do_about_every_return_code(self):
        guide = read(SOURCE / "docs" / "host-guide.md").partition("## Return codes")[2].partition("\n## ")[0]
        header = read(SOURCE / "include/tallow/tallow.h")
        codes = re.findall(r"\bpmrc\w+ = (\d+)", header)
        self.assertTrue(codes)
        told = re.findall(r"\d+", " ".join(re.findall(r"^\| ([\d ,]+)", guide, re.MULTILINE)))
        self.assertEqual(sorted(codes, key=int), sorted(told, key=int))

    def test_give_each_message_with_the_return_code_that_it_comes_with(self):
        sections = re.split(r"^## (\d+)$", read(SOURCE / "docs" / "messages.md"), flags=re.MULTILINE)
        wanted = {(code, number) for number, section in zip(sections[1::2], sections[2::2])
                  for code in re.findall(r"return code (\d+)", section.split("```")[2].strip()
                                         .splitlines()[0])}
        guide = read(SOURCE / "docs" / "host-guide.md").partition("## Return codes")[2].partition("\n## ")[0]
        rows = re.findall(r"^\| ([\d ,]+)[^|]*\|[^|]*\| ([^|]*) \|", guide, re.MULTILINE)
        given = {code: re.findall(r"\d+", messages)
                 for codes, messages in rows for code in re.findall(r"\d+", codes)}
        self.assertGreater(len(wanted), 30)
        for code, number in sorted(wanted):
            with self.subTest(code=code, message=number):
                self.assertIn(number, given[code])

    def test_put_the_logs_folder_before_its_level(self):
        for document in documents():
            with self.subTest(document=document.name):
                self.assertNotRegex(read(document), r"Log_level=\d Log_directory")


if __name__ == "__main__":
    main()

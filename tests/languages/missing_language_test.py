#!/usr/bin/env python3
"""What the module does in a folder that lacks language libraries, and in a Japanese locale.

The box with the failed attempts is a real window on a virtual display; its picture is left in
box.png. OK is pressed as a person would. The tests have their own Wine prefix and end its processes
before each test: a Wine desktop stays with the display that it began with, or without one.
"""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

from tallow_tests import BIN, LIMIT
from tallow_tests.reports import main

PREFIX = str(pathlib.Path.cwd() / "wine")


def end_wine():
    subprocess.run(["wineserver", "-k"], env={**os.environ, "WINEPREFIX": PREFIX}, check=False,
                   timeout=LIMIT)

# The box is open when a window with its title is. xdotool waits for that; the end of the display
# also ends the wait.
PRESS_OK = """
wine load_module.exe "$1" & program=$!
window=$(timeout 40 xdotool search --sync --onlyvisible --name '^tallowin$' | head -n 1)
timeout 20 xdotool windowfocus --sync "$window"
import -window root "$2"
xdotool key Return
wait $program
"""


class Folder(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.folder = pathlib.Path(holder.name)
        end_wine()
        self.addCleanup(end_wine)
        self.put("tallowin.dll", "load_module.exe")

    def put(self, *names):
        for name in names:
            shutil.copy(BIN / name, self.folder)

    def run_wine(self, *command, working_folder=".", code_page="cp1252", **environment):
        run = subprocess.run(command, cwd=self.folder / working_folder, stdout=subprocess.PIPE,
                             env={**os.environ, "WINEPREFIX": PREFIX, **environment},
                             timeout=LIMIT, check=False)
        return run.returncode, run.stdout.decode(code_page).splitlines()

    def load(self, locale, **environment):
        return self.run_wine("wine", "load_module.exe", locale, **environment)

    def press_ok(self, locale):
        return self.run_wine("xvfb-run", "-a", "bash", "-c", PRESS_OK, "bash", locale,
                                  str(pathlib.Path.cwd() / "box.png"))


class SomeLibraries(Folder):
    def test_takes_the_default_sublanguage_when_the_variant_is_missing(self):
        self.put("tallowindeu.dll", "tallowinenu.dll")
        status, said = self.load("0x0c07")
        self.assertEqual((status, said[0]), (0, "library: tallowindeu.dll"))

    def test_takes_english_when_the_language_is_missing(self):
        self.put("tallowinenu.dll")
        status, said = self.load("0x0c07")
        self.assertEqual((status, said[0]), (0, "library: tallowinenu.dll"))

    def test_takes_the_library_beside_the_module_before_one_in_the_working_folder(self):
        self.put("tallowinenu.dll")
        elsewhere = self.folder / "elsewhere"
        elsewhere.mkdir()
        shutil.copy(BIN / "tallowindeu.dll", elsewhere)
        _, said = self.run_wine("wine", "..\\load_module.exe", "0x0407",
                                working_folder="elsewhere")
        self.assertEqual(said[0], "library: tallowinenu.dll")


class OtherFolders(Folder):
    """The module is in one folder, the program and the working folder elsewhere."""

    def setUp(self):
        super().setUp()
        # Code page 1252 lacks these letters.
        self.module = self.folder / "мега"
        self.module.mkdir()
        shutil.move(self.folder / "tallowin.dll", self.module)

    def load(self, locale, **environment):
        return super().load(locale, MODULE="мега\\tallowin.dll", LC_ALL="C.UTF-8", DISPLAY="",
                            **environment)

    def test_speaks_the_language_beside_the_module_in_a_folder_outside_the_code_page(self):
        shutil.copy(BIN / "tallowindeu.dll", self.module)
        self.put("tallowinenu.dll")
        self.assertEqual(self.load("0x0407"), (0, ["library: tallowindeu.dll", "code page: 1252",
                                                   "ID answers 0: tallowin.dll"]))

    def test_runs_no_code_of_a_library_in_the_working_folder(self):
        shutil.copy(BIN / "refusing_module.dll", self.folder / "tallowinenu.dll")
        status, said = self.load("0x0407")
        self.assertEqual((status, said[:1]), (0, ["library: tallowinenu.dll"]))


class NoLibrary(Folder):
    def assert_box(self, locale, tried):
        status, said = self.press_ok(locale)
        self.assertEqual(
            said, [f"box: Cannot load language specific resources (tried {tried})."])
        self.assertEqual(status, 1, "the module must not load")

    def test_lists_three_attempts(self):
        self.assert_box("0x0c07", '"tallowindea" (German (Austria)), "tallowindeu" (German '
                                  '(Germany)), and "tallowinenu" (English (United States))')

    def test_lists_two_equal_attempts_once(self):
        self.assert_box("0x0407", '"tallowindeu" (German (Germany)) and '
                                  '"tallowinenu" (English (United States))')

    def test_lists_three_equal_attempts_once(self):
        self.assert_box("0x0409", '"tallowinenu" (English (United States))')

    def test_does_not_load_without_a_display_either(self):
        self.assertEqual(self.load("0x0407", DISPLAY=""), (1, []))


class JapaneseLocale(Folder):
    def test_reaches_the_reader_of_the_log_in_japanese(self):
        self.put("tallowinjpn.dll")
        locales = self.folder / "locales"
        locales.mkdir()
        subprocess.run(["localedef", "-i", "ja_JP", "-f", "UTF-8", locales / "ja_JP.UTF-8"],
                       check=True, timeout=LIMIT)
        status, said = self.run_wine("wine", "load_module.exe", "0", "Log_directory=.",
                                          code_page="cp932", LOCPATH=str(locales),
                                          LC_ALL="ja_JP.UTF-8")
        self.assertEqual((status, said), (0, ["library: tallowinjpn.dll", "code page: 932",
                                              "ID answers 0: tallowin.dll"]))
        log = (self.folder / "namedpipes.log").read_text(encoding="cp932")
        self.assertIn("エラー 6 Tallow パイプアクセスモジュールは読み取り専用です。", log)


if __name__ == "__main__":
    main()

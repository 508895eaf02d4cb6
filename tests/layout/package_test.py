#!/usr/bin/env python3
"""The release: what is in it, that the same commit makes the same bytes, and that it works."""
import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import unittest
import zipfile

from tallow_tests import SOURCE
from tallow_tests.reports import main

VERSION = re.search(r'TALLOW_VERSION "(\d+\.\d+\.\d+)', (
    SOURCE / "src/resources/version.h").read_text(encoding="utf-8")).group(1)
NAME = f"tallow-{VERSION}-win64"


def run(*command, **options):
    return subprocess.run([str(word) for word in command], check=True, stdin=subprocess.DEVNULL,
                          capture_output=True, text=True, **options)


def make(clone):
    """Runs scripts/package in a clone and returns the bytes of both archives."""
    run(clone / "scripts" / "package", cwd=clone)
    return [(clone / "build" / f"{NAME}{kind}.zip").read_bytes() for kind in ("", "-debug")]


class Package(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.clone = pathlib.Path.cwd() / "clone"
        shutil.rmtree(cls.clone, ignore_errors=True)
        run("git", "clone", "--quiet", SOURCE, cls.clone)
        cls.archives = make(cls.clone)
        cls.unpacked = pathlib.Path.cwd() / "unpacked"
        shutil.rmtree(cls.unpacked, ignore_errors=True)
        with zipfile.ZipFile(cls.clone / "build" / f"{NAME}.zip") as archive:
            archive.extractall(cls.unpacked)
        cls.release = cls.unpacked / NAME

    def test_the_same_commit_makes_the_same_bytes_whatever_the_times(self):
        for path in self.clone.rglob("*"):
            if path.is_file() and ".git" not in path.parts and "build" not in path.parts:
                os.utime(path, (1_000_000_000, 1_000_000_000))
        shutil.rmtree(self.clone / "build" / "package")
        self.assertEqual([hashlib.sha256(archive).hexdigest() for archive in make(self.clone)],
                         [hashlib.sha256(archive).hexdigest() for archive in self.archives])

    def test_holds_what_a_user_needs(self):
        for name in ("bin/tallowin.dll", "bin/tallowinenu.dll", "bin/tallow-host.exe",
                     "bin/tallow-feed.exe", "bin/tallow-inspect.exe", "include/tallow/tallow.h",
                     "include/tallow/tallow.hpp", "examples/minimal_host.js",
                     "lib/cmake/tallow/tallow-config.cmake",
                     "docs/operator-guide.md", "README.md", "LICENSE", "THIRD_PARTY_NOTICES.md",
                     "SHA256SUMS", "bill-of-materials.json"):
            self.assertTrue((self.release / name).is_file(), name)

    def test_its_checksums_are_right_and_complete(self):
        listed = {}
        for line in (self.release / "SHA256SUMS").read_text(encoding="utf-8").splitlines():
            digest, name = line.split("  ", 1)
            listed[name] = digest
        found = {path.relative_to(self.release).as_posix():
                 hashlib.sha256(path.read_bytes()).hexdigest()
                 for path in self.release.rglob("*") if path.is_file()}
        found.pop("SHA256SUMS")
        self.assertEqual(listed, found)

    def test_debug_information_is_apart(self):
        with zipfile.ZipFile(self.clone / "build" / f"{NAME}-debug.zip") as archive:
            self.assertIn("tallowin.dll.debug", archive.namelist())
        headers = run("x86_64-w64-mingw32-objdump", "-h", self.release / "bin/tallowin.dll").stdout
        self.assertIn(".gnu_debuglink", headers)
        self.assertNotIn(".debug_info", headers)

    def test_names_no_path_of_the_machine_that_made_it(self):
        for path in (self.release / "bin").iterdir():
            self.assertNotIn(str(self.clone).encode(), path.read_bytes(), path.name)

    def test_every_binary_in_it_is_protected_and_says_what_it_is(self):
        result = subprocess.run([pathlib.Path(__file__).with_name("binaries_test.py")], text=True,
                                env={**os.environ,
                                     "TALLOW_RELEASE_BINARIES": str(self.release / "bin")},
                                capture_output=True, check=False)
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_a_host_is_compiled_against_it(self):
        result = subprocess.run([pathlib.Path(__file__).with_name("consumer_test.py")], text=True,
                                env={**os.environ, "TALLOW_RELEASE": str(self.release)},
                                capture_output=True, check=False)
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_a_job_runs_from_it(self):
        folder = self.unpacked / "job"
        folder.mkdir(exist_ok=True)
        data = os.urandom(3_000_000)
        (folder / "in").write_bytes(data)
        pipe = rf"\\.\pipe\package-test-{os.getpid()}"
        programs = self.release / "bin"
        with subprocess.Popen(["wine", programs / "tallow-feed.exe", "--pipe", pipe, "--in", "in"],
                              cwd=folder, stdin=subprocess.DEVNULL) as feeder:
            run("wine", programs / "tallow-host.exe", "--pipe", pipe, "--out", "out", cwd=folder,
                timeout=120)
            self.assertEqual(feeder.wait(60), 0)
        self.assertEqual((folder / "out").read_bytes(), data)

    def test_its_bill_names_the_versions_that_were_compiled_in(self):
        bill = parts_of(self.release)
        build = self.clone / "build" / "package"
        cache = pathlib.Path(re.search(r"TALLOW_ICU_DIR:PATH=(.*)", (
            build / "CMakeCache.txt").read_text(encoding="utf-8")).group(1)).parent
        headers = ["-I", build / "headers/cli11", "-I", build / "headers/nlohmann_json",
                   "-I", cache / "icu/include", "-I", cache / "libcsv", "-I", cache / "sqlite"]
        # What the preprocessor makes of the headers' own words, against the bill.
        for part, header, words in (
                ("ICU", "unicode/uvernum.h", "U_ICU_VERSION"),
                ("CLI11", "CLI/Version.hpp", "CLI11_VERSION"),
                ("JSON for Modern C++", "nlohmann/json.hpp",
                 "NLOHMANN_JSON_VERSION_MAJOR.NLOHMANN_JSON_VERSION_MINOR."
                 "NLOHMANN_JSON_VERSION_PATCH"),
                ("libcsv", "csv.h", "CSV_MAJOR.CSV_MINOR.CSV_RELEASE"),
                ("SQLite", "sqlite3.h", "SQLITE_VERSION"),
                ("libgcc", "_mingw.h", "__GNUC__"),
                ("libstdc++", "_mingw.h", "__GNUC__"),
                ("mingw-w64", "_mingw.h", "__MINGW64_VERSION_MAJOR"),
                ("winpthreads", "_mingw.h", "__MINGW64_VERSION_MAJOR")):
            with self.subTest(part):
                version = preprocessed(headers, header, words)
                self.assertRegex(version, r"^\d")
                self.assertRegex(bill[part]["version"], rf"^{re.escape(version)}(\D|$)")

    def test_its_bill_gives_each_part_a_licence_and_the_right_checksums(self):
        build = self.clone / "build" / "package"
        linked = {}
        for link_map in (build / "maps").glob("*.map"):
            for path in re.findall(r"^(?:LOAD )?(/[^\s(]+\.[ao])(?:\([^)]*\))?$",
                                   link_map.read_text(encoding="utf-8"), re.MULTILINE):
                linked[pathlib.Path(path).name] = hashlib.sha256(
                    pathlib.Path(path).read_bytes()).hexdigest()
        self.assertIn("libicuuc.a", linked)
        notices = (self.release / "THIRD_PARTY_NOTICES.md").read_text(encoding="utf-8")
        for name, part in parts_of(self.release).items():
            with self.subTest(name):
                self.assertTrue(part["licenses"][0]["expression"])
                self.assertIn(name, notices)
                files = {file["name"]: file["hashes"][0]["content"] for file in part["components"]}
                self.assertGreater(len(files), 0)
                for file, digest in files.items():
                    self.assertRegex(digest, "^[0-9a-f]{64}$")
                    if file.endswith((".a", ".o")):
                        self.assertEqual(linked[file], digest, file)

    def test_its_bill_says_which_program_holds_what(self):
        bill = json.loads((self.release / "bill-of-materials.json").read_text(encoding="utf-8"))
        holds = {entry["ref"]: set(entry["dependsOn"]) for entry in bill["dependencies"]}
        self.assertEqual(holds["tallow"], {f"bin/{path.name}" for path
                                           in (self.release / "bin").iterdir()})
        self.assertIn("ICU", holds["bin/tallowin.dll"])
        self.assertNotIn("winpthreads", holds["bin/tallowin.dll"])
        self.assertIn("libcsv", holds["bin/csv.dll"])
        self.assertIn("SQLite", holds["bin/tallow-load.exe"])
        self.assertLessEqual({"CLI11", "JSON for Modern C++", "libgcc", "libstdc++", "mingw-w64"},
                             holds["bin/tallow-host.exe"])
        self.assertEqual(holds["bin/tallowinenu.dll"], set())
        for component in bill["components"]:
            if component["type"] == "file":
                self.assertEqual(component["hashes"][0]["content"], hashlib.sha256(
                    (self.release / component["name"]).read_bytes()).hexdigest())


def parts_of(release):
    """The libraries of the bill by name."""
    bill = json.loads((release / "bill-of-materials.json").read_text(encoding="utf-8"))
    return {part["name"]: part for part in bill["components"] if part["type"] == "library"}


def preprocessed(options, header, words):
    text = subprocess.run(["x86_64-w64-mingw32-g++-posix", "-std=c++20", "-E", "-P", "-x", "c++",
                           *map(str, options), "-"], input=f"#include <{header}>\n{words}",
                          capture_output=True, text=True, check=True).stdout
    return re.sub(r'[\s"]', "", text.splitlines()[-1])


if __name__ == "__main__":
    main()

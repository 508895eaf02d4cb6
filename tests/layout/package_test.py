#!/usr/bin/env python3
"""The release: what is in it, that the same commit makes the same bytes, and that it works."""
import hashlib
import os
import pathlib
import shutil
import subprocess
import unittest
import zipfile

SOURCE = pathlib.Path(os.environ["TALLOW_SOURCE_DIR"])
NAME = "tallow-1.0.0-win64"


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
                     "docs/operator-guide.md", "README.md", "LICENSE", "THIRD_PARTY_NOTICES.md",
                     "SHA256SUMS"):
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


if __name__ == "__main__":
    unittest.main()

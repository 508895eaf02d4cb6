#!/usr/bin/env python3
"""Whoever has the release can compile a host: with the lines of the host guide, and with CMake."""
import os
import pathlib
import re
import shutil
import subprocess
import unittest

from tallow_tests import BUILD, SOURCE
from tallow_tests.reports import main

COMPILERS = {"g++": "x86_64-w64-mingw32-g++-posix", "gcc": "x86_64-w64-mingw32-gcc-posix"}


def run(*command, cwd):
    result = subprocess.run([str(word) for word in command], cwd=cwd, stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                            check=False)
    if result.returncode != 0:
        raise AssertionError(f"{command} ended with {result.returncode}:\n{result.stdout}")


def section():
    guide = (SOURCE / "docs" / "host-guide.md").read_text(encoding="utf-8")
    return guide.partition("\n## Compile it\n")[2].partition("\n## ")[0]


def imports(program):
    text = subprocess.run(["x86_64-w64-mingw32-objdump", "-p", program], capture_output=True,
                          text=True, check=True).stdout
    return {name.lower() for name in re.findall(r"DLL Name: (\S+)", text)}


class Consumer(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = pathlib.Path.cwd() / "consumer"
        shutil.rmtree(cls.work, ignore_errors=True)
        cls.work.mkdir()
        # The release that TALLOW_RELEASE names, or what this build would put into one.
        release = os.environ.get("TALLOW_RELEASE")
        cls.release = pathlib.Path(release) if release else cls.work / "release"
        if not release:
            run("cmake", "--install", BUILD, "--component", "host", "--prefix", cls.release,
                cwd=cls.work)

    def check_program(self, program):
        self.assertLessEqual(imports(program), {"kernel32.dll", "msvcrt.dll"})

    def test_the_compile_lines_of_the_guide_make_programs_that_need_no_dll_of_the_compiler(self):
        lines = re.search(r"^```sh\n(.*?)^```$", section(), re.MULTILINE | re.DOTALL).group(1)
        self.assertEqual([line.split()[0] for line in lines.splitlines()], ["g++", "gcc"])
        for line in lines.splitlines():
            words = line.split()
            program = self.work / words[-1]
            run(COMPILERS[words[0]], *words[1:-1], program, cwd=self.release)
            self.check_program(program)

    def test_the_guides_project_finds_the_package(self):
        project = self.work / "project"
        project.mkdir()
        text = re.search(r"^```cmake\n(.*?)^```$", section(), re.MULTILINE | re.DOTALL).group(1)
        (project / "CMakeLists.txt").write_text(text, encoding="utf-8")
        shutil.copy(self.release / "examples" / "minimal_host.cpp", project)
        run("cmake", "-G", "Ninja", "-S", ".", "-B", "build", "-DCMAKE_SYSTEM_NAME=Windows",
            f"-DCMAKE_CXX_COMPILER={COMPILERS['g++']}", f"-DCMAKE_PREFIX_PATH={self.release}",
            cwd=project)
        run("cmake", "--build", "build", cwd=project)
        self.check_program(project / "build" / "my_host.exe")

    def test_a_newer_package_than_there_is_is_not_found(self):
        project = self.work / "newer"
        project.mkdir()
        (project / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.20)\nproject(newer NONE)\n"
            "find_package(tallow 99.0 REQUIRED)\n", encoding="utf-8")
        with self.assertRaisesRegex(AssertionError, "99.0"):
            run("cmake", "-G", "Ninja", "-S", ".", "-B", "build",
                f"-DCMAKE_PREFIX_PATH={self.release}", cwd=project)


if __name__ == "__main__":
    main()

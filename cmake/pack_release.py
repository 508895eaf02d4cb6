#!/usr/bin/env python3
"""Makes the release's archives from its installed files.

Usage: pack_release.py FILES NAME RESULTS BUILD MOMENT

FILES is the folder that `cmake --install` filled from BUILD. The debug information of its programs
is moved out, each then naming the file that holds it; the bill of materials and the list of
checksums are added; and RESULTS gets NAME.zip and NAME-debug.zip, whose bytes depend on nothing but
names, contents and MOMENT (seconds since 1970).
"""
import hashlib
import pathlib
import shutil
import subprocess
import sys
import time
import zipfile

sys.dont_write_bytecode = True  # beside the sources
import bill_of_materials  # noqa: E402

OBJCOPY = "x86_64-w64-mingw32-objcopy"


def strip(program, debug):
    """Moves a program's debug information into the file `debug`."""
    for step in (["--only-keep-debug", program, debug], ["--strip-all", program],
                 [f"--add-gnu-debuglink={debug}", program]):
        subprocess.run([OBJCOPY, *step], check=True)


def files_of(folder):
    """(name, path) of all files, in the order of the names."""
    return sorted((path.relative_to(folder).as_posix(), path)
                  for path in folder.rglob("*") if path.is_file())


def write_checksums(folder):
    lines = [f"{hashlib.sha256(path.read_bytes()).hexdigest()}  {name}\n"
             for name, path in files_of(folder)]
    (folder / "SHA256SUMS").write_text("".join(lines), encoding="utf-8")


def pack(folder, top, result, moment):
    """Writes a ZIP archive in which the folder's files lie under `top`."""
    with zipfile.ZipFile(result, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as archive:
        for name, path in files_of(folder):
            entry = zipfile.ZipInfo(top + name, time.gmtime(moment)[:6])
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.create_system = 3
            entry.external_attr = 0o100644 << 16
            archive.writestr(entry, path.read_bytes())


def main():
    if len(sys.argv) != 6:
        sys.exit(__doc__)
    files, name, results, build = (pathlib.Path(sys.argv[1]), sys.argv[2], pathlib.Path(sys.argv[3]),
                                   pathlib.Path(sys.argv[4]))
    moment = int(sys.argv[5])
    debug = build / "debug-information"
    shutil.rmtree(debug, ignore_errors=True)
    debug.mkdir()
    for program in sorted((files / "bin").iterdir()):
        strip(program, debug / f"{program.name}.debug")
    bill_of_materials.write(files, build, moment)
    write_checksums(files)
    pack(files, name + "/", results / f"{name}.zip", moment)
    pack(debug, "", results / f"{name}-debug.zip", moment)


if __name__ == "__main__":
    main()

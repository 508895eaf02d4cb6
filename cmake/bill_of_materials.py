"""The release's bill of materials (CycloneDX, JSON): what of others each program holds, as the linker's
maps and the compiler's notes of included files say, not as somebody remembers."""
import datetime
import hashlib
import json
import os
import pathlib
import re
import subprocess

FILE = "bill-of-materials.json"

# What a file of others belongs to: the first pattern that its path fits, with name and licence. A path that fits none ends the run: whoever links something new says here what.
PARTS = [
    (r"/lib(win)?pthread\.a$", "winpthreads", "MIT AND BSD-3-Clause"),
    (r"mingw32/lib/", "mingw-w64", "ZPL-2.1"),
    (r"/libstdc\+\+\.a$", "libstdc++", "GPL-3.0-or-later WITH GCC-exception-3.1"),
    (r"/libssp(_nonshared)?\.a$", "libssp", "GPL-3.0-or-later WITH GCC-exception-3.1"),
    (r"/lib/gcc/.*/(lib\w+\.a|crt\w+\.o)$", "libgcc",
     "GPL-3.0-or-later WITH GCC-exception-3.1"),
    (r"/CLI/", "CLI11", "BSD-3-Clause"),
    (r"/nlohmann/", "JSON for Modern C++", "MIT"),
    (r"/libicuuc\.a$", "ICU", None),
    (r"/libcsv\.c$", "libcsv", "LGPL-2.1-or-later"),
    (r"/sqlite3\.c$", "SQLite", "blessing"),
]

# Of what is compiled into an object, that which no archive shows: headers that are whole libraries,
# and libraries of one file.
COMPILED_IN = r"/CLI/|/nlohmann/|/(libcsv|sqlite3)\.c$"


def part_of(path):
    for pattern, name, licence in PARTS:
        if re.search(pattern, path):
            return name, licence
    raise SystemExit(f"bill of materials: {path} is linked and belongs to no known part: "
                     f"add it to PARTS in {__file__} and to THIRD_PARTY_NOTICES.md")


def sha256(path):
    return hashlib.sha256(pathlib.Path(path).read_bytes()).hexdigest()


def linked(link_map):
    """What a linker's map shows something was taken from: the files of others, and our objects as
    (folder of the build, target or none, name)."""
    text = link_map.read_text(encoding="utf-8")
    members = re.findall(r"^(\S+)\(([^)]+)\)$", text.split("\nMemory Configuration\n")[0],
                         re.MULTILINE)
    others = {archive for archive, _ in members if archive.startswith("/")}
    others |= set(re.findall(r"^LOAD (/\S+\.o)$", text, re.MULTILINE))
    ours = {f"{os.path.dirname(archive)}/CMakeFiles/{pathlib.Path(archive).stem[3:]}.dir/.*/?{member}"
            for archive, member in members if not archive.startswith("/")
            and not archive.endswith(".dll.a")}  # a library that ships by itself
    ours |= set(re.findall(r"^LOAD ([^/\s]\S*\.obj)$", text, re.MULTILINE))
    return {os.path.realpath(path) for path in others}, ours


def included_files(build):
    """{object: what was compiled into it}, as ninja noted it down while building."""
    notes = subprocess.run(["ninja", "-C", str(build), "-t", "deps"], capture_output=True, text=True,
                           check=True).stdout
    found = {}
    for paragraph in notes.strip().split("\n\n"):
        name, *inputs = [line.strip() for line in paragraph.splitlines()]
        found[name.split(":")[0]] = {os.path.realpath(build / path) for path in inputs}
    return found


def owners(paths):
    """{path: Debian package} of those that belong to one."""
    result = subprocess.run(["dpkg-query", "-S", *sorted(paths)], capture_output=True, text=True,
                            check=False)
    return {path: owner.split(":")[0].split(",")[0]
            for owner, path in (line.split(": ", 1) for line in result.stdout.splitlines())}


def version_of(package):
    return subprocess.run(["dpkg-query", "-W", "-f", "${Version}", package], capture_output=True,
                          text=True, check=True).stdout


class Bill:
    """The parts by name; each knows its version, its licence and which files of it were used."""

    def __init__(self):
        self.parts = {}

    def add(self, path, packages):
        """Counts a file in; the name of its part."""
        name, licence = part_of(path)
        source = source_of(path)
        if source:
            package, version = f"{source['name']}?arch=source", source["version"]
            files = source["files"]
        elif path in packages:
            package, version, files = packages[path], version_of(packages[path]), []
        else:
            raise SystemExit(f"bill of materials: nothing tells the version of {path}")
        part = self.parts.setdefault(name, {"licence": licence or licence_of_icu(path),
                                            "version": version, "package": package, "files": {}})
        if part["version"] != version:
            raise SystemExit(f"bill of materials: {name} in two versions, {version} and "
                             f"{part['version']}")
        part["files"][os.path.basename(path)] = sha256(path)
        part["files"].update({file["name"]: file["sha256"] for file in files})
        return name

    def components(self):
        for name, part in sorted(self.parts.items()):
            package, _, arch = part["package"].partition("?")
            version = part["version"].replace("+", "%2B")
            yield {
                "type": "library", "bom-ref": name, "name": name, "version": part["version"],
                "licenses": [{"expression": part["licence"]}],
                "purl": f"pkg:deb/debian/{package}@{version}" + (f"?{arch}" if arch else ""),
                "components": [file_component(file, digest)
                               for file, digest in sorted(part["files"].items())],
            }


def file_component(name, digest):
    return {"type": "file", "name": name, "hashes": [{"alg": "SHA-256", "content": digest}]}


def source_of(path):
    """What scripts/setup noted about the source that a file in its cache was made of."""
    for folder in pathlib.Path(path).parents:
        note = folder / "source.json"
        if note.exists():
            return json.loads(note.read_text(encoding="utf-8"))
    return None


def licence_of_icu(path):
    folder = next(folder for folder in pathlib.Path(path).parents if (folder / "LICENSE").exists())
    text = (folder / "LICENSE").read_text(encoding="utf-8")
    return "Unicode-3.0" if "UNICODE LICENSE V3" in text else "Unicode-DFS-2016"


def used_by(link_map, included):
    """The files of others that are in a program."""
    others, ours = linked(link_map)
    for pattern in ours:
        compiled = [paths for name, paths in included.items() if re.fullmatch(pattern, name)]
        if not compiled and not pattern.endswith(".rc.obj"):
            raise SystemExit(f"bill of materials: {pattern} is linked, and ninja does not know it")
        for paths in compiled:
            others |= {path for path in paths if re.search(COMPILED_IN, path)}
    return others


def write(files, build, moment):
    """Writes the bill of the programs in files/bin, which were built in `build`, beside them."""
    included = included_files(build)
    used = {program: used_by(build / "maps" / f"{program.stem}.map", included)
            if (build / "maps" / f"{program.stem}.map").exists() else set()
            for program in sorted((files / "bin").iterdir())}
    packages = owners(set().union(*used.values()))
    bill = Bill()
    parts = {program: sorted({bill.add(path, packages) for path in sorted(paths)})
             for program, paths in used.items()}
    version = re.search(r"CMAKE_PROJECT_VERSION:STATIC=(.*)",
                        (build / "CMakeCache.txt").read_text(encoding="utf-8")).group(1)
    moment = datetime.datetime.fromtimestamp(moment, datetime.timezone.utc)
    document = {
        "bomFormat": "CycloneDX", "specVersion": "1.5", "version": 1,
        "metadata": {
            "timestamp": moment.strftime("%Y-%m-%dT%H:%M:%SZ"),
            "component": {"type": "application", "bom-ref": "tallow", "name": "tallow",
                          "version": version, "licenses": [{"license": {"id": "Apache-2.0"}}]},
        },
        "components": [{**file_component(f"bin/{program.name}", sha256(program)),
                        "bom-ref": f"bin/{program.name}"} for program in parts]
                      + list(bill.components()),
        "dependencies": [{"ref": "tallow", "dependsOn": [f"bin/{program.name}" for program in parts]}]
                        + [{"ref": f"bin/{program.name}", "dependsOn": names}
                           for program, names in parts.items()],
    }
    (files / FILE).write_text(json.dumps(document, indent=1) + "\n", encoding="utf-8")

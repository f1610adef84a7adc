# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""Which tests belong to a unit: those that have its object file linked in.

Nothing is named by hand. Every test is linked with -Map (cmake/Tests.cmake), and the map names
the members of libraries that the linker took. A test that replaces a unit, as the scripted wire
does with CommChannel.cpp, does not have that unit's object and so is no test of it.
"""

import json
import pathlib
import re
import subprocess

TREE = re.compile(r"^CMAKE_HOME_DIRECTORY:\w+=(.*)$", re.MULTILINE)
OUTPUT = re.compile(r" -o (\S+\.o) ")
MEMBER = re.compile(r"^(\S+\.a)\((\S+\.o)\)", re.MULTILINE)
OBJECT = re.compile(r"^LOAD (\S+\.o)$", re.MULTILINE)
INCLUDE = re.compile(r'^#include "(.*)"$', re.MULTILINE)


def linked_objects(map_text):
    """What a linker's map names: object files, and (library, member) pairs."""
    return set(OBJECT.findall(map_text)) | set(MEMBER.findall(map_text))


def compiled_files(file):
    """A file that the build compiles, or those that CMake has put together in it."""
    if file.parent.name != "Unity":
        return [file]
    return [pathlib.Path(included) for included in INCLUDE.findall(file.read_text())]


class Sources:
    """From object files and members of libraries back to sources, by what the build compiles."""

    def __init__(self, build):
        cache = (build / "CMakeCache.txt").read_text()
        self.tree = pathlib.Path(TREE.search(cache).group(1))
        self.of_object = {}
        for entry in json.loads((build / "compile_commands.json").read_text()):
            output = OUTPUT.search(entry["command"])
            if output:  # else a precompiled header
                self.of_object[output.group(1)] = [
                    str(file.relative_to(self.tree))
                    for file in compiled_files(pathlib.Path(entry["file"]))
                    if file.is_relative_to(self.tree)]  # others are made by the build

    def all(self):
        return {source for sources in self.of_object.values() for source in sources}

    def of(self, linked):
        """The sources of an object, or of a member of a library; none for what is not ours."""
        if isinstance(linked, str):
            return self.of_object.get(linked, [])
        library, member = pathlib.PurePath(linked[0]), linked[1]
        folder = library.parent / "CMakeFiles" / (library.stem.removeprefix("lib") + ".dir")
        return [source for output, sources in self.of_object.items()
                if output.startswith(f"{folder}/") and pathlib.PurePath(output).name == member
                for source in sources]


def tests_of(build, label):
    """Executable -> the commands of its tests that have the label, as ctest runs them."""
    shown = subprocess.run(["ctest", "--test-dir", build, "--show-only=json-v1"],
                           capture_output=True, text=True, check=True).stdout
    tests = {}
    for test in json.loads(shown)["tests"]:
        labels = [l for p in test["properties"] if p["name"] == "LABELS" for l in p["value"]]
        if label in labels and "command" in test:
            tests.setdefault(pathlib.Path(test["command"][0]), []).append(test["command"])
    return tests


class Units:
    """Every source outside tests/ that the build compiles, and the unit tests that link it."""

    def __init__(self, build):
        build = pathlib.Path(build).resolve()
        sources = Sources(build)
        self.commands = {e: c for e, c in tests_of(build, "unit").items()
                         if e.with_name(e.name + ".map").exists()}
        self.tests = {s: [] for s in sorted(sources.all()) if not s.startswith("tests/")}
        self.breadth = {}
        self.files = {}  # executable -> the names of the sources in it
        for executable in sorted(self.commands):
            text = executable.with_name(executable.name + ".map").read_text(errors="replace")
            linked = {s for name in linked_objects(text) for s in sources.of(name)}
            units = linked & self.tests.keys()
            self.breadth[executable] = len(units)
            self.files[executable] = {pathlib.PurePath(s).name for s in linked}
            for unit in units:
                self.tests[unit].append(executable)
        for unit, executables in self.tests.items():
            executables.sort(key=lambda e: (self.distance(unit, e), e.name))

    def distance(self, unit, executable):
        """How far the unit is from what the executable tests: least for the one with the unit's own
        test, then for the one that links least besides the unit."""
        own = f"{pathlib.PurePath(unit).stem}_test.cpp" in self.files[executable]
        return (not own, self.breadth[executable])

    def tested(self):
        return [unit for unit, executables in self.tests.items() if executables]

    def listing(self):
        return "\n".join(f"{unit}: {' '.join(e.name for e in executables) or '(none)'}"
                         for unit, executables in self.tests.items())

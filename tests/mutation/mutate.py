#!/usr/bin/env python3
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""Changes one line of the driver or the emulator at a time and sees whether a test notices.

Each mutant is compiled in a copy of the tree, and the unit tests that link its unit (units.py) run
until one fails. A mutant that no test fails is a survivor: it needs a test, or a line in
survivors.txt that says why no test can tell it from the original.

    mutate.py [--count N] [--seed S] [--only PATH] [--line TEXT] [--build DIR]
    mutate.py --list --build DIR

The exit status is 0 when every survivor is listed, 1 when one is not or a test fails without any
mutant, 2 for wrong arguments.
"""

import argparse
import concurrent.futures
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys
import tempfile
import time

from units import Units

TREE = pathlib.Path(__file__).resolve().parents[2]
SURVIVORS = TREE / "tests/mutation/survivors.txt"

COMPARISONS = [(r" == ", " != "), (r" != ", " == "), (r" <= ", " < "), (r" >= ", " > "),
               (r" < ", " <= "), (r" > ", " >= "), (r" && ", " || "), (r" \|\| ", " && ")]
NUMBER = re.compile(r"(?<![\w.'\"])(0x[0-9A-Fa-f]+|\d+)(?![\w.'\"])")
STATEMENT = re.compile(r"^\s+(?:[\w:.\->\[\]]+\(.*\);|\+\+[\w.]+;|[\w.\[\]>-]+ (?:[-+*/|^]?=) .*;)$")
# No test can see that a buffer has one byte more.
SKIPPED = re.compile(r"^\s*(//|#|static_assert|constexpr|const\b.*\bat\b|inline"
                     r"|char \w+\[|std::array<[\w:]+, \d+> )|GCOVR_EXCL|\bcase\b.*:$")


def code_part(line):
    """The line without its trailing comment and with string literals blanked out."""
    blanked = re.sub(r'"(?:\\.|[^"\\])*"', lambda m: '"' + "_" * (len(m.group()) - 2) + '"', line)
    cut = blanked.find("//")
    return blanked if cut < 0 else blanked[:cut]


def lines_of(tree, path):
    return (tree / path).read_text().split("\n")


def mutants_of(tree, path):
    """(line number, new line) for every change that can be made in the file."""
    for number, line in enumerate(lines_of(tree, path)):
        code = code_part(line)
        if SKIPPED.search(line):
            continue
        for pattern, replacement in COMPARISONS:
            for match in re.finditer(pattern, code):
                yield number, line[:match.start()] + replacement + line[match.end():]
        for match in NUMBER.finditer(code):
            if "#" in code[:match.start()] or '"' in code[match.start():match.end()]:
                continue
            yield number, line[:match.start()] + str(int(match.group(), 0) + 1) + line[match.end():]
        if STATEMENT.match(line) and not line.lstrip().startswith("return"):
            yield number, re.match(r"^\s*", line).group() + ";"


def spread(tree, paths, line, count, seed):
    """count mutants, spread over the units by the number of changes that each allows."""
    everything = [(path, number, text) for path in paths for number, text in mutants_of(tree, path)
                  if line in lines_of(tree, path)[number]]
    random.Random(seed).shuffle(everything)
    return sorted(everything[:count])


class Build:
    """A copy of the tree, built, and its tests; each test runs in a process of its own."""

    def __init__(self, work):
        self.copy, self.folder, self.scratch = work / "tree", work / "build", work / "tmp"
        # A mutant that hangs is killed and cannot tidy up: what it leaves goes with the rest.
        self.scratch.mkdir(parents=True, exist_ok=True)
        os.environ["TMPDIR"] = str(self.scratch)
        self.copy_tree()
        subprocess.run(["cmake", "-S", self.copy, "-B", self.folder, "-G", "Ninja",
                        "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0"],
                       check=True, stdout=subprocess.DEVNULL)
        subprocess.run(["cmake", "--build", self.folder, "--target", "voltis_unit_tests"],
                       check=True, stdout=subprocess.DEVNULL)
        self.units = Units(self.folder)
        self.seconds = {}  # that a test takes when nothing is changed
        self.catches = {}  # of (unit, executable)

    def copy_tree(self):
        """Only what differs is written, so that a folder that is used again builds little."""
        wanted = set()
        for path in TREE.rglob("*"):
            inside = path.relative_to(TREE)
            if inside.parts[0] in ("build", ".git") or not path.is_file():
                continue
            wanted.add(inside)
            target = self.copy / inside
            if not target.exists() or target.read_bytes() != path.read_bytes():
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copyfile(path, target)
                shutil.copymode(path, target)
        for path in [p for p in self.copy.rglob("*") if p.is_file()]:
            if path.relative_to(self.copy) not in wanted:
                path.unlink()

    def make(self, target):
        return subprocess.run(["cmake", "--build", self.folder, "--target", target],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0

    def passes(self, command):
        key, start = tuple(command), time.monotonic()
        # Generous, for the machine may have other work.
        limit = 5 + 10 * self.seconds[key] if key in self.seconds else 60
        try:
            passed = subprocess.run(command, cwd=self.folder / "tests", stdin=subprocess.DEVNULL,
                                    stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                    timeout=limit).returncode == 0
        except subprocess.TimeoutExpired:
            passed = False
        self.seconds.setdefault(key, time.monotonic() - start)
        return passed

    def failing(self, executable):
        """A test of the executable that does not pass, by its command; None when all pass."""
        commands = sorted(self.units.commands[executable],
                          key=lambda c: self.seconds.get(tuple(c), 0))
        with concurrent.futures.ThreadPoolExecutor(2 * (os.cpu_count() or 1)) as pool:
            runs = [pool.submit(self.passes, c) for c in commands]
            for future in concurrent.futures.as_completed(runs):
                if not future.result():
                    pool.shutdown(cancel_futures=True)
                    return commands[runs.index(future)]
        return None

    def time_of(self, executable):
        return sum(self.seconds[tuple(c)] for c in self.units.commands[executable])

    def check_unchanged(self, unit):
        """All tests of the unit must pass when nothing is changed."""
        for executable in self.units.tests[unit]:
            known = all(tuple(c) in self.seconds for c in self.units.commands[executable])
            failed = None if known else self.failing(executable)
            if failed:
                sys.exit(f"does not pass without any mutant: {' '.join(map(str, failed))}")

    def verdict(self, unit):
        """What happens to the mutant that the copy holds: "invalid", "caught" or "survived"."""
        # What has caught a mutant of this unit is likely to catch the next; else the cheap ones
        # first.
        order = sorted(self.units.tests[unit], key=lambda e: (
            -self.catches.get((unit, e), 0), self.units.distance(unit, e), self.time_of(e)))
        for number, executable in enumerate(order):
            if not self.make(executable.name):
                if number > 0:
                    sys.exit(f"{executable.name} does not build, but {order[0].name} does")
                return "invalid"
            if self.failing(executable):
                self.catches[unit, executable] = self.catches.get((unit, executable), 0) + 1
                return "caught"
        return "survived"

    def try_mutant(self, path, number, text):
        original = lines_of(self.copy, path)
        changed = [*original[:number], text, *original[number + 1:]]
        (self.copy / path).write_text("\n".join(changed))
        try:
            return self.verdict(path)
        finally:
            (self.copy / path).write_text("\n".join(original))


def listed_survivors():
    lines = [l for l in SURVIVORS.read_text().split("\n") if l and not l.startswith("#")]
    return [l for l in lines if not l.startswith("    ")]


def describe(tree, path, number, text):
    return f"{path}: {lines_of(tree, path)[number].strip()}  =>  {text.strip()}"


def stale_survivors():
    """Lines of survivors.txt whose file or line has changed or is gone."""
    listed = listed_survivors()
    paths = {l.split(": ")[0] for l in listed}
    possible = {describe(TREE, p, *m)
                for p in paths if (TREE / p).exists() for m in mutants_of(TREE, p)}
    return [l for l in listed if l not in possible]


def summary(counts, unlisted, seed):
    valid = counts["caught"] + counts["survived"]
    share = f" ({100.0 * counts['caught'] / valid:.1f} %)" if valid else ""
    return (f"mutants: {valid} compiled, {counts['caught']} caught{share}, "
            f"{counts['survived'] - unlisted} listed survivors, {unlisted} unlisted; "
            f"{counts['invalid']} did not compile; seed {seed}")


def run(options, build):
    """Tries the mutants that the options choose; the number of survivors that are not listed."""
    paths = [u for u in build.units.tested() if u.startswith(options.only)]
    chosen = spread(build.copy, paths, options.line, options.count, options.seed)
    if not chosen:
        print("no mutant fits")
        return 0
    for path in sorted({m[0] for m in chosen}):
        build.check_unchanged(path)
    known, unlisted = set(listed_survivors()), 0
    counts = {"invalid": 0, "caught": 0, "survived": 0}
    for path, number, text in chosen:
        name = describe(build.copy, path, number, text)
        verdict = build.try_mutant(path, number, text)
        counts[verdict] += 1
        if verdict == "survived" and name not in known:
            unlisted += 1
            print(f"survivor: {name}  (line {number + 1})", flush=True)
    print(summary(counts, unlisted, options.seed))
    return unlisted


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--count", type=int, default=240)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--only", default="",
                        help="units whose path begins so, such as src/Decimal.cpp or emulator/")
    parser.add_argument("--line", default="", help="only lines that contain this text")
    parser.add_argument("--build", default="",
                        help="a folder to keep the build in; with --list, one that is built")
    parser.add_argument("--list", action="store_true",
                        help="print the tests of every unit and change nothing")
    options = parser.parse_args()
    if options.list:
        if not options.build:
            parser.error("--list needs --build with a folder that is built")
        if not (pathlib.Path(options.build) / "compile_commands.json").is_file():
            parser.error(f"nothing is built in '{options.build}'")
        print(Units(options.build).listing())
        return
    for line in stale_survivors():
        print(f"survivors.txt: there is no such line any more: {line}")
    work = pathlib.Path(options.build or tempfile.mkdtemp(prefix="voltis-mutants-")).resolve()
    build = Build(work)
    unlisted = run(options, build)
    shutil.rmtree(build.scratch if options.build else work)
    sys.exit(1 if unlisted else 0)


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""Changes one line of the driver at a time and sees whether a test notices.

Each mutant is compiled and linked into the tests that are meant for its unit, in a copy of the tree,
and these run until one fails. A mutant that no test fails is a survivor: it wants a test, or a line in
survivors.txt that says why no test can tell it from the original.

    mutate.py [--count N] [--seed S] [--only UNIT] [--build DIR]
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

TREE = pathlib.Path(__file__).resolve().parents[2]
SURVIVORS = TREE / "tests/mutation/survivors.txt"

# Unit -> the tests that are meant to catch a change in it.
UNITS = {
    "src/EcrExchange.cpp": ["EcrExchange_test", "ECR_test", "EcrStatus_test", "EcrReplay_test"],
    "src/ECR.cpp": ["ECR_test", "EcrChannel_test", "EcrReplay_test", "EcrExchange_test"],
    "src/EcrStatus.cpp": ["EcrStatus_test", "ECR_test"],
    "src/ProtocolFormatting.cpp": ["ProtocolFormatting_test"],
    "src/Decimal.cpp": ["Decimal_test"],
    "src/FiscalCommandProcessor.cpp": ["FiscalCommandProcessor_test", "ProcessorContinue_test",
                                       "ProcessorReport_test", "ProcessorTender_test"],
}

COMPARISONS = [(r" == ", " != "), (r" != ", " == "), (r" <= ", " < "), (r" >= ", " > "),
               (r" < ", " <= "), (r" > ", " >= "), (r" && ", " || "), (r" \|\| ", " && ")]
NUMBER = re.compile(r"(?<![\w.'\"])(0x[0-9A-Fa-f]+|\d+)(?![\w.'\"])")
STATEMENT = re.compile(r"^\s+(?:[\w:.\->\[\]]+\(.*\);|\+\+[\w.]+;|[\w.\[\]>-]+ (?:[-+*/|^]?=) .*;)$")
SKIPPED = re.compile(r"^\s*(//|#|static_assert|constexpr|const\b.*\bat\b|inline)|GCOVR_EXCL|\bcase\b.*:$")


def code_part(line):
    """The line without its trailing comment and with string literals blanked out."""
    blanked = re.sub(r'"(?:\\.|[^"\\])*"', lambda m: '"' + "_" * (len(m.group()) - 2) + '"', line)
    cut = blanked.find("//")
    return blanked if cut < 0 else blanked[:cut]


def mutants_of(path):
    """(line number, new line) for every change that can be made in the file."""
    for number, line in enumerate((TREE / path).read_text().split("\n")):
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


def spread(count, seed):
    """count mutants, spread over the units by the number of changes that each allows."""
    everything = [(path, number, text) for path in UNITS for number, text in mutants_of(path)]
    random.Random(seed).shuffle(everything)
    return sorted(everything[:count])


class Tests:
    """The test executables of one build folder; each test runs in a process of its own."""

    def __init__(self, build):
        self.build = build
        self.lists = {}

    def names(self, executable):
        if executable not in self.lists:
            out = subprocess.run([self.build / "tests" / executable, "--gtest_list_tests"],
                                 capture_output=True, text=True, check=True).stdout
            suite, names = "", []
            for line in out.split("\n"):
                if line.startswith("  "):
                    names.append(suite + line.split("#")[0].strip())
                elif line and not line.startswith("Running"):
                    suite = line.split("#")[0].strip()
            self.lists[executable] = names
        return self.lists[executable]

    def one_passes(self, executable, name):
        try:
            return subprocess.run([self.build / "tests" / executable, "--gtest_filter=" + name],
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                  stdin=subprocess.DEVNULL, timeout=20).returncode == 0
        except subprocess.TimeoutExpired:
            return False

    def all_pass(self, executables):
        jobs = [(e, n) for e in executables for n in self.names(e)]
        with concurrent.futures.ThreadPoolExecutor(4) as pool:
            for start in range(0, len(jobs), 32):
                if not all(pool.map(lambda job: self.one_passes(*job), jobs[start:start + 32])):
                    return False
        return True


def build(folder, targets):
    return subprocess.run(["cmake", "--build", folder, "--target", *targets],
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0


def listed_survivors():
    if not SURVIVORS.exists():
        return set()
    lines = [l for l in SURVIVORS.read_text().split("\n") if l and not l.startswith("#")]
    return {l for l in lines if not l.startswith("    ")}


def describe(path, old, new):
    return f"{path}: {old.strip()}  =>  {new.strip()}"


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--count", type=int, default=240)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--only", default="", help="a unit, such as src/Decimal.cpp")
    parser.add_argument("--build", default="", help="a new folder to keep the build in")
    options = parser.parse_args()

    work = pathlib.Path(options.build or tempfile.mkdtemp(prefix="voltis-mutants-"))
    copy, folder = work / "tree", work / "build"
    # A mutant that hangs is killed and cannot tidy up: what it leaves goes with the rest of the work.
    scratch = work / "tmp"
    scratch.mkdir(parents=True, exist_ok=True)
    os.environ["TMPDIR"] = str(scratch)
    shutil.copytree(TREE, copy, dirs_exist_ok=True, ignore=shutil.ignore_patterns("build", ".git"))
    subprocess.run(["cmake", "-S", copy, "-B", folder, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug"],
                   check=True, stdout=subprocess.DEVNULL)
    chosen = [m for m in spread(options.count, options.seed) if m[0].startswith(options.only)]
    tests = Tests(folder)
    for path in sorted({m[0] for m in chosen}):
        if not build(folder, UNITS[path]) or not tests.all_pass(UNITS[path]):
            sys.exit(f"the tests of {path} do not pass without any mutant")

    known, caught, invalid, excused, survivors = listed_survivors(), 0, 0, 0, []
    for path, number, text in chosen:
        original = (TREE / path).read_text()
        lines = original.split("\n")
        name = describe(path, lines[number], text)
        lines[number] = text
        (copy / path).write_text("\n".join(lines))
        if not build(folder, UNITS[path]):
            invalid += 1  # the compiler caught it
        elif not tests.all_pass(UNITS[path]):
            caught += 1
        elif name in known:
            excused += 1
        else:
            survivors.append(f"{name}  (line {number + 1})")
            print("survivor:", survivors[-1], flush=True)
        (copy / path).write_text(original)
        # ninja goes by time stamps; the next build must see the original as newer.
        (copy / path).touch()

    valid = len(chosen) - invalid
    share = 100.0 * caught / valid if valid else 0.0
    print(f"mutants: {valid} compiled, {caught} caught ({share:.1f} %), {excused} listed survivors, "
          f"{len(survivors)} unlisted; {invalid} did not compile; seed {options.seed}")
    shutil.rmtree(scratch if options.build else work)
    sys.exit(1 if survivors or share < 95.0 else 0)


if __name__ == "__main__":
    main()

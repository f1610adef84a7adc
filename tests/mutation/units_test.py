#!/usr/bin/env python3
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""The tests of a unit are found by what the linker took; the list of survivors is up to date; and
only a survivor that is not listed counts against a run.

    units_test.py BUILD [unittest's arguments]
"""

import argparse
import contextlib
import io
import pathlib
import subprocess
import sys
import tempfile
import types
import unittest
import unittest.mock

import mutate
import units

MAP = """Archive member included to satisfy reference by file (symbol)

src/libvoltis_low.a(Low.cpp.o)
                              tests/CMakeFiles/High_test.dir/High_test.cpp.o (Low())
/usr/lib/libgtest_main.a(gtest_main.cc.o)
                              (main)

Memory Configuration

LOAD tests/CMakeFiles/High_test.dir/High_test.cpp.o
LOAD src/libvoltis_low.a
LOAD src/libvoltis_replaced.a
 .text          0x0000000000001000       0x10 src/libvoltis_low.a(Low.cpp.o)
"""


class LinkerMap(unittest.TestCase):
    def test_names_the_objects_and_only_the_members_that_were_taken(self):
        self.assertEqual(units.linked_objects(MAP), {
            "tests/CMakeFiles/High_test.dir/High_test.cpp.o",
            ("src/libvoltis_low.a", "Low.cpp.o"),
            ("/usr/lib/libgtest_main.a", "gtest_main.cc.o")})


class CompiledFiles(unittest.TestCase):
    def test_of_several_compiled_as_one_are_those_that_it_includes(self):
        with tempfile.TemporaryDirectory() as folder:
            together = pathlib.Path(folder, "Unity", "unity_0_cxx.cxx")
            together.parent.mkdir()
            together.write_text('/* generated */\n\n#include "/tree/One.cpp"\n#include "/tree/Two.cpp"\n')
            self.assertEqual(units.compiled_files(together),
                             [pathlib.Path("/tree/One.cpp"), pathlib.Path("/tree/Two.cpp")])

    def test_of_one_compiled_alone_are_itself(self):
        alone = pathlib.Path("/tree/One.cpp")
        self.assertEqual(units.compiled_files(alone), [alone])


class UnitsOfThisBuild(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.units = units.Units(BUILD)

    def names(self, unit):
        return [e.name for e in self.units.tests[unit]]

    def test_a_unit_is_tested_by_its_own_test_first(self):
        for unit, test in [("src/Common.cpp", "Units_test"), ("src/LogFile.cpp", "Files_test"),
                           ("src/AppController.cpp", "AppController_test"),
                           ("src/ProtocolFormatting.cpp", "Units_test"),
                           ("src/ECR.cpp", "ECR_test")]:
            self.assertEqual(self.names(unit)[0], test)

    def test_what_a_unit_is_used_by_tests_it_too(self):
        self.assertIn("Processor_test", self.names("src/ProcessorCodePage.cpp"))
        self.assertIn("ECR_test", self.names("src/ProtocolFormatting.cpp"))
        self.assertIn("VOLTIS_test", self.names("src/VOLTIS.cpp"))

    def test_the_scripted_wire_does_not_test_the_channel(self):
        self.assertIn("Units_test", self.names("src/CommChannel.cpp"))
        self.assertIn("ECR_test", self.names("src/EcrExchange.cpp"))
        self.assertNotIn("ECR_test", self.names("src/CommChannel.cpp"))
        self.assertNotIn("ECR_test", self.names("src/LogFile.cpp"))

    def test_the_register_of_a_test_does_not_test_the_link(self):
        self.assertIn("Processor_test", self.names("src/ProcessorSales.cpp"))
        self.assertNotIn("Processor_test", self.names("src/EcrExchange.cpp"))
        self.assertNotIn("Processor_test", self.names("src/ECR.cpp"))

    def test_only_unit_tests_count(self):
        names = {name for unit in self.units.tests for name in self.names(unit)}
        self.assertNotIn("voltis_binary_test", names)
        self.assertNotIn("faults_test", names)

    def test_every_unit_of_the_driver_has_a_test(self):
        # A unit of the emulated register may have its test among those that another build has.
        elsewhere = "VOLTIS_UNITS_ELSEWHERE:BOOL=ON" in (BUILD / "CMakeCache.txt").read_text()
        folders = ("src/", "ini/") if elsewhere else ("src/", "ini/", "emulator/")
        self.assertEqual([u for u in self.units.tests if u.startswith(folders)
                          and not self.units.tests[u]], [])


class Survivors(unittest.TestCase):
    def test_each_is_a_change_that_can_still_be_made(self):
        self.assertEqual(mutate.stale_survivors(), [])


class PretendedBuild:
    """Has one unit, and the same verdict on each of its mutants."""

    copy = mutate.TREE
    units = types.SimpleNamespace(tested=lambda: ["src/Decimal.cpp"])

    def __init__(self, verdict):
        self.verdict = verdict

    def check_unchanged(self, path):
        pass

    def try_mutant(self, path, number, text):
        return self.verdict


class Run(unittest.TestCase):
    def run_with(self, verdict, line="dec", count=1000):
        """The unlisted survivors of a run, and what it printed."""
        options = argparse.Namespace(only="src/", line=line, count=count, seed=1)
        with contextlib.redirect_stdout(io.StringIO()) as printed:
            unlisted = mutate.run(options, PretendedBuild(verdict))
        return unlisted, printed.getvalue()

    def test_counts_each_survivor_that_is_not_listed(self):
        unlisted, printed = self.run_with("survived")
        self.assertGreater(unlisted, 0)
        self.assertEqual(printed.count("survivor: "), unlisted)
        self.assertIn(f"{unlisted} unlisted", printed)

    def test_forgives_any_share_of_listed_survivors(self):
        listed = "    if (num == 0) dec = 0;"
        number = mutate.lines_of(mutate.TREE, "src/Decimal.cpp").index(listed)
        mutant = ("src/Decimal.cpp", number, listed.replace("dec = 0", "dec = 1"))
        with unittest.mock.patch.object(mutate, "spread", lambda *_: [mutant]):
            unlisted, printed = self.run_with("survived")
        self.assertEqual(unlisted, 0)
        self.assertIn("0 caught (0.0 %), 1 listed survivors, 0 unlisted", printed)

    def test_counts_no_mutant_that_is_caught_or_does_not_compile(self):
        self.assertEqual(self.run_with("caught")[0], 0)
        self.assertEqual(self.run_with("invalid")[0], 0)

    def test_says_when_no_mutant_fits(self):
        self.assertEqual(self.run_with("caught", line="no such text"), (0, "no mutant fits\n"))


class List(unittest.TestCase):
    def failure_of(self, *arguments):
        """The last line on standard error of a call that must be refused."""
        done = subprocess.run([sys.executable, mutate.__file__, "--list", *arguments],
                              capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stdout), (2, ""))
        return done.stderr.splitlines()[-1]

    def test_needs_a_folder(self):
        self.assertIn("--list needs --build", self.failure_of())

    def test_needs_a_folder_that_is_built(self):
        with tempfile.TemporaryDirectory() as empty:
            self.assertIn(f"nothing is built in '{empty}'", self.failure_of("--build", empty))


if __name__ == "__main__":
    BUILD = pathlib.Path(sys.argv.pop(1))
    unittest.main()

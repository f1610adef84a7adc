#!/usr/bin/env python3
"""The tests of a unit are found by what the linker took; the list of survivors is up to date.

    units_test.py BUILD [unittest's arguments]
"""

import pathlib
import sys
import unittest

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


class UnitsOfThisBuild(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.units = units.Units(BUILD)

    def names(self, unit):
        return [e.name for e in self.units.tests[unit]]

    def test_a_unit_is_tested_by_its_own_test_first(self):
        for unit, test in [("src/Common.cpp", "Common_test"), ("src/Decimal.cpp", "Decimal_test"),
                           ("src/ProtocolFormatting.cpp", "ProtocolFormatting_test")]:
            self.assertEqual(self.names(unit)[0], test)

    def test_what_a_unit_is_used_by_tests_it_too(self):
        self.assertIn("ProcessorSales_test", self.names("src/ProcessorCodePage.cpp"))
        self.assertIn("ECR_test", self.names("src/ProtocolFormatting.cpp"))
        self.assertIn("VOLTIS_test", self.names("src/VOLTIS.cpp"))

    def test_the_scripted_wire_does_not_test_the_channel(self):
        self.assertIn("CommChannel_test", self.names("src/CommChannel.cpp"))
        self.assertIn("ECR_test", self.names("src/EcrExchange.cpp"))
        self.assertNotIn("ECR_test", self.names("src/CommChannel.cpp"))
        self.assertNotIn("ECR_test", self.names("src/LogFile.cpp"))

    def test_the_register_of_a_test_does_not_test_the_link(self):
        self.assertIn("ProcessorSales_test", self.names("src/ProcessorSales.cpp"))
        self.assertNotIn("ProcessorSales_test", self.names("src/EcrExchange.cpp"))
        self.assertNotIn("ProcessorSales_test", self.names("src/ECR.cpp"))

    def test_only_unit_tests_count(self):
        names = {name for unit in self.units.tests for name in self.names(unit)}
        self.assertNotIn("voltis_binary_test", names)
        self.assertNotIn("AcrossRuns_test", names)

    def test_every_unit_of_the_driver_has_a_test(self):
        self.assertEqual([u for u in self.units.tests if u.startswith(("src/", "ini/", "emulator/"))
                          and not self.units.tests[u]], [])


class Survivors(unittest.TestCase):
    def test_each_is_a_change_that_can_still_be_made(self):
        self.assertEqual(mutate.stale_survivors(), [])


if __name__ == "__main__":
    BUILD = pathlib.Path(sys.argv.pop(1))
    unittest.main()

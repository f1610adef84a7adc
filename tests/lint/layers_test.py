#!/usr/bin/env python3
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""The check of the layers finds what it is for. Each test is a small tree with a table of its own."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
CHECK = TREE / "scripts/lib/layers.py"
TABLE = """
[all]
low  | src/Low.* src/Lower.* |
side | side/*                |
high | src/High.*            | low
[not drawn]
tests | tests/*              | low high
"""


class LayersCheck(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        self.write("scripts/lib/layers.txt", TABLE)
        self.write("src/Low.h", "#pragma once\n")
        self.write("src/High.h", '#pragma once\n\n#include "Low.h"\n')

    def write(self, path, text):
        file = self.root / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)

    def check(self, *arguments):
        """The exit status and the lines printed, on both streams."""
        done = subprocess.run([sys.executable, CHECK, "--root", self.root, *arguments],
                              capture_output=True, text=True, check=False)
        return done.returncode, (done.stdout + done.stderr).splitlines()

    def finds(self, *lines):
        self.assertEqual(self.check(), (1, list(lines)))

    def test_a_tree_that_keeps_to_its_table_has_no_finding(self):
        self.write("tests/deep/High_test.cpp", '#include "High.h"\n#include "tests/deep/Own.h"\n')
        self.write("tests/deep/Own.h", "")
        self.assertEqual(self.check(), (0, []))

    def test_an_include_of_a_higher_layer_is_found_with_file_and_line(self):
        self.write("src/Low.cpp", '#include "Low.h"\n\n#include "High.h"\n')
        self.finds('src/Low.cpp:3: low may not include "High.h", which is high')

    def test_what_is_allowed_to_an_allowed_layer_is_not_allowed_by_that(self):
        self.write("scripts/lib/layers.txt", TABLE + "top | top/* | high\n")
        self.write("top/Top.cpp", '#include "High.h"\n#include "Low.h"\n')
        self.finds('top/Top.cpp:2: top may not include "Low.h", which is low')

    def test_a_file_without_a_row_is_found(self):
        self.write("src/New.cpp", "")
        self.finds("src/New.cpp:1: the file is in no layer of the table")

    def test_an_include_relative_to_its_own_folder_is_found(self):
        self.write("side/One.h", "")
        self.write("side/One.cpp", '#include "One.h"\n')
        self.finds('side/One.cpp:1: "One.h" is neither a path from src/ nor one from the root of '
                   "the tree")

    def test_an_include_with_src_in_its_path_is_found(self):
        self.write("src/Lower.cpp", '#include "src/Low.h"\n')
        self.finds('src/Lower.cpp:1: "src/Low.h" is written from the root; its name is "Low.h"')

    def test_a_file_of_the_tree_in_angle_brackets_is_found(self):
        self.write("src/Lower.cpp", "#include <Low.h>\n")
        self.finds("src/Lower.cpp:1: <Low.h> is a file of the tree; it is included in quotes")

    def test_an_include_by_a_roundabout_path_is_found(self):
        self.write("src/Low.cpp", '#include <../src/High.h>\n#include "../src/High.h"\n')
        self.finds("src/Low.cpp:1: ../src/High.h leads through . or ..",
                   "src/Low.cpp:2: ../src/High.h leads through . or ..")

    def test_an_include_of_a_macro_is_found(self):
        self.write("src/Low.cpp", '#define OTHER "High.h"\n#include OTHER\n')
        self.finds("src/Low.cpp:2: an include that names no file")

    def test_an_unused_standard_header_is_found(self):
        self.write("src/Lower.cpp", "#include <memory>\n// std::unique_ptr\nint number;\n")
        self.finds("src/Lower.cpp:1: <memory> is included and not used")

    def test_a_header_that_leans_on_others_for_a_standard_header_is_found(self):
        self.write("src/Lower.h", '#include "Low.h"\n\nstd::vector<int> All();\n')
        self.finds("src/Lower.h:1: the header uses <vector> and does not include it")

    def test_build_folders_are_left_alone(self):
        self.write("build/release/Made.cpp", '#include "High.h"\n')
        self.assertEqual(self.check(), (0, []))

    def test_a_table_that_allows_a_layer_of_a_later_row_is_refused(self):
        self.write("scripts/lib/layers.txt", "low | src/Low.* | high\nhigh | src/High.* |\n")
        status, lines = self.check()
        self.assertEqual(status, 2)
        self.assertIn("layers.txt:1: low may include high, which has no row above it", lines[0])

    def test_a_row_that_cannot_be_read_is_refused(self):
        self.write("scripts/lib/layers.txt", "low src/Low.*\n")
        status, lines = self.check()
        self.assertEqual(status, 2)
        self.assertIn("layers.txt:1: a row is LAYER | FILES | MAY INCLUDE", lines[0])

    def test_the_picture_has_a_box_for_each_drawn_layer(self):
        status, lines = self.check("--svg")
        self.assertEqual(status, 0)
        boxes = [line for line in lines if line.startswith('<text text-anchor="middle"')]
        self.assertEqual([box.split(">")[1].split("<")[0] for box in boxes], ["low", "side", "high"])


if __name__ == "__main__":
    unittest.main()

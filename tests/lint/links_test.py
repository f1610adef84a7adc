#!/usr/bin/env python3
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""The check of the pages finds what it is for. Each test is a page in a small tree."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
CHECK = TREE / "scripts/lib/links.py"


class LinksCheck(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        self.write("docs/other.md", "# The `first` heading, here\n\n## Twice\n\n## Twice\n")

    def write(self, path, text):
        file = self.root / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)

    def page_finds(self, text, *findings):
        self.write("docs/page.md", text)
        done = subprocess.run([sys.executable, CHECK, "--root", self.root], capture_output=True,
                              text=True, check=False)
        self.assertEqual(done.stdout.splitlines(),
                         [f"docs/page.md:{finding}" for finding in findings])
        self.assertEqual(done.returncode, 1 if findings else 0)

    def test_links_that_lead_somewhere_are_no_finding(self):
        self.page_finds("# Own\n[a](other.md) [b](other.md#the-first-heading-here) [c](#own)\n"
                        "[d](other.md#twice-1) [e](https://example.org/x) [f](../docs/)\n")

    def test_a_link_to_a_missing_file_is_found_with_its_line(self):
        self.page_finds("text\n\n[a](gone.md)\n", "3: link to gone.md: no such file")

    def test_a_link_to_a_missing_heading_is_found(self):
        self.page_finds("[a](other.md#gone)\n", "1: link to other.md#gone: no such heading")

    def test_a_missing_picture_is_found(self):
        self.page_finds("![a](gone.svg)\n", "1: link to gone.svg: no such file")

    def test_a_picture_that_is_a_link_is_looked_at_as_both(self):
        self.page_finds("[![a](gone.svg)](lost.md)\n", "1: link to lost.md: no such file",
                        "1: link to gone.svg: no such file")

    def test_a_link_out_of_the_tree_is_found(self):
        self.page_finds("[a](../../)\n", "1: link to ../../: outside the tree")

    def test_a_path_in_a_code_span_that_is_not_there_is_found(self):
        self.page_finds("`docs/gone.cpp` and `docs/other.md`\n", "1: `docs/gone.cpp`: no such file")

    def test_a_path_that_is_a_pattern_is_no_finding(self):
        self.page_finds("`docs/*.txt`, `docs/NAME.log`, `build/x/y`, `/etc/x`, `docs/other`\n")

    def test_every_word_of_a_code_span_is_looked_at(self):
        self.page_finds("`show docs/gone.txt`\n", "1: `docs/gone.txt`: no such file")

    def test_a_source_file_in_a_folder_that_is_not_there_is_found(self):
        self.page_finds("`gone/Unit.cpp`\n", "1: `gone/Unit.cpp`: no such file")

    def test_a_link_by_reference_is_found(self):
        self.page_finds("[a][b]\n\n[b]: gone.md\n", "3: a link that cannot be read")

    def test_of_code_blocks_only_paths_of_the_tree_are_looked_at(self):
        self.page_finds("```\n[a](gone.md) gone/Unit.cpp\nshow docs/gone.txt\n```\n\n    docs/lost\n",
                        "3: `docs/gone.txt`: no such file", "6: `docs/lost`: no such file")


if __name__ == "__main__":
    unittest.main()

#!/usr/bin/env python3
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""The check of the licences finds what it is for. Each test is a small tree."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
CHECK = TREE / "scripts/lib/licences.py"
HOLDER = "SPDX-FileCopyrightText: VOLTIS developers"
LICENCE = "SPDX-License-Identifier: GPL-3.0-or-later"
COVERED = f"""[[annotations]]
path = ["REUSE.toml", "docs/**"]
{HOLDER.replace(": ", ' = "')}"
{LICENCE.replace(": ", ' = "')}"
"""


class LicencesCheck(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        self.write("REUSE.toml", COVERED)

    def write(self, path, text):
        file = self.root / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)

    def run_check(self, *arguments):
        return subprocess.run([sys.executable, CHECK, *arguments], cwd=self.root, capture_output=True,
                              text=True, check=False)

    def finds(self, *beginnings):
        done = self.run_check()
        found = done.stdout.splitlines()
        self.assertEqual(len(found), len(beginnings), done.stdout + done.stderr)
        for line, beginning in zip(found, beginnings):
            self.assertTrue(line.startswith(beginning), line)
        self.assertEqual(done.returncode, 1 if beginnings else 0)

    def test_accepts_a_source_file_that_says_both(self):
        self.write("a.cpp", f"// {HOLDER}\n// {LICENCE}\n\nint a;\n")
        self.finds()

    def test_finds_a_source_file_without_a_licence(self):
        self.write("a.cpp", f"// {HOLDER}\n\nint a;\n")
        self.finds("a.cpp:1: a source file without")

    def test_finds_a_source_file_without_a_holder(self):
        self.write("a.sh", f"#!/bin/sh\n# {LICENCE}\n")
        self.finds("a.sh:1: a source file without")

    def test_wants_the_lines_in_a_source_file_even_where_a_pattern_fits(self):
        self.write("docs/a.py", "pass\n")
        self.finds("docs/a.py:1: a source file without")

    def test_knows_a_script_by_its_first_line(self):
        self.write("tool", "#!/bin/bash\ntrue\n")
        self.finds("tool:1: a source file without")

    def test_does_not_look_for_the_lines_in_the_middle_of_a_file(self):
        self.write("a.h", "\n" * 20 + f"// {HOLDER}\n// {LICENCE}\n")
        self.finds("a.h:1: a source file without")

    def test_wants_another_licence_of_examples(self):
        self.write("examples/a.py", f"# {HOLDER}\n# {LICENCE}\n")
        self.finds("examples/a.py:1: a source file without")
        self.write("examples/a.py", f"# {HOLDER}\n# SPDX-License-Identifier: 0BSD\n")
        self.finds()

    def test_accepts_another_file_that_a_pattern_fits(self):
        self.write("docs/picture.svg", "<svg/>\n")
        self.finds()

    def test_finds_another_file_that_no_pattern_fits(self):
        self.write("picture.svg", "<svg/>\n")
        self.finds("picture.svg: no pattern of REUSE.toml")

    def test_refuses_a_pattern_without_a_licence(self):
        self.write("REUSE.toml", COVERED.replace("SPDX-License-Identifier", "Other"))
        self.assertNotEqual(self.run_check().returncode, 0)

    def test_adds_the_lines_and_is_content_then(self):
        self.write("a.cpp", "// What it is.\nint a;\n")
        self.write("tool", "#!/bin/bash\n# What it does.\ntrue\n")
        self.write("a.php", "#!/usr/bin/env php\n<?php\necho 1;\n")
        self.assertEqual(self.run_check("--fix").returncode, 0)
        self.finds()
        self.assertEqual((self.root / "a.cpp").read_text(),
                         f"// {HOLDER}\n// {LICENCE}\n\n// What it is.\nint a;\n")
        self.assertEqual((self.root / "tool").read_text(),
                         f"#!/bin/bash\n# {HOLDER}\n# {LICENCE}\n#\n# What it does.\ntrue\n")
        self.assertEqual((self.root / "a.php").read_text(),
                         f"#!/usr/bin/env php\n<?php\n// {HOLDER}\n// {LICENCE}\n\necho 1;\n")


if __name__ == "__main__":
    unittest.main()

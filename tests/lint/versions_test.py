#!/usr/bin/env python3
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""The check of the version finds what it is for. Each test is a small tree."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

CHECK = pathlib.Path(__file__).resolve().parents[2] / "scripts/lib/versions.py"
FILES = {
    "src/Globals.h": 'inline constexpr char DriverVersion[] = "1.2.3";\n',
    "CMakeLists.txt": "set(VOLTIS_VERSION_EPOCH 1767312000)  # 2026-01-02, the date of the version\n",
    "debian/changelog": "voltis (1.2.3) unstable; urgency=medium\n\n  * A change.\n\n"
                        " -- A <a@voltis.example>  Fri, 02 Jan 2026 12:00:00 +0000\n",
    "CHANGELOG.md": "# Changes\n\n## 1.2.3\n",
    "contrib/vscode/package.json": '{"version": "1.2.3"}\n',
}


class VersionsCheck(unittest.TestCase):
    def found_with(self, path=None, old="", new=""):
        """What is found in the tree when this is replaced in that file."""
        with tempfile.TemporaryDirectory() as root:
            for name, text in FILES.items():
                file = pathlib.Path(root, name)
                file.parent.mkdir(parents=True, exist_ok=True)
                if name == path:
                    self.assertIn(old, text)
                    text = text.replace(old, new)
                file.write_text(text)
            done = subprocess.run([sys.executable, CHECK], cwd=root, capture_output=True, text=True, check=False)
        self.assertEqual(done.stderr, "")
        self.assertEqual(done.returncode, 1 if done.stdout else 0)
        return done.stdout

    def test_accepts_one_version_and_one_date(self):
        self.assertEqual(self.found_with(), "")

    def test_finds_another_version(self):
        for path in ("debian/changelog", "CHANGELOG.md", "contrib/vscode/package.json"):
            self.assertIn(f"{path}: version 1.2.4", self.found_with(path, "1.2.3", "1.2.4"))

    def test_finds_another_date(self):
        self.assertIn("debian/changelog: 2026-01-03", self.found_with("debian/changelog", "Fri, 02", "Sat, 03"))
        self.assertIn("CMakeLists.txt: 2026-01-03", self.found_with("CMakeLists.txt", "1767312000", "1767398400"))
        self.assertIn("comment: 2026-01-03", self.found_with("CMakeLists.txt", "01-02", "01-03"))

    def test_finds_a_date_that_is_missing(self):
        self.assertIn("debian/changelog: None", self.found_with("debian/changelog", " -- ", ""))
        self.assertIn("CMakeLists.txt: None", self.found_with("CMakeLists.txt", "VOLTIS_VERSION_EPOCH", "EPOCH"))

    def test_takes_the_day_of_utc(self):
        self.assertEqual(self.found_with("debian/changelog", "02 Jan 2026 12:00:00 +0000", "03 Jan 2026 08:00:00 +1200"), "")


if __name__ == "__main__":
    unittest.main()

#!/usr/bin/env python3
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""The version has one place, DriverVersion in src/Globals.h, which the build reads as well. What has to
be written elsewhere by hand is compared with it. --print prints it."""

import json
import pathlib
import re
import sys


def first(pattern, path):
    found = re.search(pattern, pathlib.Path(path).read_text(encoding="utf-8"), re.MULTILINE)
    return found.group(1) if found else None


def main(arguments):
    version = first(r'DriverVersion\[\] = "([^"]*)"', "src/Globals.h")
    if "--print" in arguments:
        print(version)
        return 0
    elsewhere = {
        "debian/changelog": first(r"\Avoltis \(([^)]*)\)", "debian/changelog"),
        "CHANGELOG.md": first(r"^## (\S+)$", "CHANGELOG.md"),
        "contrib/vscode/package.json": json.loads(pathlib.Path("contrib/vscode/package.json").read_text())["version"],
    }
    wrong = {path: found for path, found in elsewhere.items() if found != version}
    for path, found in wrong.items():
        print(f"{path}: version {found}, but src/Globals.h has {version}")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

#!/usr/bin/env python3
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""The version has one place, DriverVersion in src/Globals.h, which the build reads as well; its date has
one, VOLTIS_VERSION_EPOCH in CMakeLists.txt. What has to be written elsewhere by hand is compared with
these. --print prints the version."""

import datetime
import email.utils
import json
import pathlib
import re
import sys


def first(pattern, path):
    found = re.search(pattern, pathlib.Path(path).read_text(encoding="utf-8"), re.MULTILINE)
    return found.group(1) if found else None


def dates():
    """Where the version's date is written, with the day that each place has, of UTC."""
    epoch = first(r"^set\(VOLTIS_VERSION_EPOCH (\d+)\)", "CMakeLists.txt")
    changelog = first(r"^ -- .*>  (.+)$", "debian/changelog")
    utc = datetime.timezone.utc
    return {
        "CMakeLists.txt": epoch and datetime.datetime.fromtimestamp(int(epoch), utc).date().isoformat(),
        "CMakeLists.txt, the comment": first(r"VOLTIS_VERSION_EPOCH.*# (\d{4}-\d\d-\d\d)", "CMakeLists.txt"),
        "debian/changelog": changelog and email.utils.parsedate_to_datetime(changelog).astimezone(utc).date().isoformat(),
    }


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
    days = dates()
    same = len(set(days.values())) == 1 and None not in days.values()
    if not same:
        print("the version's date: " + "; ".join(f"{path}: {day}" for path, day in days.items()))
    return 1 if wrong or not same else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

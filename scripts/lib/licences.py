#!/usr/bin/env python3
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""Every file of the tree says its licence, by the rules of https://reuse.software: source files in their
first lines, all others by REUSE.toml. With --fix, source files without these lines get them."""

import fnmatch
import os
import subprocess
import sys
import tomllib

HOLDER = "SPDX-FileCopyrightText: VOLTIS developers"
LICENCE = "SPDX-License-Identifier: GPL-3.0-or-later"
# Examples are there to be copied into programs of any licence.
LICENCE_OF_EXAMPLES = "SPDX-License-Identifier: 0BSD"
LOOKED_AT = 10  # lines

SLASHES = (".cpp", ".h", ".cs", ".php")
HASHES = (".py", ".sh", ".cmake", ".rules")
HASH_NAMES = ("CMakeLists.txt", "rules")


def tree_files():
    """Paths from the root of the tree: what git knows, or everything where there is no repository."""
    try:
        listed = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                                check=True, capture_output=True, text=True).stdout
        return sorted(path for path in listed.split("\0") if path and os.path.lexists(path))
    except (OSError, subprocess.CalledProcessError):
        found = []
        for folder, names, files in os.walk("."):
            names[:] = [name for name in names if name not in ("build", ".git", ".cache", "__pycache__")]
            found += [os.path.relpath(os.path.join(folder, name), ".") for name in files]
        return sorted(found)


def comment_of(path, first_line):
    """What begins a comment in this source file; None: it is no source file."""
    name = os.path.basename(path)
    if name.endswith(SLASHES):
        return "//"
    if first_line.startswith("#!") or name.endswith(HASHES) or name in HASH_NAMES:
        return "#"
    return None


def licence_of(path):
    return LICENCE_OF_EXAMPLES if path.startswith("examples/") else LICENCE


def said_elsewhere(path, annotations):
    return any(fnmatch.fnmatch(path, pattern) for pattern in annotations)


def annotations_of(text):
    """The patterns of REUSE.toml, which says who holds what it covers, and under which licence."""
    patterns = []
    for entry in tomllib.loads(text)["annotations"]:
        if not entry.get("SPDX-FileCopyrightText") or not entry.get("SPDX-License-Identifier"):
            raise ValueError(f"REUSE.toml: {entry['path']}: a holder and a licence are needed")
        paths = entry["path"]
        patterns += [paths] if isinstance(paths, str) else paths
    return patterns


def finding(path, text, annotations):
    """What is wrong with a file; None: nothing."""
    lines = text.split("\n")
    head = "\n".join(lines[:LOOKED_AT])
    if licence_of(path) in head and HOLDER in head:
        return None
    if comment_of(path, lines[0]) is not None:
        return f"{path}:1: a source file without '{HOLDER}' and '{licence_of(path)}'; scripts/lint --fix adds them"
    if said_elsewhere(path, annotations):
        return None
    return f"{path}: no pattern of REUSE.toml fits it"


def with_head(path, text):
    """The text with both lines, after what must be first: how to run it, and where PHP begins."""
    lines = text.split("\n")
    comment = comment_of(path, lines[0])
    keep = 1 if lines[0].startswith("#!") else 0
    if path.endswith(".php"):
        keep = lines.index("<?php") + 1
    head = [f"{comment} {HOLDER}", f"{comment} {licence_of(path)}"]
    if comment == "//" or path.endswith((".cmake", "CMakeLists.txt")):
        head.append("")
    elif len(lines) > keep and lines[keep].startswith(comment):
        head.append(comment)
    return "\n".join(lines[:keep] + head + lines[keep:])


def looked_at(path):
    if path == "LICENSE" or path.startswith("LICENSES/") or os.path.islink(path):
        return None
    with open(path, encoding="utf-8", errors="replace", newline="") as file:
        return file.read()


def main(arguments):
    with open("REUSE.toml", encoding="utf-8") as file:
        annotations = annotations_of(file.read())
    findings = []
    for path in tree_files():
        text = looked_at(path)
        if text is None:
            continue
        found = finding(path, text, annotations)
        if found and "--fix" in arguments and comment_of(path, text.split("\n")[0]):
            with open(path, "w", encoding="utf-8", newline="") as file:
                file.write(with_head(path, text))
        elif found:
            findings.append(found)
    print("\n".join(findings), end="\n" if findings else "")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

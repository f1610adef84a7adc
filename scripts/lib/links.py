#!/usr/bin/env python3
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""Checks that what the pages of the tree point to is there.

    links.py [--root DIR]     prints a line per finding: FILE:LINE: what is wrong

Looked at are links and pictures to files of the tree, anchors of headings (as code hosts make them),
and paths in code: what begins with a folder of the tree, and in code spans also what ends like one of
its files. Links to other hosts are not followed.
"""

import argparse
import pathlib
import re
import sys

TREE = pathlib.Path(__file__).resolve().parents[2]
LINK = re.compile(r"!?\[(?:[^\[\]]|\[[^\]]*\]\([^)]*\))*\]\(([^()\s]+)(?:\s+\"[^\"]*\")?\)")
INNER = re.compile(r"!\[[^\]]*\]\(([^()\s]+)\)")
SPAN = re.compile(r"(?<!`)`([^`]+)`(?!`)")
HEADING = re.compile(r"^#{1,6}\s+(.*?)\s*#*$")
REFERENCE = re.compile(r"^\s*\[[^\]]+\]:\s")
SOURCE_ENDING = re.compile(r"\.(cpp|h|py|sh|md|cmake|svg)$")
FENCE = re.compile(r"^\s*(```|~~~)")
ABSOLUTE = re.compile(r"^[a-z][a-z0-9+.-]*:")


def lines_of(text):
    """The lines of a page with their numbers, and whether each is part of a code block."""
    fenced, blank = False, True
    for number, line in enumerate(text.splitlines(), 1):
        if FENCE.match(line):
            fenced = not fenced
            continue
        indented = blank and line.startswith("    ")  # a code block, unless it goes on a paragraph
        blank = not line.strip() or indented
        yield number, line, fenced or indented


def anchor_of(heading, taken):
    """The anchor that code hosts make of a heading; a second one of that name gets -1, and so on."""
    text = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", heading).replace("`", "")
    anchor = re.sub(r"[^\w\- ]", "", text.lower()).replace(" ", "-")
    count = taken.get(anchor, 0)
    taken[anchor] = count + 1
    return f"{anchor}-{count}" if count else anchor


def anchors_of(path):
    taken = {}
    lines = [line for _, line, code in lines_of(path.read_text()) if not code]
    return {anchor_of(match.group(1), taken) for match in map(HEADING.match, lines) if match}


def check_link(target, page, root):
    """What is wrong with a link of that page, None when nothing is."""
    if ABSOLUTE.match(target):
        return None
    name, _, anchor = target.partition("#")
    file = (page.parent / name).resolve() if name else page
    if not file.exists():
        return f"link to {target}: no such file"
    if not file.is_relative_to(root):
        return f"link to {target}: outside the tree"
    if anchor and file.suffix == ".md" and anchor not in anchors_of(file):
        return f"link to {target}: no such heading"
    return None


def check_word(word, root, in_block):
    """What is wrong with a word of code, None when nothing is or it is no path of the tree."""
    path = word.strip("\"',;:()")
    folder = path.partition("/")[0]
    if "/" not in path or folder in ("", "build", ".", "..", "~"):
        return None
    if not (root / folder).is_dir() and (in_block or not SOURCE_ENDING.search(path)):
        return None
    if any(mark in path for mark in "<>*?{}$|=@") or "NAME" in path or ABSOLUTE.match(path):
        return None  # a pattern, or no path of the tree
    # A unit may be named without its ending, a place in a file with its line, and a file that is made.
    path = re.sub(r":\d+$", "", path)
    made = root / ".gitignore"
    known = (root / path).exists() or any(root.glob(path.rstrip("/") + ".*")) or \
        (made.exists() and f"/{path}" in made.read_text().splitlines())
    return None if known else f"`{path}`: no such file"


def check_prose(line, page, root):
    code_free = SPAN.sub("", line)
    targets = [match.group(1) for pattern in (LINK, INNER) for match in pattern.finditer(line)]
    for target in dict.fromkeys(targets):
        yield check_link(target, page, root)
    if "](" in LINK.sub("", INNER.sub("", code_free)) or REFERENCE.match(line):
        yield "a link that cannot be read"
    for match in SPAN.finditer(line):
        for word in match.group(1).split():
            yield check_word(word, root, in_block=False)


def check_page(page, root):
    for number, line, code in lines_of(page.read_text()):
        found = (check_word(word, root, in_block=True) for word in line.split()) if code else \
            check_prose(line, page, root)
        for finding in filter(None, found):
            yield number, finding


def check_tree(root):
    pages = [path for path in sorted(root.rglob("*.md"))
             if path.relative_to(root).parts[0] not in ("build", ".git")]
    return [f"{page.relative_to(root)}:{line}: {finding}"
            for page in pages for line, finding in check_page(page, root)]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--root", type=pathlib.Path, default=TREE)
    findings = check_tree(parser.parse_args().root.resolve())
    print("\n".join(findings), end="\n" if findings else "")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())

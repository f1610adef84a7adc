#!/usr/bin/env python3
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""Compares every include of the tree with the table of layers in layers.txt.

    layers.py [--root DIR]     prints a line per finding: FILE:LINE: what is wrong
    layers.py --svg            writes the table as a picture to standard output

Ends with 0 when nothing was found, 1 with findings, 2 when the table itself is wrong.

It reads includes only: a function of a higher layer that is declared by hand is left to the eye.

Beside the layers it looks at how an include is written and whether it is needed: a quoted include
is the path from src/ or from the root of the tree; a header of the standard library that a file
includes is used there, and what a header uses of it the header includes itself.
"""

import argparse
import dataclasses
import fnmatch
import pathlib
import re
import sys

TREE = pathlib.Path(__file__).resolve().parents[2]
SOURCES = (".cpp", ".h")
INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]')
ANY_INCLUDE = re.compile(r"^\s*#\s*include\b")


class TableError(Exception):
    """The table cannot be used; the message names its line."""


@dataclasses.dataclass
class Layer:
    name: str
    group: str
    patterns: list
    allowed: list


def read_table(path):
    """The rows of the table, lowest layer first."""
    layers, group = {}, ""
    for number, line in enumerate(path.read_text().splitlines(), 1):
        line = line.strip()
        if not line or line.startswith("#"):
            continue
        if line.startswith("["):
            group = line.strip("[]")
            continue
        cells = [cell.strip() for cell in line.split("|")]
        if len(cells) != 3 or not cells[0] or not cells[1]:
            raise TableError(f"{path}:{number}: a row is LAYER | FILES | MAY INCLUDE")
        name, allowed = cells[0], cells[2].split()
        if name in layers:
            raise TableError(f"{path}:{number}: a second row for {name}")
        for other in allowed:
            if other not in layers:
                raise TableError(f"{path}:{number}: {name} may include {other}, which has no row "
                                 "above it")
        layers[name] = Layer(name, group, cells[1].split(), allowed)
    return list(layers.values())


def layer_of(path, layers):
    """The layer of a file: that of the longest pattern that fits it, None for a file of no layer."""
    best, length = None, -1
    for layer in layers:
        for pattern in layer.patterns:
            if fnmatch.fnmatchcase(path, pattern) and len(pattern) > length:
                best, length = layer, len(pattern)
    return best


def source_files(root):
    """The C++ files of the tree, as paths from its root; build folders and hidden ones are not it."""
    for path in sorted(root.rglob("*")):
        relative = path.relative_to(root)
        if relative.parts[0] == "build" or any(part.startswith(".") for part in relative.parts):
            continue
        if path.suffix in SOURCES and path.is_file():
            yield relative.as_posix()


def resolve(name, files):
    """The file that a quoted include means: a path from src/, or one from the root of the tree."""
    for candidate in ("src/" + name, name):
        if candidate in files:
            return candidate
    return None


# Which names of the standard library a header is included for. A header that is not listed is not
# looked at; a name that two headers offer is listed with both.
STANDARD = {
    "algorithm": r"std::(ranges::)?(all_of|any_of|none_of|find|find_if|find_if_not|find_end|"
                 r"find_first_of|adjacent_find|count|count_if|equal|mismatch|search|copy|copy_n|"
                 r"copy_if|fill|fill_n|generate|generate_n|transform|remove|remove_if|replace|"
                 r"replace_if|reverse|rotate|shuffle|unique|sort|stable_sort|partial_sort|"
                 r"nth_element|lower_bound|upper_bound|equal_range|binary_search|partition|"
                 r"stable_partition|partition_point|min|max|minmax|min_element|max_element|clamp|"
                 r"for_each|is_sorted|lexicographical_compare|next_permutation|set_difference|"
                 r"includes|merge|swap_ranges|contains|starts_with)\b",
    "array": r"std::(array|to_array)\b",
    "atomic": r"std::atomic",
    "cctype": r"\b(std::)?(is(alnum|alpha|digit|xdigit|space|upper|lower|punct|print|graph|cntrl|blank)|"
              r"toupper|tolower)\b",
    "cerrno": r"\berrno\b|\bE(ACCES|AGAIN|BADF|BUSY|CHILD|EXIST|FBIG|INTR|INVAL|IO|NODEV|NOENT|NOSPC|"
              r"NOTDIR|NXIO|PERM|PIPE|ROFS|TIMEDOUT|WOULDBLOCK)\b",
    "chrono": r"std::chrono\b|std::literals|chrono_literals",
    "climits": r"\b(U?(CHAR|SHRT|INT|LONG|LLONG)_(MAX|MIN)|CHAR_BIT|PATH_MAX)\b",
    "cmath": r"\b(std::)?(abs|fabs|floor|ceil|l?l?round|sqrt|pow|log(2|10)?|exp|trunc|fmod|isnan)\(",
    "condition_variable": r"std::condition_variable",
    "cstring": r"\b(std::)?(mem(cpy|move|set|cmp|chr)|str(len|n?cmp|n?cpy|n?cat|r?chr|str|error|dup|"
               r"signal|tok|spn|cspn))\b",
    "ctime": r"\b(std::)?(time|localtime(_r)?|gmtime(_r)?|mktime|strftime|nanosleep|clock_gettime|tm|"
             r"timespec)\b",
    "deque": r"std::deque\b",
    "filesystem": r"std::filesystem\b",
    "fstream": r"std::(basic_)?[io]?fstream\b",
    "functional": r"std::(function|hash|less|greater|equal_to|ref|cref|bind|invoke|plus|minus|"
                  r"multiplies|mem_fn)\b",
    "future": r"std::(future|async|promise|launch|packaged_task)\b",
    "iomanip": r"std::(setw|setfill|setprecision|put_time|get_time|quoted)\b",
    "iostream": r"std::(cout|cerr|cin|clog)\b",
    "iterator": r"std::(size|ssize|begin|end|back_inserter|inserter|distance|next|prev|advance|"
                r"istreambuf_iterator|istream_iterator|make_move_iterator)\b",
    "limits": r"std::numeric_limits\b",
    "list": r"std::list\b",
    "map": r"std::(multi)?map\b",
    "memory": r"std::(unique_ptr|shared_ptr|weak_ptr|make_unique|make_shared|allocator|addressof|"
              r"enable_shared_from_this|default_delete)\b",
    "mutex": r"std::(mutex|lock_guard|unique_lock|scoped_lock|call_once|once_flag|recursive_mutex)\b",
    "new": r"std::(bad_alloc|nothrow|set_new_handler|new_handler|align_val_t)\b|operator new|"
           r"\bnew \(",
    "numeric": r"std::(accumulate|iota|inner_product|partial_sum|reduce|gcd|lcm)\b",
    "optional": r"std::(optional|nullopt|make_optional|bad_optional_access)\b",
    "random": r"std::(mt19937(_64)?|uniform_int_distribution|uniform_real_distribution|random_device|"
              r"discrete_distribution|bernoulli_distribution|minstd_rand)\b",
    "regex": r"std::(regex|smatch|cmatch|regex_\w+|sregex_iterator)\b",
    "set": r"std::(multi)?set\b",
    "span": r"std::(span|as_bytes|dynamic_extent)\b",
    "sstream": r"std::[io]?stringstream\b",
    "stdexcept": r"std::(runtime_error|logic_error|invalid_argument|out_of_range|length_error|"
                 r"domain_error|range_error|overflow_error)\b",
    "string": r"std::(string|to_string|stoi|stol|stoll|stoul|stoull|stod|getline|char_traits)\b",
    "string_view": r"std::string_view\b|\"sv\b",
    "system_error": r"std::(system_error|error_code|errc|error_category|generic_category|"
                    r"system_category)\b",
    "thread": r"std::(thread|jthread|this_thread)\b",
    "tuple": r"std::(tuple|tie|make_tuple|apply|forward_as_tuple)\b",
    "unordered_map": r"std::unordered_(multi)?map\b",
    "unordered_set": r"std::unordered_(multi)?set\b",
    "utility": r"std::(move|forward|pair|make_pair|swap|exchange|as_const|declval|in_place|cmp_\w+|"
               r"index_sequence|make_index_sequence|to_underlying)\b",
    "variant": r"std::(variant|visit|get_if|monostate|holds_alternative)\b",
    "vector": r"std::vector\b",
}
STANDARD = {name: re.compile(pattern) for name, pattern in STANDARD.items()}
# What a header may rely on another one for, because the standard says so or it is harmless.
OFFERED_BY = {
    "string_view": {"string"},
    "utility": {"map", "tuple", "optional", "variant", "memory", "vector", "string", "algorithm",
                "functional"},
    "system_error": {"filesystem"},
    "string": {"sstream", "fstream", "filesystem", "regex", "stdexcept"},
    "iterator": {"array", "deque", "filesystem", "map", "set", "span", "string", "string_view",
                 "vector"},
    "cmath": {"cstdlib"},
    "ctime": {"chrono", "time.h", "sys/time.h"},
    "cerrno": {"errno.h", "system_error"},
    "climits": {"limits.h"},
}
COMMENT = re.compile(r"//.*?$|/\*.*?\*/", re.MULTILINE | re.DOTALL)


def check_standard_headers(path, text, included):
    """Findings (line, text) about the standard headers that a file includes or lacks."""
    code = COMMENT.sub("", "\n".join(line for line in text.splitlines() if not INCLUDE.match(line)))
    for name, line in included.items():
        if name in STANDARD and not STANDARD[name].search(code):
            yield line, f"<{name}> is included and not used"
    if not path.endswith(".h"):
        return
    for name, pattern in STANDARD.items():
        offered = name in included or OFFERED_BY.get(name, set()) & set(included)
        if not offered and pattern.search(code):
            yield 1, f"the header uses <{name}> and does not include it"


def check_file(path, text, files, layers):
    """The findings of one file, each a line number and a text."""
    layer = layer_of(path, layers)
    if layer is None:
        yield 1, "the file is in no layer of the table"
        return
    standard = {}
    for number, line in enumerate(text.splitlines(), 1):
        match = INCLUDE.match(line)
        if not match:
            if ANY_INCLUDE.match(line):
                yield number, "an include that names no file"
            continue
        quoted, name = match.group(1) == '"', match.group(2)
        target = resolve(name, files)
        if "." in name.split("/") or ".." in name.split("/"):
            yield number, f"{name} leads through . or .."
        elif not quoted:
            standard.setdefault(name, number)
            if target:
                yield number, f"<{name}> is a file of the tree; it is included in quotes"
        elif name.startswith("src/"):
            yield number, f'"{name}" is written from the root; its name is "{name[4:]}"'
        elif target is None:
            yield number, f'"{name}" is neither a path from src/ nor one from the root of the tree'
        else:
            other = layer_of(target, layers)
            if other is not None and other is not layer and other.name not in layer.allowed:
                yield number, f'{layer.name} may not include "{name}", which is {other.name}'
    yield from check_standard_headers(path, text, standard)


def check_tree(root, layers):
    """All findings of the tree, as lines."""
    files = set(source_files(root))
    return [f"{path}:{line}: {finding}" for path in sorted(files)
            for line, finding in check_file(path, (root / path).read_text(errors="replace"),
                                            files, layers)]


# --- the picture -----------------------------------------------------------------------------------

BOX_WIDTH, BOX_HEIGHT, GAP_WIDTH, GAP_X, GAP_Y, MARGIN = 112, 34, 8, 22, 40, 20
STYLE = """
  text { font: 14px system-ui, sans-serif; fill: #1f2328; }
  .group { font-size: 12px; fill: #59636e; }
  rect { fill: #eef3fa; stroke: #4a6fa5; }
  path { fill: none; stroke: #6e7781; stroke-width: 1.2; }
  marker path { fill: #6e7781; stroke: none; }
  @media (prefers-color-scheme: dark) {
    text { fill: #e6edf3; } .group { fill: #9198a1; }
    rect { fill: #1b2738; stroke: #7da3d8; }
    path { stroke: #9198a1; } marker path { fill: #9198a1; }
  }
"""


def direct(layer, by_name):
    """What a layer may include without what it also reaches by way of another one."""
    def reach(name):
        for below in by_name[name].allowed:
            yield below
            yield from reach(below)
    roundabout = {below for name in layer.allowed for below in reach(name)}
    return [name for name in layer.allowed if name not in roundabout]


def ranks_of(layers, by_name):
    """The rank of each layer: 0 for one that includes nothing, else above all that it includes."""
    ranks = {}
    for layer in layers:
        ranks[layer.name] = 1 + max((ranks[name] for name in layer.allowed), default=-1)
    # A layer is drawn close below the first that uses it, so that the lines are short.
    for layer in reversed(layers):
        users = [ranks[other.name] for other in layers if layer.name in direct(other, by_name)]
        if users:
            ranks[layer.name] = min(users) - 1
    return ranks


def rows_of(group, ranks, by_name):
    """The rows of a group, lowest first, and its lines, each as the names that it leads through.

    A line that passes a row leads through a gap of that row, so that it crosses no box. A gap is
    named (LAYER, LOWER LAYER, RANK)."""
    rows = [[] for _ in range(max(ranks.values()) + 1)]
    lines = []
    for layer in group:
        rows[ranks[layer.name]].append(layer.name)
        for lower in direct(layer, by_name):
            if by_name[lower].group != layer.group:
                continue  # its box names it
            passed = range(ranks[layer.name] - 1, ranks[lower], -1)
            gaps = [(layer.name, lower, rank) for rank in passed]
            for gap in gaps:
                rows[gap[2]].append(gap)
            lines.append([layer.name, *gaps, lower])
    return rows, lines


def width_of(name):
    return BOX_WIDTH if isinstance(name, str) else GAP_WIDTH


def middles(row, centre):
    """The middle of each box and gap of a row that is centred."""
    x = centre - (sum(map(width_of, row)) + GAP_X * (len(row) - 1)) / 2
    places = {}
    for name in row:
        places[name] = x + width_of(name) / 2
        x += width_of(name) + GAP_X
    return places


def untangle(rows, lines):
    """Sorts each row by where its lines come from and go to, until the rows suit each other."""
    neighbours = {}
    for line in lines:
        for one, other in zip(line, line[1:]):
            neighbours.setdefault(one, []).append(other)
            neighbours.setdefault(other, []).append(one)
    for _ in range(8):
        for order in (rows, rows[::-1]):
            for row in order:
                places = {name: x for each in rows for name, x in middles(each, 0).items()}
                row.sort(key=lambda name: sum(places[other] for other in neighbours.get(name, []))
                         / max(1, len(neighbours.get(name, []))))


def draw_line(line, places):
    """From the lower edge of the first box through the gaps to the upper edge of the last one."""
    (x, y), rest = places[line[0]], line[1:]
    y += BOX_HEIGHT / 2
    path = f"M{x:.0f} {y:.0f}"
    for name in rest:
        to_x, to_y = places[name]
        top, bottom = to_y - BOX_HEIGHT / 2, to_y + BOX_HEIGHT / 2
        half = (top - y) / 2
        path += f"C{x:.0f} {y + half:.0f} {to_x:.0f} {top - half:.0f} {to_x:.0f} {top:.0f}"
        if name is not rest[-1]:
            path += f"V{bottom:.0f}"
        x, y = to_x, bottom
    return f'<path marker-end="url(#head)" d="{path}"/>'


def draw_box(name, others, x, y):
    """A box; what it includes of other groups, if anything, is written below its name."""
    yield (f'<rect x="{x - BOX_WIDTH / 2:.0f}" y="{y - BOX_HEIGHT / 2:.0f}" rx="5" '
           f'width="{BOX_WIDTH}" height="{BOX_HEIGHT}"/>')
    up = 7 if others else 0
    yield f'<text text-anchor="middle" x="{x:.0f}" y="{y + 5 - up:.0f}">{name}</text>'
    if others:
        yield (f'<text class="group" text-anchor="middle" x="{x:.0f}" y="{y + 13:.0f}">'
               f'+ {", ".join(others)}</text>')


def draw_group(title, group, ranks, by_name, left, top_rank):
    """The elements of a group whose left edge is given, and its right edge."""
    rows, lines = rows_of(group, ranks, by_name)
    untangle(rows, lines)
    width = max(sum(map(width_of, row)) + GAP_X * (len(row) - 1) for row in rows)
    places = {}
    for rank, row in enumerate(rows):
        y = MARGIN + 28 + (top_rank - rank) * (BOX_HEIGHT + GAP_Y) + BOX_HEIGHT / 2
        places.update({name: (x, y) for name, x in middles(row, left + width / 2).items()})
    elements = [f'<text class="group" text-anchor="middle" x="{left + width / 2:.0f}" '
                f'y="{MARGIN + 8}">{title}</text>']
    elements += [draw_line(line, places) for line in lines]
    for layer in group:
        others = [lower for lower in direct(layer, by_name) if by_name[lower].group != layer.group]
        elements += draw_box(layer.name, others, *places[layer.name])
    return elements, left + width


def draw(layers):
    """The picture: a line leads from a layer to each that it includes directly."""
    layers = [layer for layer in layers if layer.group != "not drawn"]
    by_name = {layer.name: layer for layer in layers}
    ranks = ranks_of(layers, by_name)
    elements, right = [], MARGIN - 2 * GAP_X
    for title in dict.fromkeys(layer.group for layer in layers):
        group = [layer for layer in layers if layer.group == title]
        more, right = draw_group(title, group, ranks, by_name, right + 2 * GAP_X,
                                 max(ranks.values()))
        elements += more
    width = right + MARGIN
    height = 2 * MARGIN + 28 + (max(ranks.values()) + 1) * (BOX_HEIGHT + GAP_Y) - GAP_Y
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width:.0f} {height:.0f}" '
        f'width="{width:.0f}" height="{height:.0f}" role="img">',
        "<title>The layers of the tree and what each includes</title>",
        f"<style>{STYLE}</style>",
        '<marker id="head" viewBox="0 0 8 8" refX="8" refY="4" markerWidth="7" markerHeight="7" '
        'orient="auto"><path d="M0 0L8 4L0 8z"/></marker>',
        *elements, "</svg>", ""])


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--root", type=pathlib.Path, default=TREE)
    parser.add_argument("--svg", action="store_true")
    arguments = parser.parse_args()
    try:
        layers = read_table(arguments.root / "scripts/lib/layers.txt")
        picture = draw(layers) if arguments.svg else None
    except TableError as error:
        print(error, file=sys.stderr)
        return 2
    if picture is not None:
        print(picture, end="")
        return 0
    findings = check_tree(arguments.root, layers)
    print("\n".join(findings), end="\n" if findings else "")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())

# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
#
# The commands that a page tells its reader to type, so that a test types the same ones; meant to be sourced.
# shellcheck shell=bash

# commands_of PAGE HEADING NUMBER: the lines of this block of commands (they are indented) below the heading.
commands_of() {
    awk -v heading="$2" -v number="$3" '
        /^#+ / { inside = $0 == heading }
        !/^    / { in_block = 0; next }
        !inside { next }
        !in_block { in_block = 1; block++ }
        block == number { print substr($0, 5); found = 1 }
        END { exit !found }' "$1" || {
        echo "$1: no block $3 of commands below '$2'" >&2
        return 1
    }
}

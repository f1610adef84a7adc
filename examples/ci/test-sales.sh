#!/bin/bash
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: 0BSD
#
# The command files of a shop, printed by the driver on an emulated register with the shop's program:
# when all goes well, when frames are spoilt, and when the paper ends.
set -u
here=$(dirname "$(readlink -f "$0")")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "$*"
    exit 1
}

# Runs the sale with the faults on standard input. The exit code is to be $1, the verdict to hold $2.
sale() {
    local wanted=$1 verdict=$2 code
    cat >"$work/faults.txt"
    "$VOLTISCTL" try --run --strict --program "$here/shop.json" --faults "$work/faults.txt" \
        "$here/sale.txt" | tee "$work/out.txt"
    code=${PIPESTATUS[0]}
    [ "$code" -eq "$wanted" ] || fail "exit code $code instead of $wanted"
    grep -qF -- "$verdict" "$work/out.txt" || fail "the verdict is not '$verdict'"
    # A fault that never happened tests nothing.
    if grep -q '^=== faults that never happened' "$work/out.txt"; then fail "a fault never happened"; fi
}

sale 0 'printed: 3 of 3 commands' </dev/null
grep -q '^CASHIER 01 ANNA$' "$work/out.txt" || fail "the shop's program is not there"

sale 0 'printed: 3 of 3 commands' <<'FAULTS'
at status corrupt
at data 2 cut
FAULTS

sale 101 'part: 1 of 3 commands' <<'FAULTS'
paper out after 3 lines
FAULTS

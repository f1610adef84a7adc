#!/bin/bash
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
#
# hardening.sh BINARY: the shipped build is hardened in every way that the build file says.
set -euo pipefail
binary=$1
failed=0

expect() { # expect WHAT PATTERN TEXT
    if ! grep -Eq "$2" <<<"$3"; then
        echo "not hardened: $1" >&2
        failed=1
    fi
}

headers=$(readelf -hlW "$binary")
dynamic=$(readelf -dW "$binary")
symbols=$(readelf -sW "$binary")
expect "position independent" 'Type: +DYN' "$headers"
expect "read-only relocations" 'GNU_RELRO' "$headers"
expect "no executable stack" 'GNU_STACK .* RW ' "$headers"
expect "all symbols bound at start" 'BIND_NOW|FLAGS_1.*NOW' "$dynamic"
expect "stack protector" '__stack_chk_fail' "$symbols"
expect "checked library calls" '__(vsnprintf|fprintf|printf|read|memcpy|fgets)_chk' "$symbols"
exit "$failed"

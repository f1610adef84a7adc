#!/bin/bash
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
#
# compilers.sh [g++ | clang++]: builds the programs as docs/setup.md says, with both compilers of this
# Debian release or with one, warnings as errors; installs them into a folder, and prints a receipt there.
# In a bare Debian root (scripts/bare) nothing is installed but what the build needs.
set -euo pipefail

tree=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$tree/scripts/lib/install.sh"
cd "$tree"

need_packages g++ clang cmake ninja-build barcode libcli11-dev libsqlite3-dev nettle-dev nlohmann-json3-dev bubblewrap \
    libmicrohttpd-dev libsystemd-dev
installed=$(mktemp -d)
trap 'rm -rf "$installed"' EXIT

case "$#-${1:-}" in
    0-) compilers=(g++ clang++) ;;
    1-g++ | 1-clang++) compilers=("$1") ;;
    *) echo "Usage: scripts/bare [--suite SUITE] tests/install/compilers.sh [g++ | clang++]" >&2; exit 2 ;;
esac

# built_by COMMAND PROGRAM: each compiler leaves its name and version in what it has built.
built_by() {
    local signature
    case "$1" in
        g++) signature="GCC: .* $(g++ -dumpfullversion)\$" ;;
        clang++) signature="clang version $(clang++ -dumpversion)" ;;
    esac
    grep -q "$signature" <<<"$(readelf --wide --string-dump=.comment "$2")" && return
    echo "compilers: $2 is not built by $1" >&2
    return 1
}

try_compiler() {
    local compiler=$1 begin=$SECONDS build=build/$1 root=$installed/$1 program said
    cmake --preset release -B "$build" -DCMAKE_CXX_COMPILER="$compiler" -DVOLTIS_TESTS=OFF >/dev/null
    cmake --build "$build" --target voltis_installed
    DESTDIR=$root cmake --install "$build" --prefix /usr >/dev/null
    for program in bin/voltis bin/voltisctl sbin/voltisd; do
        built_by "$compiler" "$root/usr/$program"
        tests/outside/hardening.sh "$root/usr/$program"
    done
    said=$("$root/usr/bin/voltisctl" try examples/first-receipt.txt)
    grep -q '^RECEIPT 000001$' <<<"$said" || { echo "compilers: no receipt with $compiler: $said" >&2; return 1; }
    echo "compilers: $("$compiler" --version | head -n 1): builds, installs and sells, $((SECONDS - begin)) s"
}

for compiler in "${compilers[@]}"; do
    try_compiler "$compiler"
done

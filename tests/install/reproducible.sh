#!/bin/bash
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
#
# reproducible.sh: builds the packages twice, on purpose in different circumstances, and compares every
# byte. Beside the differences below, the second build is as much later as the first one takes, and a
# year by its clock.
set -euo pipefail

tree=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$tree/scripts/lib/install.sh"
cd "$tree"
need_packages faketime
need_build_packages
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# build FOLDER: a copy of the tree in the folder, and its packages beside it.
build() {
    mkdir -p "$1/voltis"
    tar -C "$tree" --exclude=./build --exclude=./.git --exclude=./.cache -c . | tar -C "$1/voltis" -x
    (cd "$1/voltis" && "${@:2}" dpkg-buildpackage -us -uc -b >"$1/log" 2>&1) || {
        tail -n 40 "$1/log"
        return 1
    }
}

processors=$(nproc)
export DEB_BUILD_OPTIONS="nocheck parallel=$processors"
(umask 022 && LC_ALL=C TZ=UTC HOME=/root build "$work/one")
(umask 002 && LC_ALL=C.UTF-8 TZ=Pacific/Chatham HOME=/nonexistent build "$work/a-longer-path/of/the/other" \
    faketime -f +397d)

different=0
for package in "$work"/one/*.deb; do
    name=$(basename "$package")
    if cmp "$package" "$work/a-longer-path/of/the/other/$name"; then
        echo "reproducible: $name: $(stat -c %s "$package") bytes, the same twice"
    else
        different=1
    fi
done
exit "$different"

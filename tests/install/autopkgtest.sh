#!/bin/bash
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
#
# autopkgtest.sh FOLDER: runs debian/tests with the package in this folder by autopkgtest, on the system as
# it is, and sees that they leave it as it was. As root in a bare Debian root (scripts/bare).
set -euo pipefail

tree=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$tree/scripts/lib/install.sh"
packages=("$(realpath "$1"/voltis_*.deb)" "$(realpath "$1"/voltisd_*.deb)")
if [ "$(id -u)" -ne 0 ] || [ -e /etc/voltis ] || package_installed voltis; then
    echo "autopkgtest.sh: only as root in a bare root of its own" >&2
    exit 2
fi

need_packages autopkgtest acl
apt-get -q -y install "${packages[@]}" >/dev/null
# What a shop has there already.
printf '[VOLTIS]\nDevice=/dev/ttyS7\n' >/etc/voltis/registers/bar.ini
echo "a run of last week" >/var/log/voltis/voltis.log
mkdir -m 2770 /var/lib/voltis/runs
useradd --create-home --groups dialout pos
runuser -u pos -- env -C /home/pos HOME=/home/pos voltisctl run --job 1 /usr/share/doc/voltis/examples/first-receipt.txt >/dev/null || true
[ "$(stat -c %U /var/lib/voltis/journal.db)" = pos ] || { echo "there is no journal of the shop's" >&2; exit 1; }

# Everything of the shop that a test could change, and where it makes its own.
state() {
    dpkg-query -W -f '${Version} ${Status} ${Conffiles}\n' voltis voltisd
    getfacl -R -p /etc/voltis /var/log/voltis /var/lib/voltis
    find /etc/voltis /var/log/voltis /var/lib/voltis -type f -exec md5sum {} + | sort
    getent passwd
    getent group
    ls -lAR /home
    ls -A "${TMPDIR:-/tmp}" /var/backups
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
state >"$work/before"
autopkgtest --no-built-binaries --output-dir="$work/out" "${packages[@]}" "$tree" -- null || {
    code=$?
    echo "autopkgtest: exit status $code"
    exit "$code"
}
# A test that fails, and whose register has ended, puts everything back as well.
code=0
(cd "$tree" && bash -euc '. debian/tests/shop.sh; open_shop; kill -KILL "$register"; wait "$register" || exit 5') || code=$?
[ "$code" -eq 5 ] || { echo "a test whose register has ended: exit status $code" >&2; exit 1; }
passed=$(grep -cE '^(sale|upgrade|service) +PASS' "$work/out/summary" || true)
state | diff "$work/before" - || { echo "the tests have not left the system as it was" >&2; exit 1; }
[ "$passed" -eq "$(grep -c ^Tests: "$tree/debian/tests/control")" ] || { cat "$work/out/summary"; exit 1; }
echo "autopkgtest of the package: $passed tests passed, and the system is as it was"

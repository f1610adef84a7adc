#!/bin/bash
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
#
# from-source.sh FOLDER: installs from the source as docs/setup.md tells users of other distributions, and
# compares: the files with those of the package in FOLDER, and the folders that are made with systemd with
# those that are made without. Then a new user sells. It changes the system that it runs on, so it runs as
# root in a bare Debian root of its own (scripts/bare).
set -euo pipefail

tree=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$tree/scripts/lib/install.sh"
. "$tree/tests/install/page.sh"
package=$(realpath "$1"/voltis_*.deb)
if [ "$(id -u)" -ne 0 ] || [ -e /etc/voltis ] || package_installed voltis; then
    echo "from-source.sh: only as root in a bare root of its own" >&2
    exit 2
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
chmod 755 "$work"
cd "$tree"

# What README says that it needs to be built: the names in the paragraph, without those of the programs.
# shellcheck disable=SC2016  # backquotes as they are on the page
words=$(sed -n '/^To be built, the driver needs/,/^$/p' README.md | grep -oE '`[^`]+`' | tr -d '`' | grep -vxE 'voltis(ctl)?')
# shellcheck disable=SC2086  # a word a package
need_packages $words
tools=$(commands_of docs/setup.md "### Other distributions" 1 | grep -oE '^systemd-[a-z]+')
need_packages acl
for tool in $tools; do
    command -v "$tool" >/dev/null || need_packages "systemd-standalone-${tool#systemd-}"
done

# The group is not there, as on another distribution.
groupdel dialout
commands_of docs/setup.md "### Other distributions" 1 >"$work/systemd"
commands_of docs/setup.md "### Other distributions" 2 >"$work/by-hand"
grep '^cmake ' "$work/systemd" >"$work/cmake"
DESTDIR=$work/by-cmake bash -euxc "$(cat "$work/cmake")" >"$work/log" 2>&1 || { tail -n 40 "$work/log"; exit 1; }
dpkg-deb -x "$package" "$work/by-debian"

# contents FOLDER: mode, owner and path of everything.
contents() {
    (cd "$1" && find . -mindepth 1 -printf '%M %u:%g /%P %l\n') | sed 's/ $//' | LC_ALL=C sort
}
# Debian compresses manual pages, all of them.
find "$work/by-debian/usr/share/man" -type f ! -name '*.gz' | grep . && { echo "not compressed" >&2; exit 1; }
gunzip --recursive "$work/by-debian/usr/share/man"

# All that may differ, and has to: only the package has (+), only cmake --install has (-).
cat >"$work/expected" <<'DIFFERENCES'
+-rw-r--r-- root:root /usr/share/doc/voltis/changelog.gz
+-rw-r--r-- root:root /usr/share/doc/voltis/copyright
+-rw-r--r-- root:root /usr/share/zsh/vendor-completions/_voltisctl
+drwxr-xr-x root:root /usr/share/zsh/vendor-completions
--rw-r--r-- root:root /usr/lib/sysusers.d/voltis.conf
--rw-r--r-- root:root /usr/share/doc/voltis/LICENSE
--rw-r--r-- root:root /usr/share/doc/voltis/LICENSES/0BSD.txt
--rw-r--r-- root:root /usr/share/zsh/site-functions/_voltisctl
-drwxr-xr-x root:root /usr/lib/sysusers.d
-drwxr-xr-x root:root /usr/share/doc/voltis/LICENSES
-drwxr-xr-x root:root /usr/share/zsh/site-functions
DIFFERENCES
contents "$work/by-cmake" >"$work/cmake-contents"
contents "$work/by-debian" >"$work/debian-contents"
{
    LC_ALL=C comm -13 "$work/cmake-contents" "$work/debian-contents" | sed 's/^/+/'
    LC_ALL=C comm -23 "$work/cmake-contents" "$work/debian-contents" | sed 's/^/-/'
} >"$work/found"
diff -u "$work/expected" "$work/found" || {
    echo "from-source: the package and cmake --install differ otherwise than is listed" >&2
    exit 1
}
# Of the files that both have: the programs have other options, and the list of components another date.
# shellcheck disable=SC2016  # diff prints no such quotes
{ diff -rq "$work/by-cmake" "$work/by-debian" || true; } | sed -n 's/^Files .* and .*by-debian\(.*\) differ$/\1/p' >"$work/found"
printf '%s\n' /usr/bin/voltis /usr/bin/voltisctl /usr/share/doc/voltis/voltis.spdx.json | diff -u - "$work/found" || {
    echo "from-source: files differ in what is in them" >&2
    exit 1
}
echo "the package and cmake --install: $(wc -l <"$work/debian-contents") files and folders of the package, the same paths, modes and contents but for $(wc -l <"$work/expected") listed ones"

# folders: what the two folders are, and what a file in them becomes.
folders() {
    getfacl -p /var/log/voltis /var/lib/voltis
    stat -c '%n %A %U:%G' /var/log/voltis /var/lib/voltis
    (umask 077 && touch /var/log/voltis/made /var/lib/voltis/made)
    getfacl -p /var/log/voltis/made /var/lib/voltis/made
    rm /var/log/voltis/made /var/lib/voltis/made
}
bash -euxc "$(cat "$work/systemd")" >"$work/log" 2>&1 || { tail -n 40 "$work/log"; exit 1; }
getent group dialout
folders >"$work/with"
rmdir /var/log/voltis /var/lib/voltis
groupdel dialout
bash -euxc "$(cat "$work/by-hand")"
folders >"$work/without"
grep -q '^default:mask::rwx' "$work/with"
diff -u "$work/with" "$work/without" || {
    echo "from-source: the folders are others without systemd" >&2
    exit 1
}
cat "$work/without"

useradd --create-home --groups dialout pos
runuser -u pos -- env -C /home/pos HOME=/home/pos PATH=/usr/bin:/bin \
    voltisctl try --run /usr/share/doc/voltis/examples/first-receipt.txt >"$work/log" || { cat "$work/log"; exit 1; }
grep '^RECEIPT 000001' "$work/log"
echo "the package's folders: the same with systemd-sysusers and systemd-tmpfiles as without"

#!/bin/bash
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
#
# from-source.sh FOLDER: installs from the source as docs/setup.md tells users of other distributions, all
# with umask 077, and compares: the files with those of the packages in FOLDER, and the folders that are made
# with systemd with those that are made without. Then a new user sells. It changes the system that it runs
# on, so it runs as root in a bare Debian root of its own (scripts/bare).
set -euo pipefail

tree=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$tree/scripts/lib/install.sh"
. "$tree/tests/install/page.sh"
packages=("$(realpath "$1"/voltis_*.deb)" "$(realpath "$1"/voltisd_*.deb)")
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

# The group is not there, as on another distribution; and the clone was made with the umask, too.
groupdel dialout
chmod -R go= "$tree"
commands_of docs/setup.md "### Other distributions" 1 >"$work/systemd"
commands_of docs/setup.md "### Other distributions" 3 >"$work/by-hand"
grep '^cmake ' "$work/systemd" >"$work/cmake"
DESTDIR=$work/by-cmake bash -euxc "umask 077; $(cat "$work/cmake")" >"$work/log" 2>&1 || { tail -n 40 "$work/log"; exit 1; }
for package in "${packages[@]}"; do dpkg-deb -x "$package" "$work/by-debian"; done
# Debian 12 has units in /lib, which is a link to /usr/lib on every system.
if [ -d "$work/by-debian/lib" ]; then
    cp -a "$work/by-debian/lib" "$work/by-debian/usr/"
    rm -r "$work/by-debian/lib"
fi

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
+-rw-r--r-- root:root /usr/share/doc/voltisd/changelog.gz
+-rw-r--r-- root:root /usr/share/doc/voltisd/copyright
+-rw-r--r-- root:root /usr/share/lintian/overrides/voltis
+-rw-r--r-- root:root /usr/share/lintian/overrides/voltisd
+-rw-r--r-- root:root /usr/share/zsh/vendor-completions/_voltisctl
+drwxr-xr-x root:root /usr/share/doc/voltisd
+drwxr-xr-x root:root /usr/share/lintian
+drwxr-xr-x root:root /usr/share/lintian/overrides
+drwxr-xr-x root:root /usr/share/zsh/vendor-completions
--rw-r--r-- root:root /usr/lib/sysusers.d/voltis.conf
--rw-r--r-- root:root /usr/share/doc/voltis/LICENSE
--rw-r--r-- root:root /usr/share/doc/voltis/LICENSES/0BSD.txt
--rw-r--r-- root:root /usr/share/zsh/site-functions/_voltisctl
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
printf '%s\n' /usr/bin/voltis /usr/bin/voltisctl /usr/sbin/voltisd /usr/share/doc/voltis/voltis.spdx.json | diff -u - "$work/found" || {
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
bash -euxc "umask 077; $(cat "$work/systemd")" >"$work/log" 2>&1 || { tail -n 40 "$work/log"; exit 1; }
getent group dialout
folders >"$work/with"
rmdir /var/log/voltis /var/lib/voltis
groupdel dialout
bash -euxc "umask 077; $(cat "$work/by-hand")"
folders >"$work/without"
grep -q '^default:mask::rwx' "$work/with"
diff -u "$work/with" "$work/without" || {
    echo "from-source: the folders are others without systemd" >&2
    exit 1
}
cat "$work/without"

useradd --create-home --groups dialout pos
as_pos() { runuser -u pos -- env -C /home/pos HOME=/home/pos PATH=/usr/bin:/bin "$@"; }
as_pos voltisctl try --run /usr/share/doc/voltis/examples/first-receipt.txt >"$work/log" || { cat "$work/log"; exit 1; }
grep '^RECEIPT 000001' "$work/log"
closed=$(as_pos find /etc/voltis /usr/share/doc/voltis /usr/share/zsh/site-functions ! -readable 2>&1)
[ -z "$closed" ] || { echo "from-source: closed to the users: $closed" >&2; exit 1; }
echo "the package's folders: the same with systemd-sysusers and systemd-tmpfiles as without"

# An edited configuration stays when the next version is installed.
install_line=$(grep -- --install "$work/cmake")
sed -i "s|^Device=.*|Device=$work/register|; s|^ResultFileName=.*|ResultFileName=result.txt|" /etc/voltis/voltis.ini
cp /etc/voltis/voltis.ini "$work/edited"
bash -euxc "umask 077; $install_line" >"$work/log" 2>&1 || { tail -n 40 "$work/log"; exit 1; }
cmp "$work/edited" /etc/voltis/voltis.ini
cmp config/voltis.ini /etc/voltis/voltis.ini.new
as_pos cat /etc/voltis/voltis.ini.new >/dev/null
echo "an edited configuration: kept, with the new one beside it"

# A register, with the rights that a port has.
mkfifo "$work/desk"
voltisctl emulate --strict --link "$work/register" <"$work/desk" >"$work/tape" &
register=$!
trap 'kill "$register"; rm -rf "$work"' EXIT
exec 7>"$work/desk"
for _ in $(seq 100); do
    [ -L "$work/register" ] && break
    sleep 0.1
done
chgrp dialout "$work/register"
chmod 660 "$work/register"
as_pos cp /usr/share/doc/voltis/examples/first-receipt.txt .

# sells STATUS JOB TEXT: pos has this job printed; the exit status, and what is said.
sells() {
    local status=0
    as_pos voltisctl run --job "$2" first-receipt.txt >"$work/said" 2>&1 || status=$?
    if [ "$status" -ne "$1" ] || ! grep -qF -- "$3" "$work/said"; then
        echo "from-source: the job '$2' ended with $status, not $1 and '$3':" >&2
        cat "$work/said" >&2
        exit 1
    fi
}
receipts_are() {
    [ "$(grep -c '^RECEIPT ' "$work/tape")" -eq "$1" ] || { cat "$work/tape"; exit 1; }
}

# Where only root makes lock files, and a file of the distribution says so.
chmod 755 /run/lock
echo 'd /run/lock 0755 root root -' >/usr/lib/tmpfiles.d/legacy.conf
sells 2 locked "lock file '/run/lock/LCK.."
bash -euxc "$(commands_of docs/setup.md "### Other distributions" 4)"
systemd-tmpfiles --create 00-run-lock.conf legacy.conf
sells 0 locked "printed: "
receipts_are 1
echo "lock files: of use as the page says"

# As a restore by root leaves it: what the journal knows must not be printed again.
not_shared() {
    setfacl -R -b /var/lib/voltis
    chown -R root:root /var/lib/voltis
    chmod -R u=rwX,go=rX,g-s /var/lib/voltis
}
not_shared
# shellcheck disable=SC2016  # backquotes of the message
sells 2 new 'as root, `chgrp -R dialout /var/lib/voltis`'
sells 101 locked "cannot use the journal"
# shellcheck disable=SC2016  # here, too
remedy=$(grep -oE '`[^`]+`' "$work/said" | tr -d '`')
[ ! -e /home/pos/.local/state/voltis ]
bash -euxc "$remedy"
sells 0 locked "printed: "
not_shared
sells 2 new "cannot use the journal"
bash -euxc "$(commands_of docs/setup.md "### Several accounts" 1)"
sells 0 locked "printed: "
receipts_are 1
sells 0 new "printed: "
receipts_are 2
stat -c '%n %A %U:%G' /var/lib/voltis | grep -x '/var/lib/voltis drwxrws--- root:dialout'
echo "a journal that is no longer shared: refused, and opened as the message and the page say"

# Without access lists a log is closed by the umask of the driver's caller.
setfacl -b /var/log/voltis
useradd --create-home --groups dialout bar
driver_as_bar() {
    rm -f /var/log/voltis/*
    runuser -u bar -- env -C /home/bar HOME=/home/bar PATH=/usr/bin:/bin \
        sh -c "umask $1; cp /usr/share/doc/voltis/examples/first-receipt.txt .; voltis first-receipt.txt" >"$work/said" 2>&1 || true
    stat -c '%n %A' /var/log/voltis/*
    before=$(cat /var/log/voltis/* | wc -c)
}
driver_as_bar 022
sells 0 closed-log "printed: "
[ "$(cat /var/log/voltis/* | wc -c)" -eq "$before" ]
driver_as_bar 002
sells 0 open-log "printed: "
[ "$(cat /var/log/voltis/* | wc -c)" -gt "$before" ]
echo "a log without access lists: closed to the others with umask 022, open with 002"

# Another group has the ports: the next version leaves that as it is.
bash -euxc "umask 077; $(commands_of docs/setup.md "### Other distributions" 2)" >"$work/log" 2>&1 || { tail -n 40 "$work/log"; exit 1; }
cat /etc/sysusers.d/voltis.conf /etc/tmpfiles.d/voltis.conf /etc/logrotate.d/voltis >"$work/of-uucp"
[ "$(grep -c uucp "$work/of-uucp")" -eq 4 ]
if grep dialout "$work/of-uucp"; then exit 1; fi
bash -euxc "umask 077; $(grep -v -- --build "$work/systemd")" >"$work/log" 2>&1 || { tail -n 40 "$work/log"; exit 1; }
cat /etc/sysusers.d/voltis.conf /etc/tmpfiles.d/voltis.conf /etc/logrotate.d/voltis | cmp - "$work/of-uucp"
stat -c '%n %A %U:%G' /var/log/voltis /var/lib/voltis | grep -c 'drwxrws[-r]-[-x] root:uucp$' | grep -x 2
echo "another group: kept by the next version"

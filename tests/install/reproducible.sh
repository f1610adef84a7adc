#!/bin/bash
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
#
# reproducible.sh [FOLDER]: builds the packages twice, on purpose in different circumstances, and compares
# every byte, also with the packages in FOLDER, which are to be published: by root and by an ordinary user, on all processors and on one, with tests and without, at another
# path, umask, home, language and time zone, and a year later. It makes a user and a locale, so it runs as
# root in a bare Debian root (scripts/bare).
set -euo pipefail

tree=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$tree/scripts/lib/install.sh"
published=${1:+$(realpath "$1")}
cd "$tree"
if [ "$(id -u)" -ne 0 ]; then
    echo "reproducible.sh: only as root" >&2
    exit 2
fi
need_packages faketime locales
need_build_packages
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
chmod 755 "$work"

fail() {
    echo "reproducible.sh: $*" >&2
    exit 1
}

# A language with another decimal point, other names of days, and an i without a dot.
language=tr_TR.UTF-8
localedef -i tr_TR -f UTF-8 "$language"
[ "$(LC_ALL=$language locale decimal_point)" = , ] || fail "no locale $language"
id builder >/dev/null 2>&1 || useradd --create-home builder

# build FOLDER USER UMASK COMMAND...: a copy of the tree in the folder, and its packages beside it.
build() {
    local folder=$1 user=$2 umask=$3 begin=$SECONDS
    shift 3
    mkdir -p "$folder/voltis"
    # What git does not keep of the modes follows the umask, as in a clone.
    (umask "$umask" && tar -C "$tree" --exclude=./build --exclude=./.git --exclude=./.cache -c . |
        tar -C "$folder/voltis" --no-same-permissions -x)
    chown -R "$user" "$folder"
    # shellcheck disable=SC2016  # the inner shell expands them
    runuser -u "$user" -- "$@" bash -c 'umask "$1" && cd "$2" && dpkg-buildpackage -us -uc -b' bash "$umask" "$folder/voltis" \
        >"$folder.log" 2>&1 || {
        tail -n 40 "$folder.log"
        return 1
    }
    echo "built by $user in $((SECONDS - begin)) s"
}

processors=$(nproc)
build "$work/one" root 022 \
    env LC_ALL=C TZ=UTC HOME=/root DEB_BUILD_OPTIONS="parallel=$processors"
other=$work/a-longer-path/of/the/other
mkdir -p "$other"
build "$other" builder 077 \
    env LC_ALL=$language LANGUAGE=tr TZ=Pacific/Chatham HOME=/nonexistent DEB_BUILD_OPTIONS="nocheck parallel=1" \
    taskset --cpu-list 0 faketime -f +397d

# That the options count: the log has what dh calls.
tests=$(sed -n 's/^TESTS = //p' debian/rules | wc -w)
grep -q "ninja -j$processors " "$work/one.log" || fail "parallel=$processors is not honoured"
grep -q "100% tests passed, 0 tests failed out of $tests" "$work/one.log" || fail "the tests of debian/rules have not run"
grep -q 'ninja -j1 ' "$other.log" || fail "parallel=1 is not honoured"
if grep -qE 'tests passed|_test\.cpp' "$other.log"; then fail "nocheck is not honoured"; fi
echo "the package's options: parallel=$processors and parallel=1 are honoured, $tests tests without nocheck, none with it"

# No build may lack a package, or have one more.
for folder in "$work/one" "$other" ${published:+"$published"}; do
    names=$(cd "$folder" && printf '%s\n' *.deb | sed 's/_.*//' | LC_ALL=C sort | xargs)
    [ "$names" = "voltis voltis-dbgsym voltisd voltisd-dbgsym" ] || fail "in $folder are the packages $names"
done
different=0
for package in "$work"/one/*.deb; do
    name=$(basename "$package")
    if cmp "$package" "$other/$name" && { [ -z "$published" ] || cmp "$package" "$published/$name"; }; then
        echo "reproducible: $name: $(stat -c %s "$package") bytes, the same twice${published:+, and in what is published}"
    else
        different=1
    fi
done
exit "$different"

# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
#
# A shop as the package makes it: its configuration, its folders for logs and journal, an ordinary user in
# the group dialout, and a register at the end of a pseudo terminal. Sourced by the tests; what was in these
# folders before is there again afterwards.
# shellcheck shell=bash

shop=$(mktemp -d)
before=  # where what was there is kept: not in /tmp, for a journal must outlast a test that is killed
user=voltis-test-$$
folders=(/etc/voltis /var/log/voltis /var/lib/voltis)
register=
old=  # the version before the test, once it is packed

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# Whatever fails in here, as ending a register that has already ended does, the rest is done all the same.
close_shop() {
    set +e
    if [ -n "$register" ]; then kill "$register"; fi
    # A test that failed between two versions.
    if [ -n "$old" ] && [ "$(version)" != "$old" ]; then
        dpkg --force-confold -i "$shop/old.deb" </dev/null
    fi
    local folder whole=yes
    for folder in "${folders[@]}"; do
        put_back "$folder" || whole=
    done
    userdel --force --remove "$user" 2>/dev/null
    [ -n "$whole" ] || fail "what was in ${folders[*]} is in $before"
    rm -rf "$shop" "$before"
}

put_back() {
    mkdir -p "$1" && find "$1" -mindepth 1 -delete && cp -a "$before$1/." "$1/"
}

open_shop() {
    chmod 755 "$shop"
    local folder
    before=$(mktemp -d /var/backups/voltis-test.XXXXXX)
    echo "What is in ${folders[*]} is kept in $before."
    for folder in "${folders[@]}"; do
        mkdir -p "$before$folder"
        cp -a "$folder/." "$before$folder/"
    done
    sync
    trap close_shop EXIT
    # Only the configuration is the test's as well: not the journal, which may be another account's, and not the log.
    find /var/log/voltis /var/lib/voltis -mindepth 1 -delete
    useradd --create-home --groups dialout "$user"
    cp /usr/share/doc/voltis/examples/first-receipt.txt "/home/$user/sale.txt"
    chown "$user" "/home/$user/sale.txt"
    voltisctl emulate --strict --link "$shop/line" </dev/null >"$shop/tape" 2>"$shop/complaints" &
    register=$!
    for _ in $(seq 100); do
        if [ -L "$shop/line" ]; then break; fi
        sleep 0.1
    done
    [ -L "$shop/line" ] || fail "no register: $(cat "$shop/complaints")"
    # What udev gives a port.
    chgrp dialout "$shop/line"
    chmod 660 "$shop/line"
}

# set_key KEY VALUE: as an administrator edits the package's configuration.
set_key() {
    sed -i "s|^$1=.*|$1=$2|" /etc/voltis/voltis.ini
    ini_has "$1=$2"
}

ini_has() {
    grep -qxF "$1" /etc/voltis/voltis.ini || fail "/etc/voltis/voltis.ini has no line $1"
}

version() {
    dpkg-query -W -f '${Version}' voltis
}

as_user() {
    runuser -u "$user" -- env -C "/home/$user" HOME="/home/$user" PATH=/usr/bin:/bin "$@"
}

# sell NUMBER: the same number is the same job, which nobody else has; the log tells it by its path.
sell() {
    as_user voltisctl run --job "$user-$1" "/home/$user/sale.txt" || fail "job $1 ended with $?"
}

# log_has NUMBER: runs of this shop, in the log of the machine.
log_has() {
    local runs
    runs=$(grep -c "$user" /var/log/voltis/voltis.log || true)
    [ "${runs:-0}" -eq "$1" ] || fail "${runs:-no} runs in the log instead of $1"
}

# tape_has NUMBER
tape_has() {
    local receipts
    receipts=$(grep -c '^RECEIPT ' "$shop/tape" || true)
    [ "$receipts" -eq "$1" ] || fail "$receipts receipts instead of $1: $(cat "$shop/tape" "$shop/complaints")"
}

# journal_knows NUMBER...: jobs of this shop, printed.
journal_knows() {
    local number jobs
    [ -s /var/lib/voltis/journal.db ] || fail "no journal in /var/lib/voltis"
    jobs=$(as_user voltisctl jobs)
    for number in "$@"; do
        grep -E " $user-$number +done +printed " <<<"$jobs" >/dev/null || fail "job $number is not in the journal: $jobs"
    done
}

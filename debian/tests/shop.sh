# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
#
# A shop as the package makes it: its configuration, its folders for logs and journal, an ordinary user in
# the group dialout, and a register at the end of a pseudo terminal. Sourced by the tests; what was in these
# folders before is there again afterwards.
# shellcheck shell=bash

shop=$(mktemp -d --tmpdir=/run voltis-test.XXXXXX)  # not in /tmp, of which a service has its own
before=  # where what was there is kept: not in /tmp, for a journal must outlast a test that is killed
user=voltis-test-$$
socket=/run/voltisd/voltisd.sock
folders=(/etc/voltis /var/log/voltis /var/lib/voltis)
register=
voltisd=  # the process, where the test has started it by itself
was_served=
old=  # the version before the test, once it is packed

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# Whatever fails in here, as ending a register that has already ended does, the rest is done all the same.
close_shop() {
    set +e
    stop_service
    if [ -n "$register" ]; then kill "$register"; fi
    # A test that failed between two versions.
    if [ -n "$old" ] && [ "$(version)" != "$old" ]; then
        dpkg --force-confold -i "$shop"/old*.deb </dev/null
        stop_service
    fi
    local folder whole=yes
    for folder in "${folders[@]}"; do
        put_back "$folder" || whole=
    done
    userdel --force --remove "$user" 2>/dev/null
    if [ -n "$was_served" ]; then systemctl start voltisd.service; fi
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
    if systemd_runs && systemctl --quiet is-active voltisd.service; then was_served=yes; fi
    stop_service
    # Only the configuration is the test's as well: not the journal, which may be another account's, and not the log.
    find /var/log/voltis /var/lib/voltis -mindepth 1 -delete
    useradd --create-home --groups dialout "$user"
    cp /usr/share/doc/voltis/examples/first-receipt.txt "/home/$user/sale.txt"
    chown "$user" "/home/$user/sale.txt"
    mkfifo "$shop/desk"
    voltisctl emulate --strict --link "$shop/line" <"$shop/desk" >"$shop/tape" 2>"$shop/complaints" &
    register=$!
    exec 7>"$shop/desk"  # for what is typed at it
    for _ in $(seq 100); do
        if [ -L "$shop/line" ]; then break; fi
        sleep 0.1
    done
    [ -L "$shop/line" ] || fail "no register: $(cat "$shop/complaints")"
    # What udev gives a port.
    chgrp dialout "$shop/line"
    chmod 660 "$shop/line"
}

systemd_runs() {
    [ -d /run/systemd/system ]
}

# By systemd, or where that does not run, as the same account.
start_service() {
    if systemd_runs; then
        systemctl start voltisd.service
    else
        systemd-tmpfiles --create voltisd.conf
        setpriv --reuid voltis --regid voltis --init-groups voltisd >"$shop/said" 2>&1 </dev/null &
        voltisd=$!
    fi
    for _ in $(seq 100); do
        if as_user curl --silent --unix-socket "$socket" http://localhost/healthz >/dev/null; then return; fi
        sleep 0.1
    done
    fail "the service does not answer: $(cat "$shop/said")"
}

stop_service() {
    if systemd_runs; then
        systemctl stop voltisd.socket voltisd.service 2>/dev/null || true
    elif [ -n "$voltisd" ]; then
        kill "$voltisd" || true
        wait "$voltisd" || true
        voltisd=
    fi
}

# hand_in NUMBER SECONDS: the status of the answer to that job of this shop, waiting for so long at most.
hand_in() {
    as_user curl --silent --show-error --max-time 100 --unix-socket "$socket" --output "/home/$user/answer" \
        --write-out '%{http_code}' --header "Idempotency-Key: $user-$1" --header "Prefer: wait=$2" \
        --header "Content-Type: text/plain" --data-binary @sale.txt http://localhost/v1/registers/default/jobs
}

# answers STATUS NUMBER SECONDS
answers() {
    local status
    status=$(hand_in "$2" "$3")
    [ "$status" = "$1" ] || fail "job $2 is answered with $status instead of $1: $(cat "/home/$user/answer")"
}

# wait_until_it_prints NUMBER: that job of this shop.
wait_until_it_prints() {
    for _ in $(seq 100); do
        if as_user voltisctl jobs | grep -E " $user-$1 +sending " >/dev/null; then return; fi
        sleep 0.1
    done
    fail "job $1 is not at work"
}

# pack_version PACKAGE VERSION FILE [LINE]: this package with another version, and a line more in its
# configuration; of the root that unpack has made of the installed one.
pack_version() {
    local root=$shop/$1
    sed -i "s/^Version: .*/Version: $2/; s/voltis (= [^)]*)/voltis (= $2)/" "$root/DEBIAN/control"
    if [ $# -gt 3 ]; then echo "$4" >>"$root/etc/voltis/voltis.ini"; fi
    dpkg-deb -b "$root" "$shop/$3" >/dev/null
}

unpack() {
    (cd "$shop" && dpkg-repack --generate "$1" >/dev/null && mv "dpkg-repack.$1."* "$1")
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

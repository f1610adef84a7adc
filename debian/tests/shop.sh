# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
#
# A user, a register of its own at the end of a pseudo terminal, and sales; sourced by the tests.
# shellcheck shell=bash

shop=$(mktemp -d)
user=voltis-test-$$
register=

close_shop() {
    if [ -n "$register" ]; then kill "$register"; fi
    userdel --force --remove "$user" 2>/dev/null || true
    rm -rf "$shop"
}

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

open_shop() {
    trap close_shop EXIT
    useradd --create-home "$user"
    cp /usr/share/doc/voltis/examples/first-receipt.txt "$shop/sale.txt"
    printf '[VOLTIS]\nDevice=%s\n' "$shop/line" >"$shop/voltis.ini"
    mkdir "$shop/locks" "$shop/logs"
    chown -R "$user" "$shop"
    as_user voltisctl emulate --strict --link "$shop/line" </dev/null >"$shop/tape" 2>"$shop/complaints" &
    register=$!
    for _ in $(seq 100); do
        if [ -L "$shop/line" ]; then return; fi
        sleep 0.1
    done
    fail "no register: $(cat "$shop/complaints")"
}

as_user() {
    runuser -u "$user" -- env -C "$shop" HOME="/home/$user" PATH=/usr/bin:/bin "$@"
}

# sell JOB
sell() {
    as_user voltisctl run --config "$shop" --locks "$shop/locks" --logs "$shop/logs" \
        --journal "$shop/journal.db" --job "$1" sale.txt || fail "job $1 ended with $?"
}

# tape_has NUMBER
tape_has() {
    local receipts
    receipts=$(grep -c '^RECEIPT ' "$shop/tape" || true)
    [ "$receipts" -eq "$1" ] || fail "$receipts receipts instead of $1: $(cat "$shop/tape" "$shop/complaints")"
}

#!/bin/bash
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: 0BSD
#
# A program of your own that speaks to the register by itself. Here read-status.sh takes its place.
#
#     examples/ci/test-caller.sh RESULTS
#
# RESULTS keeps the register's journal.
set -u
here=$(dirname "$(readlink -f "$0")")
results=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "$*"
    exit 1
}

# Starts voltisctl with these arguments, and waits for its end of the line at $work/line.
start() {
    "$VOLTISCTL" "$@" --link "$work/line" </dev/null >"$work/out.txt" &
    pid=$!
    for _ in $(seq 200); do
        [ -L "$work/line" ] && return
        kill -0 $pid 2>/dev/null || break
        sleep 0.05
    done
    fail "no register: $(cat "$work/out.txt")"
}

stop() {
    kill -TERM $pid
    wait $pid || fail "the register ended with $?"
}

# A register that loses an answer: the caller is to ask again.
echo 'at response 1 lose' >"$work/faults.txt"
start emulate --state "$work/state.json" --journal "$results/journal.jsonl" --faults "$work/faults.txt"
"$here/read-status.sh" "$work/line" || fail "no status"
stop
lost=$(grep -c '"fate": "lost"' "$results/journal.jsonl")
[ "$lost" -eq 1 ] || fail "$lost frames were lost instead of 1"

# The same register after a restart.
start emulate --state "$work/state.json" --journal "$results/journal.jsonl"
"$here/read-status.sh" "$work/line" || fail "no status after the restart"
stop

# What a register of a shop said: is every frame of the caller what it was then?
start replay "$here/read-status.log" --timeout 20
"$here/read-status.sh" "$work/line" || fail "no status from the log"
wait $pid || fail "$(cat "$work/out.txt")"

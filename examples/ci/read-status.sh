#!/bin/bash
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: 0BSD
#
# Reads the fiscal status of the register at the end of a line, in binary frames, and prints it. Asks
# three times at most.
#
#     examples/ci/read-status.sh DEVICE
set -u
exec 3<>"$1"
stty raw -echo min 1 time 0 <&3

# Up to $1 bytes, in hexadecimal digits; fewer when nothing comes for two seconds.
take() {
    timeout 2 dd bs=1 count="$1" <&3 2>/dev/null | od -An -v -tx1 | tr -d ' \n'
}

# What has come too late for the attempt before.
drain() {
    timeout 0.2 cat <&3 >/dev/null
}

for _ in 1 2 3; do
    drain
    printf '\331\001\321\011\114' >&3
    reply=$(take 23)
    case $reply in
    d906df42*) ;;
    *) continue ;;
    esac
    [ ${#reply} -eq 46 ] || continue
    printf '\331\006\337\102' >&3
    [ "$(take 4)" = ffff0002 ] || continue
    printf '\331\006\337\102' >&3
    echo "status ${reply:8:34}"
    exit 0
done
exit 1

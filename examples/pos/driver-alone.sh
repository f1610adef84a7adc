#!/bin/sh
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: 0BSD
#
# Carries out a command file by the driver alone, and says what to do next.
#
#     driver-alone.sh FILE
result=$(dirname "$1")/result.txt
rm -f "$result"
flock /var/log/voltis voltis "$1"
code=$?
message=$(sed -n 's/^Message=//p' "$result" 2>/dev/null)
case $code in
    0) echo "done: $(grep ReceiptNo "$result")" ;;
    1) echo "not printed, correct the file: $message" ;;
    2) echo "not printed, remedy and send the file again: $message" ;;
    66 | 69) echo "not printed: the logs' folder or voltis is missing" ;;  # flock says so
    *) echo "look at the register before anything else: $message" ;;
esac
exit "$code"

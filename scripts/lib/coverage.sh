#!/bin/bash
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
#
# What the tests of build/coverage have reached of src/. Fails below 95 % of all branches, and below
# 100 % of the lines where a mistake costs money: the exchange with the register, its frames, packed
# BCD and the result file.
#
# Every call that may throw is a branch for the compiler, and every destructor on the way of an
# exception another; counted with them, half of all branches would be those of a memory that runs
# out between two lines. Those two kinds are left out. Memory that runs out has a test of its own.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/../.."
build=${1:-build/coverage}
counts=$build/coverage.json

gcovr --root . --filter src/ --exclude-throw-branches --exclude-unreachable-branches \
    --json "$counts" "$build"

report() {
    gcovr --root . --add-tracefile "$counts" "$@"
}

code=0
echo "Lines of src/"
report
echo "Branches of src/"
report --branches --fail-under-branch 95 || code=1
echo "What must be reached to the last line"
report --filter 'src/(ECR|EcrExchange|EcrModel|EcrStatus|ProtocolFormatting|Decimal|VOLTIS)\.cpp' \
    --fail-under-line 100 || code=1
exit "$code"

#!/bin/bash
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: 0BSD
#
# What a job of continuous integration runs: the steps below, one after the other, whatever became of
# those before. It ends with 0 when all of them passed.
#
#     examples/ci/workflow.sh [RESULTS]
#
# RESULTS (a new folder under /tmp without it) keeps what each step printed, and the register's journal:
# the artifacts of the job. VOLTISCTL names the program, when it is not on PATH.
set -u
here=$(dirname "$(readlink -f "$0")")
results=${1:-$(mktemp -d)}
export VOLTISCTL=${VOLTISCTL:-voltisctl}
failed=0

step() {
    local name=$1
    shift
    if "$@" >"$results/$name.txt" 2>&1; then
        echo "ok      $name"
    else
        echo "FAILED  $name (exit status $?)"
        sed 's/^/        /' "$results/$name.txt"
        failed=1
    fi
}

mkdir -p "$results"
step files "$VOLTISCTL" check "$here/sale.txt"
step sales "$here/test-sales.sh"
step caller "$here/test-caller.sh" "$results"
echo "results in $results"
exit $failed

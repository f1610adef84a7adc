#!/bin/sh
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: 0BSD
#
# Sells goods on the fiscal register: each sale once, whatever happens in between.
#
#     sell.sh KIND ID NAME PRICE [NAME PRICE]...
#
# KIND is whole, or first, next and last for a receipt that is sent in several files. ID is the sale's
# own, in the records of the point of sale; the same sale always has the same one. Every sale has a
# folder with its command file; the number of its receipt is written there, too.
#
# Exit status: 0 printed, 1 a mistake of the program, 2 not printed: sell it again under the same ID,
# 101 somebody has to look at the register. VOLTISCTL names the program when it is not on PATH, SALES
# the folder of the sales, WAIT the seconds to wait for another till. The register's configuration has
# ResultFileName=result.txt.
set -u

hint_for() {
    case $1 in
    100 | 150) echo "Is the register on and connected?" ;;
    101) echo "Is the register busy?" ;;
    104) echo "Turn the key to REG." ;;
    105 | 106) echo "Finish or cancel the open receipt on the register." ;;
    201 | 202) echo "Put in paper." ;;
    203) echo "The printer is out of order." ;;
    esac
}

# --- write ---------------------------------------------------------------------------------------

# A line feed would begin another command. A backslash at the end would take the closing quote for a
# part of the text.
quoted() {
    printf '"%s"' "$(printf %s "$1" | tr '\000-\037\177' '[ *]' | sed 's/"/\\"/g; s/\\$/\\ /')"
}

command_file() {
    case $kind in next | last) echo CONTINUE ;; esac
    while [ $# -gt 0 ]; do
        printf 'SALE: DEPTNR=1; NAME=%s; AMOUNT=%s\n' "$(quoted "$1")" "$2"
        shift 2
    done
    case $kind in
    whole | last) echo TENDER ;;
    *) echo CONTINUE ;;
    esac
}

# --- run and read --------------------------------------------------------------------------------

# Without a time limit: a run ends by itself, and one that is killed leaves its outcome open. Standard
# error is for the technician: the reason, and that this account has a journal of its own.
run() {
    "${VOLTISCTL:-voltisctl}" run "$folder/sale.txt" --job "$sale" --from utf-8 --wait "${WAIT:-60}" \
        </dev/null
}

# A line of the result file, by its key.
result() {
    sed -n "s/^$1=//p" "$folder/result.txt" 2>/dev/null
}

# --- decide --------------------------------------------------------------------------------------

say() {
    printf '%s: %s\n' "$sale" "$1"
    shift
    for line; do
        [ -z "$line" ] || printf '  %s\n' "$line"
    done
}

# The verdict is the first word of the line that voltisctl has told.
decide() {
    message=$(result Message)
    hint=$(hint_for "$(result ErrorCode)")
    case $told in
    printed:*) decide_printed ;;
    part:* | unknown:*) decide_in_doubt ;;
    not-printed:*)
        if [ "$code" -eq 1 ]; then
            say "not printed, a mistake of the program: $message"
        else
            say "not printed: $message" "$hint" "Then sell it again under the same ID."
        fi
        ;;
    *) # not started, or ended before it could tell
        say "no answer" "Sell it again under the same ID."
        code=2
        ;;
    esac
}

decide_printed() {
    number=$(printf '%s\n' "$told" | sed -n 's/.*, receipt \([0-9]*\).*/\1/p')
    number=${number:-?}
    if [ "$code" -ne 0 ]; then
        say "printed, receipt $number, but: $message" "Look at the register before the next sale."
    elif [ "$kind" = first ] || [ "$kind" = next ]; then
        say "printed, receipt $number is open, $(result Subtotal) to pay"
    else
        say "printed, receipt $number"
    fi
    case $kind in whole | last) echo "$number" >"$folder/receipt" ;; esac
}

decide_in_doubt() {
    certain=$(printf '%s\n' "$told" | sed -n 's/^[a-z]*: [a-z ]*\([0-9]*\).* of \([0-9]*\) commands.*/\1 of \2/p')
    say "${told%%:*}, at least ${certain:-0 of ?} commands: $message" "$hint" \
        "Look at the paper. Finish or cancel an open receipt on the register." \
        "Then: voltisctl resolve $sale --as printed, or not-printed, --note WHY"
}

# -------------------------------------------------------------------------------------------------

fail() {
    echo "sell: $1" >&2
    exit 1
}

check_price() {
    case $1 in *[!0-9.]*) fail "PRICE is up to 999999.99" ;; esac
    echo "$1" | grep -Eqx '[0-9]{1,6}(\.[0-9]{1,2})?' || fail "PRICE is up to 999999.99"
}

check_goods() {
    while [ $# -gt 0 ]; do
        check_price "$2"
        shift 2
    done
}

kind=${1-}
sale=${2-}
case $kind in whole | first | next | last) ;; *) fail "KIND is whole, first, next or last" ;; esac
case $sale in '' | -* | *[!0-9A-Za-z-]*) fail "ID has letters, digits and -" ;; esac
shift 2
if [ $# -eq 0 ] || [ $(($# % 2)) -ne 0 ]; then fail "each NAME wants a PRICE"; fi
check_goods "$@"

folder=${SALES:-sales}/$sale
mkdir -p "$folder" && command_file "$@" >"$folder/sale.txt" || exit 1
told=$(run)
code=$?
decide
exit "$code"

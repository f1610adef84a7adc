#!/usr/bin/env python3
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: 0BSD
"""Sells goods on the fiscal register: each sale once, whatever happens in between.

    sell.py KIND ID NAME PRICE [NAME PRICE]...

KIND is whole, or first, next and last for a receipt that is sent in several files. ID is the sale's
own, in the records of the point of sale; the same sale always has the same one. Every sale has a
folder with its command file; the number of its receipt is written there, too.

Exit status: 0 printed, 1 a mistake of the program, 2 not printed: sell it again under the same ID,
101 somebody has to look at the register. VOLTISCTL names the program when it is not on PATH, SALES
the folder of the sales, WAIT the seconds to wait for another till.
"""
import json
import os
import re
import subprocess
import sys

VOLTISCTL = os.environ.get("VOLTISCTL", "voltisctl")
SALES = os.environ.get("SALES", "sales")
WAIT = os.environ.get("WAIT", "60")

HINTS = {
    100: "Is the register on and connected?",
    101: "Is the register busy?",
    104: "Turn the key to REG.",
    105: "Finish or cancel the open receipt on the register.",
    106: "Finish or cancel the open receipt on the register.",
    150: "Is the register on and connected?",
    201: "Put in paper.",
    202: "Put in paper.",
    203: "The printer is out of order.",
}


# --- write ---------------------------------------------------------------------------------------


def quoted(text):
    # A line feed would begin another command. A backslash at the end would take the closing quote
    # for a part of the text.
    text = re.sub("[\0-\x1f\x7f]", " ", text).replace('"', '\\"')
    return '"' + text + (' "' if text.endswith("\\") else '"')


def command_file(kind, goods):
    lines = ["CONTINUE"] if kind in ("next", "last") else []
    for name, price in goods:
        lines.append(f"SALE: DEPTNR=1; NAME={quoted(name)}; AMOUNT={price}")
    lines.append("TENDER" if kind in ("whole", "last") else "CONTINUE")
    return "\n".join(lines) + "\n"


def write(name, text):
    with open(name, "w", encoding="utf-8", errors="surrogateescape") as file:
        file.write(text)


# --- run and read --------------------------------------------------------------------------------


def run(sale, file):
    # Without a time limit: a run ends by itself, and one that is killed leaves its outcome open.
    command = [VOLTISCTL, "run", file, "--job", sale, "--from", "utf-8", "--wait", WAIT, "--json"]
    try:
        done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
        return json.loads(done.stdout)
    except (OSError, ValueError):  # not started, or ended before it could tell
        return None


# --- decide --------------------------------------------------------------------------------------


def say(sale, what, *hints):
    print(f"{sale}: {what}")
    for hint in filter(None, hints):
        print(f"  {hint}")


def decide(sale, kind, answer):
    if answer is None:
        say(sale, "no answer", "Sell it again under the same ID.")
        return 2
    driver = answer["driver"] or {"message": "", "error_code": None}
    message = answer.get("reason", driver["message"]).replace("\n", " ")
    hint = HINTS.get(driver["error_code"])
    if answer["verdict"] == "printed":
        decide_printed(sale, kind, answer, message)
    elif answer["verdict"] != "not-printed":
        decide_in_doubt(sale, answer, message, hint)
    elif answer["exit_code"] == 1:
        say(sale, f"not printed, a mistake of the program: {message}")
    else:
        say(sale, f"not printed: {message}", hint, "Then sell it again under the same ID.")
    return answer["exit_code"]


def decide_printed(sale, kind, answer, message):
    receipt = answer["receipt"]
    number = "?" if receipt["after"] is None else receipt["after"]
    if answer["exit_code"] != 0:
        say(sale, f"printed, receipt {number}, but: {message}", "Look at the register before the next sale.")
    elif kind in ("first", "next"):
        say(sale, f"printed, receipt {number} is open, {receipt['subtotal']} to pay")
    else:
        say(sale, f"printed, receipt {number}")
    if kind in ("whole", "last"):
        write(os.path.join(SALES, sale, "receipt"), f"{number}\n")


def decide_in_doubt(sale, answer, message, hint):
    commands = answer["commands"]
    done = f"at least {commands['at_least']} of {commands['of'] or '?'} commands"
    say(
        sale,
        f"{answer['verdict']}, {done}: {message}",
        hint,
        "Look at the paper. Finish or cancel an open receipt on the register.",
        f"Then: voltisctl resolve {sale} --as printed, or not-printed, --note WHY",
    )


# -------------------------------------------------------------------------------------------------


def mistakes(kind, sale, goods):
    if kind not in ("whole", "first", "next", "last"):
        yield "KIND is whole, first, next or last"
    if not re.fullmatch("[0-9A-Za-z][0-9A-Za-z-]*", sale):
        yield "ID has letters, digits and -"
    if not goods or len(goods) % 2 != 0:
        yield "each NAME wants a PRICE"
    for price in goods[1::2]:
        if not re.fullmatch(r"[0-9]{1,6}(\.[0-9]{1,2})?", price):
            yield "PRICE is up to 999999.99"


def main(arguments):
    kind, sale, *goods = (arguments + ["", ""])[: max(2, len(arguments))]
    for mistake in mistakes(kind, sale, goods):
        print(f"sell: {mistake}", file=sys.stderr)
        return 1
    folder = os.path.join(SALES, sale)
    os.makedirs(folder, exist_ok=True)
    file = os.path.join(folder, "sale.txt")
    write(file, command_file(kind, zip(goods[::2], goods[1::2])))
    return decide(sale, kind, run(sale, file))


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

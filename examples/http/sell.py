#!/usr/bin/env python3
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: 0BSD
"""Sells goods on a fiscal register of the network: each sale once, whatever happens in between.

    sell.py ID NAME PRICE [NAME PRICE]...
    sell.py ID                               again, what is stored under the ID

ID is the sale's own in the records of the shop, and the key of its job: the same sale always has the
same one, and no other sale of any till has it. Every sale has a folder. Its command file is there before
anything is sent, and the number of its receipt in the end.

Exit status: 0 printed; 1 not printed, and never to be under this ID; 2 not printed or not known: sell
it again under the same ID; 101 somebody has to look at the paper. SERVICE is the address of voltisd,
REGISTER the register's name there, TOKEN_FILE a file that holds the token, SALES the folder of the
sales, WAIT the seconds until it gives up.
"""
import http.client
import json
import os
import re
import sys
import time
import urllib.parse

SERVICE = os.environ.get("SERVICE", "http://127.0.0.1:8631")
REGISTER = os.environ.get("REGISTER", "default")
TOKEN_FILE = os.environ.get("TOKEN_FILE", "token")
SALES = os.environ.get("SALES", "sales")
WAIT = float(os.environ.get("WAIT", "120"))
AT_ONCE = 20  # seconds that one request waits for its receipt


# --- write ---------------------------------------------------------------------------------------


def quoted(text):
    # A line feed would begin another command. A backslash at the end would take the closing quote
    # for a part of the text.
    text = re.sub("[\0-\x1f\x7f]", " ", text).replace('"', '\\"')
    return '"' + text + (' "' if text.endswith("\\") else '"')


def command_file(goods):
    lines = [f"SALE: DEPTNR=1; NAME={quoted(name)}; AMOUNT={price}" for name, price in goods]
    return ("\n".join(lines) + "\nTENDER\n").encode("utf-8", "surrogateescape")


def read(name):
    try:
        with open(name, "rb") as file:
            return file.read()
    except FileNotFoundError:
        return b""


def write(name, data):
    with open(name + ".new", "wb") as file:  # whole or not at all
        file.write(data)
    os.replace(name + ".new", name)


# --- send, and send again ------------------------------------------------------------------------


def parsed(body):
    try:
        answer = json.loads(body)
        return answer if isinstance(answer, dict) else {}
    except ValueError:  # of something between here and the service
        return {}


def post(sale, content, seconds):
    """The status, the header Retry-After and the JSON of the answer. None: there was no answer."""
    url = urllib.parse.urlsplit(SERVICE)
    connect = http.client.HTTPSConnection if url.scheme == "https" else http.client.HTTPConnection
    headers = {
        "Authorization": "Bearer " + read(TOKEN_FILE).decode().strip(),
        "Content-Type": "text/plain; charset=utf-8",
        "Idempotency-Key": sale,
        "Prefer": f"wait={seconds}",
    }
    connection = connect(url.hostname, url.port, timeout=seconds + 10)
    try:
        connection.request("POST", f"/v1/registers/{REGISTER}/jobs", content, headers)
        response = connection.getresponse()
        return response.status, response.getheader("Retry-After", ""), parsed(response.read())
    except (OSError, http.client.HTTPException):
        return None
    finally:
        connection.close()


def kind_of(answer):
    return answer.get("type", "").rpartition(":")[2]


def decides(status, answer):
    """False: the same request again, later, may have another answer."""
    if status == 200:
        return "verdict" in answer
    if status >= 500:
        return kind_of(answer) in ("not-printed", "part", "in-doubt", "forgotten")
    return 400 <= status and status not in (408, 409, 429)


def ask(sale, content):
    """What decides: the status, and the answer. None: there was no such answer in time."""
    end = time.monotonic() + WAIT
    pause = 0.5
    while time.monotonic() < end:
        told = post(sale, content, min(AT_ONCE, int(end - time.monotonic())))
        if told and decides(told[0], told[2]):
            return told[0], told[2]
        pause = min(2 * pause, 10)
        wanted = int(told[1]) if told and told[1].isdecimal() else pause
        time.sleep(max(0, min(wanted, end - time.monotonic())))
    return None


# --- decide --------------------------------------------------------------------------------------


def say(sale, what, *hints):
    print(f"{sale}: {what}")
    for hint in filter(None, hints):
        print(f"  {hint}")


def decide(sale, told):
    if told is None:
        say(sale, "not known: no answer in time", "Sell it again under the same ID.")
        return 2
    status, answer = told
    if status == 200:
        return decide_printed(sale, answer)
    kind = kind_of(answer)
    what = answer.get("detail", f"status {status}")
    hint = answer.get("explanation", {}).get("what_to_do")
    if kind in ("part", "in-doubt", "forgotten"):
        return decide_in_doubt(sale, answer, what, hint)
    if kind == "not-printed":
        say(sale, f"not printed: {what}", hint, "Then sell it again under the same ID.")
        return 2
    if kind == "withdrawn":
        say(sale, f"not printed: {what}", "A new sale needs a new ID.")
        return 1
    if status in (400, 413, 415, 422):
        say(sale, f"not printed, a mistake of the program: {what}", hint)
        return 1
    say(sale, f"refused: {what}", "Look at the settings. Then sell it again under the same ID.")
    return 2


def decide_printed(sale, job):
    outcome = job["outcome"] or {}
    number = outcome.get("receipt", {}).get("after") or "?"
    write(os.path.join(SALES, sale, "receipt"), f"{number}\n".encode())
    if job["exit_code"] == 0 or job["resolved"]:
        say(sale, f"printed, receipt {number}")
        return 0
    message = (outcome.get("driver") or {}).get("message", "?")
    say(sale, f"printed, receipt {number}, but: {message}", "Look at the register before the next sale.")
    return 101


def decide_in_doubt(sale, answer, what, hint):
    job = answer.get("job", {})
    commands = (job.get("outcome") or {}).get("commands", {})
    done = f"at least {commands.get('at_least', 0)} of {commands.get('of') or '?'} commands"
    page = f"{SERVICE}/jobs/{job['number']}" if job else f"{SERVICE}/"
    say(
        sale,
        f"{job.get('verdict', 'unknown')}, {done}: {what}",
        hint,
        "Look at the paper. Finish or cancel an open receipt on the register.",
        f"Then record what the paper says: {page}",
    )
    return 101


# -------------------------------------------------------------------------------------------------


def mistakes(sale, goods):
    if not re.fullmatch("[0-9A-Za-z][0-9A-Za-z-]{0,99}", sale):
        yield "ID has letters, digits and -"
    if len(goods) % 2 != 0:
        yield "each NAME wants a PRICE"
    for price in goods[1::2]:
        if not re.fullmatch(r"[0-9]{1,6}(\.[0-9]{1,2})?", price):
            yield "PRICE is up to 999999.99"
    stored = read(os.path.join(SALES, sale, "sale.txt"))
    if not goods and not stored:
        yield "nothing is stored under this ID"
    if goods and stored not in (b"", command_file(zip(goods[::2], goods[1::2]))):
        yield "other goods were sold under this ID"
    if len(read(TOKEN_FILE).split()) != 1:
        yield f"there is no token in {TOKEN_FILE}"


def main(arguments):
    sale, *goods = arguments or [""]
    for mistake in mistakes(sale, goods):
        print(f"sell: {mistake}", file=sys.stderr)
        return 1
    file = os.path.join(SALES, sale, "sale.txt")
    os.makedirs(os.path.dirname(file), exist_ok=True)
    if goods:
        write(file, command_file(zip(goods[::2], goods[1::2])))
    return decide(sale, ask(sale, read(file)))


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

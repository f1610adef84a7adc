# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""Compares what the registers did with what the journal says and with what the tills were told."""

import collections
import dataclasses
import re

PRINTED, NOT_PRINTED, PART, UNKNOWN = "printed", "not-printed", "part", "unknown"


@dataclasses.dataclass
class Told:
    """What one answer said of a sale, and when (seconds of UTC)."""
    at: float
    verdict: str
    of: int = 0  # commands; 0: nobody has counted
    at_least: int = 0
    at_most: int = 0
    withdrawn: bool = False


@dataclasses.dataclass
class Sale:
    key: str
    register: str
    commands: int
    cents: int  # of the tender, no other sale's
    by_run: bool = False  # handed in by `voltisctl run`
    told: list = dataclasses.field(default_factory=list)
    repeats: int = 0  # of the request


@dataclasses.dataclass
class Row:
    """Of the journal."""
    key: str
    state: str
    verdict: str
    place: int | None  # in the queue; none: it was in none
    withdrawn: bool


@dataclasses.dataclass
class Act:
    """A command of a sale that a register has carried out: the nth one, counted from 0."""
    at: float
    register: str
    key: str
    index: int


def _text(payload):
    return bytes.fromhex(payload).decode("latin-1")


def acts_of(register, events, sales):
    """What the register's own journal (docs/emulator.md) has of the sales. The name of an item is the key and
    a letter; the amount of the tender is the sale's own."""
    by_cents = {sale.cents: sale for sale in sales}
    by_key = {sale.key: sale for sale in sales}
    acts = []
    for event in events:
        if event["event"] != "command" or not event["accepted"]:
            continue
        at, payload = event["at"], event["payload"]
        if event["command"] == "DeptSale":
            key, letter = re.search(r"(t\d+-\d+) ([a-z])", _text(payload)).groups()
            acts.append(Act(at, register, by_key[key].key, ord(letter) - ord("a")))
        elif event["command"] == "Tender":
            sale = by_cents[int(payload.replace(" ", "")[2:])]
            acts.append(Act(at, register, sale.key, sale.commands - 1))
        elif event["command"] not in ("EnterFiscalMode", "ExitFiscalMode", "ShowInfo"):
            raise ValueError(f"{register} did {event['command']}, which nobody asked for")
    return acts


def receipts_of(events):
    """The keys on each receipt, by the lines of the tape."""
    receipts, keys = [], set()
    for event in events:
        if event["event"] != "printed":
            continue
        if found := re.match(r"(t\d+-\d+) [a-z]", event["line"]):
            keys.add(found[1])
        elif event["line"].startswith("RECEIPT "):
            receipts.append(keys)
            keys = set()
    return receipts + [keys]


# --- rules --------------------------------------------------------------------------------------------------


def _wrong_on_tape(sale, acts):
    if any(act.register != sale.register for act in acts):
        return "is on the tape of another register"
    indices = [act.index for act in acts]
    if len(set(indices)) < len(indices):
        return "has a command twice on the tape"
    if indices != list(range(len(indices))):
        return f"has commands {indices} on the tape, which is no beginning"
    return None


def _wrong_told(sale, told, acts):
    done = len(acts)
    if told.verdict == PRINTED and done != sale.commands:
        return f"was told printed, and {done} of {sale.commands} commands are on the tape"
    if told.withdrawn and done:
        return f"was told withdrawn, and {done} of {sale.commands} commands are on the tape"
    before = sum(act.at < told.at for act in acts)
    if told.verdict == NOT_PRINTED and before:  # it may be tried again later
        return f"was told not-printed, when {before} of {sale.commands} commands were on the tape"
    if told.verdict == PART and not 0 < done < sale.commands:
        return f"was told part, and {done} of {sale.commands} commands are on the tape"
    if told.of and told.verdict != NOT_PRINTED:
        if told.of != sale.commands or not told.at_least <= done <= told.at_most:
            return f"was told {told.at_least} to {told.at_most} of {told.of} commands, and {done} are on the tape"
    return None


def _wrong_in_journal(sale, row, acts):
    if row is None:  # `run` takes no job down that it finds no register for
        known = [told for told in sale.told if told.verdict != NOT_PRINTED or not sale.by_run]
        return "is not in the journal" if known else None
    last = sale.told[-1] if sale.told else None
    if row.state in ("received", "sending"):
        return f"is {row.state} for ever"
    if last is None:
        return "was never answered"
    if (last.verdict, last.withdrawn) != (row.verdict, row.withdrawn):
        return f"was told {last.verdict} at last, and the journal has {row.verdict}"
    if acts and row.state == "failed":
        return "is on the tape and failed in the journal"
    return None


def _out_of_order(rows, by_key):
    """What was queued is printed in the order of the queue."""
    queued = sorted((row.place, row.key) for row in rows if row.place is not None and by_key[row.key])
    latest = collections.defaultdict(lambda: (0.0, ""))
    for _, key in queued:
        first = by_key[key][0]
        if first.at < latest[first.register][0]:
            yield f"{key} was printed before {latest[first.register][1]}, which was before it in the queue"
        latest[first.register] = max(latest[first.register], (first.at, key))


def untruths(sales, rows, acts, receipts):
    """Everything that is not as it is promised, in words."""
    by_key = collections.defaultdict(list)
    for act in acts:
        by_key[act.key].append(act)
    row_of = {row.key: row for row in rows}
    for key in row_of.keys() - {sale.key for sale in sales}:
        yield f"{key} is in the journal, and no till's"
    for sale in sales:
        done = by_key[sale.key]
        found = [_wrong_on_tape(sale, done), _wrong_in_journal(sale, row_of.get(sale.key), done)]
        found += [_wrong_told(sale, told, done) for told in sale.told]
        if not sale.told:
            found.append("was never answered")
        yield from (f"{sale.key} {wrong}" for wrong in dict.fromkeys(found) if wrong)
    for keys in receipts:
        if len(keys) > 1:
            yield f"{', '.join(sorted(keys))} are on one receipt"
    yield from _out_of_order([row for row in rows if row.key in {sale.key for sale in sales}], by_key)

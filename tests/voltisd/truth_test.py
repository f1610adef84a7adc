#!/usr/bin/env python3
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""Each rule of truth.py, broken once."""

import sys
import unittest

sys.dont_write_bytecode = True

from truth import Act, Row, Sale, Told, acts_of, receipts_of, untruths


def sale(*told, key="t01-1", cents=100001):
    return Sale(key, "r1", 3, cents, told=list(told))


def row(verdict="printed", state="done", key="t01-1", place=1, withdrawn=False):
    return Row(key, state, verdict, place, withdrawn)


def acts(*indices, key="t01-1", at=10.0, register="r1"):
    return [Act(at + index / 100, register, key, index) for index in indices]


def found(sales, rows, done, receipts=()):
    return list(untruths(sales, rows, done, receipts))


class Truth(unittest.TestCase):
    def test_is_a_sale_that_was_printed_once(self):
        self.assertEqual(found([sale(Told(11, "printed"))], [row()], acts(0, 1, 2)), [])

    def test_is_a_sale_that_was_told_not_printed_and_printed_later(self):
        told = [Told(5, "not-printed"), Told(11, "printed")]
        self.assertEqual(found([sale(*told)], [row()], acts(0, 1, 2)), [])

    def test_is_a_part_or_a_doubt_with_a_true_interval(self):
        self.assertEqual(found([sale(Told(11, "part", 3, 2, 2))], [row("part")], acts(0, 1)), [])
        doubt = [sale(Told(11, "unknown", 3, 1, 2))]
        self.assertEqual(found(doubt, [row("unknown", "in-doubt")], acts(0, 1)), [])


class Untruth(unittest.TestCase):
    def expect(self, text, *case):
        self.assertTrue(any(text in wrong for wrong in found(*case)), found(*case))

    def test_is_a_command_twice(self):
        self.expect("twice on the tape", [sale(Told(11, "printed"))], [row()], acts(0, 1, 2, 0))

    def test_is_a_command_left_out(self):
        self.expect("no beginning", [sale(Told(11, "part", 3, 2, 2))], [row("part")], acts(0, 2))

    def test_is_another_register(self):
        self.expect("another register", [sale(Told(11, "printed"))], [row()], acts(0, 1, 2, register="r2"))

    def test_is_printed_and_lost(self):
        self.expect("told printed, and 0 of 3", [sale(Told(11, "printed"))], [row()], [])

    def test_is_not_printed_when_some_of_it_was(self):
        self.expect("told not-printed, when 1", [sale(Told(11, "not-printed"))],
                    [row("not-printed", "failed")], acts(0))

    def test_is_withdrawn_and_printed(self):
        self.expect("told withdrawn", [sale(Told(11, "not-printed", withdrawn=True))],
                    [row("not-printed", "failed", withdrawn=True)], acts(0, 1, 2))

    def test_is_a_part_that_is_all(self):
        self.expect("told part", [sale(Told(11, "part", 3, 2, 2))], [row("part")], acts(0, 1, 2))

    def test_is_an_interval_without_what_is_on_the_tape(self):
        self.expect("told 1 to 2 of 3", [sale(Told(11, "unknown", 3, 1, 2))],
                    [row("unknown", "in-doubt")], acts(0, 1, 2))

    def test_is_a_key_that_the_journal_lacks(self):
        self.expect("not in the journal", [sale(Told(11, "not-printed"))], [], [])

    def test_is_a_key_of_nobody(self):
        self.expect("no till's", [], [row()], [])

    def test_is_a_job_that_never_ends(self):
        self.expect("sending for ever", [sale(Told(11, "printed"))], [row("", "sending")], acts(0, 1, 2))

    def test_is_a_sale_without_an_answer(self):
        self.expect("never answered", [sale()], [row()], acts(0, 1, 2))

    def test_is_another_verdict_in_the_journal(self):
        self.expect("the journal has unknown", [sale(Told(11, "printed"))], [row("unknown", "in-doubt")],
                    acts(0, 1, 2))

    def test_is_two_sales_on_one_receipt(self):
        self.expect("on one receipt", [], [], [], [{"t01-1", "t02-1"}])

    def test_is_the_last_before_the_first(self):
        sales = [sale(Told(30, "printed")), sale(Told(30, "printed"), key="t01-2", cents=100002)]
        rows = [row(place=1), row(key="t01-2", place=2)]
        done = acts(0, 1, 2, at=20.0) + acts(0, 1, 2, key="t01-2", at=10.0)
        self.expect("t01-2 was printed before t01-1", sales, rows, done)


class Tape(unittest.TestCase):
    def command(self, name, payload, accepted=True):
        return {"event": "command", "command": name, "payload": payload, "accepted": accepted, "at": 1.0}

    def test_is_read_by_the_names_of_items_and_the_amount_of_the_tender(self):
        item = ("01 " + b"t01-1 b".hex(" ") + " 20 20 00 10 00 00 00 01 25")
        done = acts_of("r1", [self.command("EnterFiscalMode", "01"), self.command("DeptSale", item, False),
                              self.command("DeptSale", item), self.command("Tender", "01 00 10 00 01")], [sale()])
        self.assertEqual([(act.key, act.index) for act in done], [("t01-1", 1), ("t01-1", 2)])

    def test_is_cut_into_receipts(self):
        lines = ["t01-1 a   2.50", "TOTAL 2.50", "RECEIPT 000001", "t02-1 a  1.00"]
        self.assertEqual(receipts_of({"event": "printed", "line": line} for line in lines), [{"t01-1"}, {"t02-1"}])


unittest.main()

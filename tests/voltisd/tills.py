#!/usr/bin/env python3
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""Tills that sell at once, on emulated registers, by the service and beside it, while whatever can be killed is
killed and the lines are spoilt. They repeat blindly, with the same key, until they have an answer. Then everything
that they were told, and the journal, is compared with the tapes.

    tills.py --programs build/release                      a sample
    tills.py --programs build/release --seconds 600        the whole size
"""

import argparse
import calendar
import collections
import contextlib
import http.client
import itertools
import json
import pathlib
import random
import subprocess
import sys
import tempfile
import threading
import time

sys.dont_write_bytecode = True

import shop
import truth

# Both families of frames, and no habits: with those a line of one fault can have a command done twice, which is
# told as a doubt (docs/reliability.md). The time-outs are short, so that a late answer is one.
TIMEOUTS = "CmdTimeout_Default=700\nCmdTimeout_Tender=700\nCmdTimeout_Report=700\n"
REGISTERS = {
    "r1": (["--model", "lynx"], ""),
    "r2": (["--model", "margay"], "ProtocolFormatting=1\n"),
    "r3": (["--model", "puma"], ""),
}
SPOILT = [f"at {frame} {number} {action}" for frame in ("data", "eof", "response") for number in (1, 2, 3)
          for action in ("lose", "corrupt", "cut")]
SPOILT += ["at status lose", "at status corrupt", "at status-eof lose", "at data nak", "at data 2 nak", "at eof nak",
           "busy 2", "late 1s", "late 2s", "at response 3 late 1s", "refuse", "at data 3 refuse", "power off for 1s",
           "power off at data 2 for 1s", "power off after data 2 for 1s", "at eof 2 power off for 1s",
           "paper out for 1s", "paper out after 3 lines for 1s"]


class Counts(collections.Counter):
    def __init__(self):
        super().__init__()
        self._lock = threading.Lock()

    def one(self, what):
        with self._lock:
            self[what] += 1


class NotYet(Exception):
    """There is no answer that is worth anything."""


# --- tills --------------------------------------------------------------------------------------------------


def _told(job):
    commands = (job.get("outcome") or {}).get("commands") or {}
    return truth.Told(time.time(), job["verdict"], commands.get("of") or 0, commands.get("at_least") or 0,
                      commands.get("at_most") or 0, job.get("withdrawn_by") is not None)


class ByHttp:
    def __init__(self, place, by_socket, token):
        self._place, self._by_socket = place, by_socket
        self._headers = {"Authorization": "Bearer " + token} if token else {}

    def hand_in(self, sale, content, random_):
        if random_.random() < 0.05:
            self._hang_up(sale, content)
            raise NotYet("hung up")
        wait = random_.choice([0, 1, 5, 20])
        status, answer = self._ask("POST", f"/v1/registers/{sale.register}/jobs", {
            "Idempotency-Key": sale.key, "Prefer": f"wait={wait}", "Content-Type": "text/plain"}, content)
        if status == 202 and random_.random() < 0.1:
            self._ask("DELETE", "/v1/jobs/" + sale.key, {}, None)
            raise NotYet("withdrawn, perhaps")
        if status in (202, 409, 429):
            raise NotYet(status)
        job = answer if status == 200 else answer.get("job")
        if job is None and status == 503:
            raise NotYet(answer)
        if job is None or not job.get("verdict"):
            raise ValueError(f"{sale.key}: {status} {answer}")
        return _told(job)

    def _ask(self, method, path, headers, content):
        return self._place.ask(method, path, headers | self._headers, content, self._by_socket)

    # The request arrives, and nobody is there for the answer.
    def _hang_up(self, sale, content):
        with contextlib.closing(self._place.connect(self._by_socket)) as connection:
            connection.request("POST", f"/v1/registers/{sale.register}/jobs", content, {
                "Idempotency-Key": sale.key, "Prefer": "wait=9", "Content-Type": "text/plain"} | self._headers)


class ByRun:
    """`voltisctl run` beside the service, or by it."""

    def __init__(self, place, name):
        self._place = place
        self._file = place.folder / f"{name}.txt"

    def hand_in(self, sale, content, _):
        self._file.write_bytes(content)
        process = shop.Started(self._place.programs / "voltisctl", "run", "--json", *self._place.places(),
                               "--register", sale.register, "--wait", 10, "--job", sale.key, self._file,
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        try:
            answer = json.loads(process.communicate(timeout=90)[0].partition("\n")[0])
        except json.JSONDecodeError:  # it was killed
            raise NotYet("killed") from None
        # Nobody can tell yet; the next call can.
        if answer["verdict"] == truth.UNKNOWN and not answer["replayed"]:
            raise NotYet(answer)
        if answer["verdict"] == truth.NOT_PRINTED and "another content" in str(answer):
            raise ValueError(f"{sale.key}: {answer}")
        return _told({"verdict": answer["verdict"], "outcome": answer})


class Till(threading.Thread):
    """Sells until the end, and asks for each sale until it has an answer."""

    def __init__(self, number, way, chance, end, cents, defect, counts):
        super().__init__(name=f"t{number:02}")
        self._way, self._random, self._end, self._cents = way, chance, end, cents
        self._defect, self._counts = defect, counts
        self.sales = []
        self.failure = None

    def run(self):
        try:
            while not self._end.is_set():
                self._sell()
                self._end.wait(self._random.uniform(0, 1))
        except Exception as failure:  # told by main
            self.failure = f"{self.name}: {failure!r}"

    def _new_sale(self):
        items = self._random.randint(1, 4)
        sale = truth.Sale(f"{self.name}-{len(self.sales) + 1}", self._random.choice(list(REGISTERS)), items + 1,
                          next(self._cents), isinstance(self._way, ByRun))
        lines = [f'SALE: DEPTNR={self._random.randint(1, 9)}; NAME="{sale.key} {chr(ord("a") + item)}"; '
                 f"PRICE={self._random.randint(1, 900) / 100}; QNTY=1\n" for item in range(items)]
        lines.append(f"TENDER: MEDIA=CASH; AMOUNT={sale.cents / 100:.2f}\n")
        if self._random.random() < 0.02:
            lines.append("TENDRE: AMOUNT=1\n")
        self.sales.append(sale)
        return sale, "".join(lines).encode()

    def _sell(self):
        sale, content = self._new_sale()
        attempts = self._random.randint(1, 4)  # before it is given up as not printed
        while True:
            try:
                sale.told.append(self._way.hand_in(self._asked(sale), content, self._random))
                if sale.told[-1].verdict != truth.NOT_PRINTED or sale.told[-1].withdrawn:
                    return
                attempts -= 1
                if attempts == 0:
                    return
                self._counts.one("tried again after not-printed")
            except (NotYet, OSError, http.client.HTTPException, json.JSONDecodeError):
                pass
            sale.repeats += 1
            time.sleep(self._random.uniform(0, 0.3))

    # With the defect, the client has a new key for each repeat.
    def _asked(self, sale):
        if not self._defect or sale.repeats == 0:
            return sale
        return truth.Sale(f"{sale.key}.{sale.repeats}", sale.register, sale.commands, sale.cents)


# --- trouble ------------------------------------------------------------------------------------------------


class Chaos(threading.Thread):
    def __init__(self, place, chance, end, pause, counts):
        super().__init__(name="chaos")
        self._place, self._random, self._end, self._pause, self._counts = place, chance, end, pause, counts
        self.failure = None

    def run(self):
        try:
            while not self._end.wait(self._random.uniform(0, 2 * self._pause)):
                self._random.choices([self._kill_service, self._kill_worker, self._kill_driver, self._kill_run,
                                      self._kill_all, self._spoil_line], [4, 2, 4, 1, 1, 8])[0]()
                shop.bury()
        except Exception as failure:  # told by main
            self.failure = f"chaos: {failure!r}"

    def _kill_service(self):
        self._place.kill_service()
        self._counts.one("voltisd killed")
        time.sleep(self._random.choice([0, 0, 0.3, 1]))
        self._place.start()

    def _kill_those(self, what, choose):
        found = [process for process in shop.descendants() if choose(shop.command_of(process))]
        if found and shop.kill(self._random.choice(found)):
            self._counts.one(what)

    def _kill_worker(self):
        self._kill_those("worker killed", lambda words: "--worker" in words)

    # Not the sandbox around it, whose command line has the driver's name as well.
    def _kill_driver(self):
        self._kill_those("driver killed", lambda words: words and words[0].endswith("/voltis"))

    def _kill_run(self):
        self._kill_those("voltisctl run killed", lambda words: words[1:2] == ["run"])

    # As when the machine's power fails, but for what the disk would lose.
    def _kill_all(self):
        self._place.kill_service()
        for process in shop.descendants():
            words = shop.command_of(process)
            if words and pathlib.Path(words[0]).name in ("voltisd", "voltis", "bwrap"):
                shop.kill(process)
        self._counts.one("all killed")
        self._place.start()

    def _spoil_line(self):
        self._random.choice(self._place.registers).type(self._random.choice(SPOILT))
        self._counts.one("spoilt line")


class Cashier(threading.Thread):
    """Finishes receipts that were left open, and has the register forget what it complains of by turning the key,
    once it is known what became of the job."""

    def __init__(self, place, end):
        super().__init__(name="cashier")
        self._place, self._end = place, end

    def run(self):
        while not self._end.wait(0.5):
            with contextlib.suppress(shop.sqlite3.Error):
                sending = {row["register"] for row in
                           self._place.rows("SELECT register FROM jobs WHERE state = 'sending'")}
                for register in self._place.registers:
                    if register.name not in sending:
                        self._look_after(register)

    def _look_after(self, register):
        register.type("finish")
        last = self._place.rows("SELECT verdict FROM jobs WHERE register = ? AND ended != '' ORDER BY ended DESC LIMIT 1",
                                register.name)
        if last and last[0]["verdict"] != truth.PRINTED:
            register.type("key off\nkey reg")


# --- the end ------------------------------------------------------------------------------------------------


def _rows(place):
    return [truth.Row(row["id"], row["state"], row["verdict"], row["place"], bool(row["withdrawn_by"]))
            for row in place.rows("SELECT id, state, verdict, place, withdrawn_by FROM jobs")]


def _seconds(text):
    return calendar.timegm(time.strptime(text[:19], "%Y-%m-%dT%H:%M:%S")) + float(text[19:-1])


def _events(register):
    events = register.events("command", "printed", "fault")
    for event in events:
        event["at"] = _seconds(event["time"])
    return events


def _count_proofs(place, sales, counts):
    """What has happened so far of that without which a run proves nothing."""
    told = [told for sale in sales for told in sale.told]
    counts["faults that happened"] = sum(len(register.events("fault")) for register in place.registers)
    counts["told printed"] = sum(one.verdict == truth.PRINTED for one in told)
    counts["told an interval in doubt"] = sum(one.verdict in (truth.PART, truth.UNKNOWN) and one.of > 0 for one in told)


def _missing(counts):
    needed = ("voltisd killed", "faults that happened", "told printed", "told an interval in doubt")
    return [what for what in needed if counts[what] == 0]


def _judge(place, sales, counts):
    acts, receipts = [], []
    for register in place.registers:
        events = _events(register)
        acts += truth.acts_of(register.name, events, sales)
        receipts += truth.receipts_of(events)
    rows = _rows(place)
    counts["keys"] = len(sales)
    counts["requests repeated"] = sum(sale.repeats for sale in sales)
    counts["in the queue at the end"] = sum(row.state in ("received", "sending") for row in rows)
    for sale in sales:
        counts["last told " + ("withdrawn" if sale.told and sale.told[-1].withdrawn else
                               sale.told[-1].verdict if sale.told else "nothing")] += 1
    return list(truth.untruths(sales, rows, acts, receipts))


def _sell(place, arguments, counts):
    chance = random.Random(arguments.seed)
    begin, end, closing = time.monotonic(), threading.Event(), threading.Event()
    tokens = [place.token(f"till{number}", "--scope", "print") for number in range(arguments.tills)]
    place.start()
    ways = itertools.cycle([lambda name, token: ByHttp(place, False, token), lambda name, token: ByHttp(place, True, ""),
                            lambda name, token: ByHttp(place, False, token), lambda name, token: ByHttp(place, False, token),
                            lambda name, token: ByRun(place, name)])
    cents = itertools.count(100001)
    tills = [Till(number, way(f"t{number:02}", token), random.Random(chance.random()), end, cents, arguments.defect, counts)
             for number, (way, token) in enumerate(zip(ways, tokens), start=1)]
    chaos = Chaos(place, random.Random(chance.random()), end, arguments.pause, counts)
    cashier = Cashier(place, closing)
    for thread in (*tills, chaos, cashier):
        thread.start()

    def is_enough():
        seconds = time.monotonic() - begin
        if seconds < arguments.seconds or arguments.defect:
            return seconds >= arguments.seconds
        _count_proofs(place, [sale for till in tills for sale in till.sales], counts)
        return not _missing(counts) or seconds > arguments.seconds + arguments.patience

    # A machine that is slow needs longer to come by all that is to be seen.
    while not is_enough() and chaos.is_alive() and all(map(Till.is_alive, tills)):
        time.sleep(0.2)
    end.set()
    chaos.join()
    for register in place.registers:
        register.type("no faults")
    for till in tills:
        till.join(arguments.patience)
    failures = [f"{till.name} still waits for {till.sales[-1].key}" for till in tills if till.is_alive()]
    failures += [thread.failure for thread in (*tills, chaos) if thread.failure]
    open_jobs = "SELECT count(*) FROM jobs WHERE state IN ('received', 'sending')"
    shop.wait_until(lambda: place.rows(open_jobs)[0][0] == 0, arguments.patience)
    closing.set()
    cashier.join()
    if place.end_service() != 0:
        failures.append("voltisd did not end well")
    return [sale for till in tills for sale in till.sales], failures


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--programs", required=True, type=lambda path: pathlib.Path(path).resolve())
    parser.add_argument("--seconds", type=float, default=12)
    parser.add_argument("--tills", type=int, default=20)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--pause", type=float, default=1.0, help="seconds from one trouble to the next, on average")
    parser.add_argument("--speed", type=int, default=19200, help="bits a second on the lines")
    parser.add_argument("--patience", type=float, default=120,
                        help="seconds more until all was seen that is to be, and at the end until all have their answers")
    parser.add_argument("--defect", action="store_true", help="the tills forget their keys: this must be found")
    parser.add_argument("--keep", help="a new folder for all files, which stay")
    arguments = parser.parse_args()
    shop.adopt_orphans()
    counts = Counts()
    with contextlib.ExitStack() as stack:
        folder = arguments.keep or stack.enter_context(tempfile.TemporaryDirectory(prefix="tills-"))
        place = stack.enter_context(shop.Shop(folder, arguments.programs, "LongestQueue=12\n"))
        for name, (options, settings) in REGISTERS.items():
            place.add_register(name, [*options, "--line-speed", arguments.speed], TIMEOUTS + settings)
        sales, failures = _sell(place, arguments, counts)
        failures += _judge(place, sales, counts)
        _count_proofs(place, sales, counts)
    if not arguments.defect:
        failures += [f"{what}: not once, so that nothing is proved" for what in _missing(counts)]
    print(f"tills, seed {arguments.seed}: {arguments.tills} tills, {arguments.seconds:.0f} s; " +
          ", ".join(f"{what}: {number}" for what, number in sorted(counts.items())) + f"; {len(failures)} untrue")
    for failure in failures[:20]:
        print("  " + failure)
    sys.stdout.flush()
    # Of the defect, what counts is what a shop would see of it: paper.
    is_well = any("twice on the tape" in failure for failure in failures) if arguments.defect else not failures
    return 0 if is_well else 1


if __name__ == "__main__":
    sys.exit(main())

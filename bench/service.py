#!/usr/bin/env python3
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""Measures the service as it is shipped. scripts/bench --service builds and runs it; docs/performance.md says what is
measured and how.

    service.py --programs FOLDER --load PROGRAM [--only WORD] [--quick]
"""

import argparse
import contextlib
import json
import os
import pathlib
import socket
import sqlite3
import statistics
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests/voltisd"))

import shop

SALE = "".join(f'SALE: DEPTNR=1; NAME="Item {n}"; PRICE=12.34; QNTY=1\n' for n in range(10)) + "TENDER\n"
RATES = "RatePerAddress=100000\nRatePerToken=100000\n"
PACE = ["--line-speed", "19200"]
REQUESTS = 3000  # a second


class Report:
    def __init__(self):
        self.all_held = True

    def add(self, name, value, unit, limit=None, note="", at_least=False):
        held = limit is None or (value >= limit if at_least else value <= limit)
        self.all_held &= held
        bound = "" if limit is None else f"{'at least' if at_least else 'at most'} {limit:g}"
        print(f"{name:62} {value:10.3f} {unit:6} {bound:16} {'' if held else 'MISSED'}  {note}", flush=True)


@contextlib.contextmanager
def new_shop(programs, more=""):
    with tempfile.TemporaryDirectory(prefix="voltisd-bench-") as folder, shop.Shop(folder, programs, RATES + more) as place:
        yield place


def processor_seconds(process):
    """Of all its threads, to the nanosecond."""
    return sum(int((task / "schedstat").read_text().split()[0])
               for task in pathlib.Path(f"/proc/{process}/task").iterdir()) / 1e9


def worker_of(place):
    return next(process for process in shop.descendants(place.service.pid)
                if "--worker" in shop.command_of(process))


# --- a sale -------------------------------------------------------------------------------------------------


class Caller:
    """On a connection that stays, as a till has it."""

    def __init__(self, place, token):
        self._headers = {"Authorization": "Bearer " + token, "Content-Type": "text/plain", "Prefer": "wait=60"}
        self._connection = place.connect(by_socket=False, timeout=120)
        self._sales = 0

    def sell(self, register):
        """Seconds from POST to verdict."""
        self._sales += 1
        begin = time.perf_counter()
        self._connection.request("POST", f"/v1/registers/{register}/jobs", SALE,
                                 self._headers | {"Idempotency-Key": f"sale {self._sales}"})
        answer = self._connection.getresponse()
        body = answer.read()
        took = time.perf_counter() - begin
        if answer.status != 200:
            raise RuntimeError(f"{answer.status}: {body}")
        return took


def run_directly(place, register, number):
    """Seconds that `voltisctl run` takes."""
    file = place.folder / "sale.txt"
    file.write_text(SALE)
    words = [place.programs / "voltisctl", "run", *place.places(), "--register", register, "--job", f"run {number}", file]
    nowhere = [(os.POSIX_SPAWN_OPEN, 1, "/dev/null", os.O_WRONLY, 0)]
    begin = time.perf_counter()
    process = os.posix_spawn(words[0], [str(word) for word in words], os.environ, file_actions=nowhere)
    _, status = os.waitpid(process, 0)
    took = time.perf_counter() - begin
    if status != 0:
        raise RuntimeError("voltisctl run failed")
    return took


def measure_verdict(arguments, report):
    rounds = 3 if arguments.quick else 41
    with new_shop(arguments.programs) as place, new_shop(arguments.programs) as other:
        place.add_register("r1", PACE)
        other.add_register("r1", PACE)  # of no service
        caller = Caller(place, place.token("till", "--scope", "print"))
        place.start()
        caller.sell("r1"), run_directly(other, "r1", 0)
        pairs = [(caller.sell("r1"), run_directly(other, "r1", number)) for number in range(1, rounds + 1)]
    posts, runs = zip(*pairs)
    report.add("POST to verdict against voltisctl run", statistics.median(post / run for post, run in pairs), "times", 1.05,
               f"{statistics.median(posts) * 1000:.1f} ms and {statistics.median(runs) * 1000:.1f} ms")


def measure_load(arguments, report):
    seconds = 2 if arguments.quick else 6
    rounds = 1 if arguments.quick else 7
    alone, beside, told, used = [], [], [], []
    with new_shop(arguments.programs) as place:
        place.add_register("r1", PACE)
        token = place.token("till", "--scope", "print,read")
        place.start()
        caller = Caller(place, token)
        caller.sell("r1")
        for _ in range(rounds):
            end = time.monotonic() + seconds
            while time.monotonic() < end:
                alone.append(caller.sell("r1"))
            before = processor_seconds(place.service.pid)
            load = shop.Started(arguments.load, place.port, "/v1/jobs/sale%201", token, REQUESTS, seconds, 16,
                                stdout=subprocess.PIPE, text=True)
            while load.poll() is None:
                took = caller.sell("r1")
                if load.poll() is None:  # all of it beside the load
                    beside.append(took)
            told.append(json.loads(load.stdout.read()))
            used.append((processor_seconds(place.service.pid) - before) / told[-1]["answers"])
    if any(one["good"] != one["answers"] for one in told):
        raise RuntimeError(f"not every answer was a job: {told}")
    report.add("GET /v1/jobs/{id} answered beside a printing register",
               statistics.median(one["answers"] / one["seconds"] for one in told), "a s", 0.99 * REQUESTS,
               f"median {statistics.median(one['median_ms'] for one in told):.2f} ms, "
               f"99 % {statistics.median(one['p99_ms'] for one in told):.2f} ms", at_least=True)
    report.add("the receipt meanwhile, against the receipt alone",
               statistics.median(beside) / statistics.median(alone), "times", 1.03,
               f"{statistics.median(beside) * 1000:.1f} ms of {len(beside)}, {statistics.median(alone) * 1000:.1f} ms of {len(alone)}")
    report.add("processor time of voltisd for one such answer", statistics.median(used) * 1e6, "us")


# --- the start ----------------------------------------------------------------------------------------------


def _start(place):
    """Milliseconds from the start of the program until it tells systemd that it is ready, and of the processor."""
    path = str(place.folder / "notify")
    with contextlib.suppress(FileNotFoundError):
        os.unlink(path)
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as told, open(place.folder / "said", "a") as said:
        told.bind(path)
        told.settimeout(60)
        begin = time.perf_counter()
        place.service = shop.Started(place.programs / "voltisd", *place.places(), stderr=said,
                                     env=os.environ | {"NOTIFY_SOCKET": path})
        while b"READY=1" not in told.recv(4096):
            pass
        took = time.perf_counter() - begin
        return took * 1000, processor_seconds(place.service.pid) * 1000


def _add_starts(report, name, place, rounds):
    starts = []
    for _ in range(rounds):
        starts.append(_start(place))
        place.end_service()
    times, used = zip(*starts)
    report.add(name, statistics.median(times), "ms", 100, f"{statistics.median(used):.1f} ms of the processor")


def measure_start(arguments, report):
    with new_shop(arguments.programs) as place:
        place.add_register("r1")
        _add_starts(report, "start to ready", place, 2 if arguments.quick else 15)


# --- a full journal -----------------------------------------------------------------------------------------


def _columns(database, table):
    return [row[1] for row in database.execute(f"PRAGMA table_info({table})")]


def _copies(database, table, number, replacements, condition):
    """So many copies of a row, with n from 1 on in the replacements."""
    columns = _columns(database, table)
    values = ", ".join(replacements.get(column, column) for column in columns)
    database.execute(f"WITH RECURSIVE counting(n) AS (VALUES(1) UNION ALL SELECT n + 1 FROM counting WHERE n < {number}) "
                     f"INSERT INTO {table}({', '.join(columns)}) SELECT {values} FROM counting, {table} WHERE {condition}")


def fill_journal(place, number):
    """Copies what a printed sale has left, events and all; one in fifty failed, and ten are in doubt."""
    place.start()
    token = place.token("first", "--scope", "print")
    Caller(place, token).sell("r1")
    place.end_service()
    with contextlib.closing(sqlite3.connect(place.database, isolation_level=None)) as database:
        database.execute("PRAGMA synchronous = OFF")
        database.execute("BEGIN")
        triggers = database.execute("SELECT name, sql FROM sqlite_schema WHERE type = 'trigger'").fetchall()
        for name, _ in triggers:  # their rows are copied instead
            database.execute(f"DROP TRIGGER {name}")
        ended = "strftime('%Y-%m-%dT%H:%M:%fZ', 'now', '-' || (2 * 86400.0 * ({number} - n) / {number}) || ' seconds')"
        ended = ended.replace("{number}", str(number))
        state = "CASE WHEN n % ({number} / 10) = 0 THEN 'in-doubt' WHEN n % 50 = 0 THEN 'failed' ELSE 'done' END"
        state = state.replace("{number}", str(number))
        verdict = state.replace("'in-doubt'", "'unknown'").replace("'failed'", "'not-printed'").replace("'done'", "'printed'")
        _copies(database, "jobs", number, {"number": "number + n", "id": "'job ' || n", "received": ended, "ended": ended,
                                           "register": "'r' || (1 + n % 3)", "state": state, "verdict": verdict,
                                           "place": "place + n"}, "number = 1")
        _copies(database, "events", number, {"number": "3 * n + number", "job": "job + n", "register": "'r' || (1 + n % 3)",
                                             "at": ended,
                                             "state": f"CASE state WHEN 'done' THEN {state} ELSE state END",
                                             "verdict": f"CASE state WHEN 'done' THEN {verdict} ELSE verdict END"}, "job = 1")
        database.execute("INSERT OR REPLACE INTO counts(register, result, jobs, last, ended) SELECT register, "
                         "verdict, count(*), max(number), max(ended) FROM jobs GROUP BY register, verdict")
        for _, sql in triggers:
            database.execute(sql)
        database.execute("COMMIT")
        database.execute("PRAGMA wal_checkpoint(TRUNCATE)")


def _add_registers(place):
    for name in ("r1", "r2", "r3"):
        place.add_register(name)


def _look(place):
    """What a technician, a till and a monitor ask for."""
    for path in ("/", "/v1/jobs?limit=500", "/v1/jobs/job%2077", "/v1/registers", "/metrics", "/v1/jobs?state=in-doubt",
                 "/v1/jobs/job%2077/receipt.svg"):
        status, answer = place.ask("GET", path, {"Accept": "text/html" if path == "/" else "*/*"})
        if status != 200:
            raise RuntimeError(f"{path}: {status} {answer}")


def measure_memory(arguments, report):
    number = 2_000 if arguments.quick else 100_000
    with new_shop(arguments.programs) as place:
        _add_registers(place)
        fill_journal(place, number)
        _add_starts(report, f"start to ready with {number} jobs", place, 2 if arguments.quick else 15)
        place.start()
        for _ in range(20):
            _look(place)
        report.add(f"resident with {number} jobs, voltisd", shop.resident_kb(place.service.pid) / 1024, "MB", 24)
        report.add("resident, the worker of a register", shop.resident_kb(worker_of(place)) / 1024, "MB")


def measure_page(arguments, report):
    number = 5_000 if arguments.quick else 1_000_000
    with new_shop(arguments.programs) as place:
        _add_registers(place)
        fill_journal(place, number)
        place.start()
        with contextlib.closing(place.connect()) as connection:
            def look():
                begin = time.perf_counter()
                connection.request("GET", "/", headers={"Accept": "text/html"})
                answer = connection.getresponse()
                text = answer.read()
                if answer.status != 200 or b"r3" not in text:
                    raise RuntimeError(f"{answer.status}: {text[:500]}")
                return time.perf_counter() - begin
            look()
            rounds = 20 if arguments.quick else 200
            before = processor_seconds(place.service.pid)
            times = [look() for _ in range(rounds)]
            used = (processor_seconds(place.service.pid) - before) / rounds
        report.add(f"the page's first screen with {number} jobs, all of it", statistics.median(times) * 1000, "ms", 10,
                   f"{used * 1000:.2f} ms of the processor")
        _look(place)
        report.add(f"resident with {number} jobs, voltisd", shop.resident_kb(place.service.pid) / 1024, "MB")


MEASURES = {"verdict": measure_verdict, "load": measure_load, "start": measure_start, "memory": measure_memory,
            "page": measure_page}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--programs", required=True, type=lambda path: pathlib.Path(path).resolve())
    parser.add_argument("--load", required=True, type=lambda path: pathlib.Path(path).resolve())
    parser.add_argument("--only", choices=MEASURES)
    parser.add_argument("--quick", action="store_true", help="everything small: whether it works; judges nothing")
    arguments = parser.parse_args()
    shop.adopt_orphans()
    report = Report()
    for name, measure in MEASURES.items():
        if arguments.only in (None, name):
            measure(arguments, report)
    return 0 if report.all_held or arguments.quick else 1


if __name__ == "__main__":
    sys.exit(main())

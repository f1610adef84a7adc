#!/usr/bin/env python3
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""Requests that no client would make, at the sockets of the shipped service: each is answered or its connection
closed, memory stays bounded, the register hears nothing, and a sale is printed afterwards.

    bad_requests.py --programs build/release                                   a sample
    bad_requests.py --programs build/release --count 10000 --until-closed      the whole size
"""

import argparse
import collections
import contextlib
import pathlib
import random
import re
import select
import socket
import sys
import tempfile
import time

sys.dont_write_bytecode = True

import shop

SALE = b'SALE: DEPTNR=1; NAME="Apple tart"; PRICE=2.50; QNTY=2\nTENDER: AMOUNT=5\n'
MISTAKE = b"SALE: DEPTNR=first\n"  # so that nothing is sent, even if such a job is taken
# Of the service, in seconds: for a first line, and for a whole request.
IDLE, RECEIVE = 30, 15
SLACK = 15
MOST_GROWTH_KB = 16 * 1024
MOST_PEAK_KB = 16 * 1024  # at any time, also beside idle connections
SLOW = 40
IDLE_CONNECTIONS = 2000


# --- what is sent -------------------------------------------------------------------------------------------


class Generator:
    """By a seed. Tokens: one may only read, one may print; what comes with the latter has no key, or no body that
    could be a command file."""

    PIECES = [b"\r\n", b"\n", b"\r", b" ", b":", b"\0", b"%c0%af", b"%", b"\xff", b"\xed\xa0\x80", b"\r\n\r\n",
              b"Content-Length: 5\r\n", b"Content-Length: 99999999999999999999\r\n", b"Transfer-Encoding: chunked\r\n",
              b"Host: b\r\n", b"0\r\n\r\n", b"Expect: 100-continue\r\n", b" HTTP/1.1\r\n", b"-1", b"/../", b"a" * 20000,
              b"GET / HTTP/1.1\r\n\r\n", b"Connection: upgrade\r\n", b"Range: bytes=0-\r\n"]
    PATHS = ["/", "/v1/jobs", "/v1/jobs/x", "/v1/jobs/by-number/1", "/v1/registers", "/v1/registers/r1",
             "/openapi.json", "/metrics", "/healthz", "/login", "/page.css", "/v1/jobs/x/receipt.svg",
             "/v1/jobs?limit=500&state=done", "/v1/registers/r1/check", "/v1/registers/%2e%2e/jobs"]
    BODIES = [("text/plain; charset=utf-8", b"\xc3\x28" + MISTAKE), ("text/plain; charset=utf-16", MISTAKE),
              ("text/plain; charset=no-such", MISTAKE), ("application/json", b'{"content": "SALE", "encoding": "no-such-encoding"}'),
              ("application/json", b'{"content": 7}'), ("application/json", b"[" * 30000), ("application/json", b"\xff\xfe{"),
              ("application/json", b'{"content": "' + b"\\u0000" * 400 + b'", "encoding": "no-such-encoding"}'),
              ("application/json", b'{"content": "U0FMRQ=", "encoding": "base64"}'), ("image/png", MISTAKE),
              ("multipart/form-data; boundary=x", b"--x\r\n\r\n" + MISTAKE + b"\r\n--x--"),
              ("application/x-www-form-urlencoded", b"token=" + b"%" * 500), ("text/plain", b"a" * 65537)]

    def __init__(self, seed, reader, printer):
        self._random = random.Random(seed)
        self._reader, self._printer = reader, printer

    def next(self):
        make = self._random.choice([self._spoilt, self._spoilt, self._body, self._huge, self._endless, self._many_headers])
        return make()

    def _head(self, method, path, token, *headers):
        lines = [f"{method} {path} HTTP/1.1", "Host: localhost", f"Authorization: Bearer {token}", *headers]
        return ("\r\n".join(lines) + "\r\n\r\n").encode()

    # A good request of a caller who may only read, spoilt in a few places.
    def _spoilt(self):
        path = self._random.choice(self.PATHS)
        text = self._head(self._random.choice(["GET", "HEAD", "POST", "DELETE", "OPTIONS", "PUT", "BREW"]), path,
                          self._reader, "Idempotency-Key: a key", f"Content-Length: {len(MISTAKE)}") + MISTAKE
        for _ in range(self._random.randrange(5)):
            at = self._random.randrange(len(text) + 1)
            change = self._random.randrange(3)
            if change == 0:
                text = text[:at] + self._random.choice(self.PIECES) + text[at:]
            elif change == 1:
                text = text[:at] + text[at + self._random.randrange(20):]
            else:
                begin = self._random.randrange(len(text) + 1)
                text = text[:at] + text[begin:begin + self._random.randrange(40)] + text[at:]
        return text

    def _body(self):
        kind, body = self._random.choice(self.BODIES)
        key = self._random.choice(["a key", "", "\x7f", "k" * 201, "\u00ff"])
        return self._head("POST", "/v1/registers/r1/jobs", self._printer, f"Idempotency-Key: {key}",
                          f"Content-Type: {kind}", f"Content-Length: {len(body)}") + body

    def _huge(self):
        return self._head("POST", "/v1/registers/r1/jobs", self._printer, "Idempotency-Key: huge",
                          "Content-Type: text/plain", f"Content-Length: {10 ** 10}") + b"a" * 200000

    def _endless(self):
        return self._head("POST", "/v1/registers/r1/jobs", self._printer, "Idempotency-Key: endless",
                          "Content-Type: text/plain", "Transfer-Encoding: chunked") + b"1000\r\n" + b"a" * 4096 + b"\r\n" \
            + b"1000\r\n" * 20

    def _many_headers(self):
        return self._head("GET", "/v1/jobs", self._reader, *(f"X-{n}: {'b' * self._random.randrange(200)}"
                                                           for n in range(self._random.randrange(200))))


# --- connections --------------------------------------------------------------------------------------------


class Connection:
    def __init__(self, place, address, to_send, half_close=True):
        self.received = b""
        self.is_closed = False
        self._left = to_send
        self._half_close = half_close
        if address is None:
            self.socket = socket.socket(socket.AF_UNIX)
            self.socket.connect(str(place.socket))
        else:
            self.socket = socket.socket()
            self.socket.bind((address, 0))
            self.socket.connect(("127.0.0.1", place.port))
        self.socket.setblocking(False)

    def go_on(self, pieces=1 << 30):
        """Sends and reads what is possible."""
        with contextlib.suppress(BlockingIOError):
            try:
                if self._left:
                    self._left = self._left[self.socket.send(self._left[:pieces]):]
                    if not self._left and self._half_close:
                        self.socket.shutdown(socket.SHUT_WR)
            except BlockingIOError:
                pass
            except OSError:  # nobody reads any more, and there may be an answer all the same
                self._left = b""
            while data := self.socket.recv(65536):
                self.received += data
            self.is_closed = True
        return self.is_closed

    def is_answered(self):
        head, end, body = self.received.partition(b"\r\n\r\n")
        length = re.search(rb"\r\nContent-Length: (\d+)", head)
        return bool(end) and (length is None or len(body) >= int(length[1]))

    def turn(self, pieces=1 << 30):
        try:
            self.go_on(pieces)
        except OSError:
            self.is_closed = True
        if self.is_closed:
            self.socket.close()


def _address(chance):
    """Of this machine; each counts by itself for the limits of an address. None: the Unix socket."""
    if chance.random() < 0.2:
        return None
    return f"127.{chance.randrange(1, 250)}.{chance.randrange(250)}.{chance.randrange(1, 250)}"


def _await(connections, seconds, answered=False):
    """Until each is closed, or answered; how many are neither then."""
    end = time.monotonic() + seconds
    waiting = list(connections)
    while waiting and time.monotonic() < end:
        for connection in waiting:
            connection.turn()
        waiting = [connection for connection in waiting
                   if not connection.is_closed and not (answered and connection.is_answered())]
        if waiting:
            select.select([connection.socket for connection in waiting[:200]], [], [], 0.02)
    return len(waiting)


# --- the proof ----------------------------------------------------------------------------------------------


class Failures(list):
    def expect(self, condition, text):
        if not condition:
            self.append(text)


def _requests(place, generator, chance, count, counts, failures):
    batch = min(160, count)
    for _ in range(0, count, batch):
        connections = [Connection(place, _address(chance), generator.next()) for _ in range(batch)]
        open_ = _await(connections, RECEIVE + SLACK, answered=True)
        failures.expect(open_ == 0, f"{open_} connections neither answered nor closed")
        for connection in connections:
            connection.socket.close()
            status = connection.received[9:12].decode(errors="replace")
            counts[status if connection.received.startswith(b"HTTP/1.") else
                   "closed" if not connection.received else "no HTTP"] += 1


def _slow(place, chance, reader):
    head = f"GET /v1/jobs HTTP/1.1\r\nHost: localhost\r\nAuthorization: Bearer {reader}\r\nX-Slow: {'a' * 5000}\r\n\r\n"
    return [Connection(place, _address(chance), head.encode(), half_close=False) for _ in range(SLOW)]


def _idle(place):
    """By many addresses; those for whom there is no room are closed at once."""
    connections = []
    for number in range(IDLE_CONNECTIONS):
        with contextlib.suppress(OSError):
            connections.append(Connection(place, f"127.77.{number // 200}.{number % 200 + 1}", b""))
    return connections


def _descriptors(process):
    return len(list(pathlib.Path(f"/proc/{process}/fd").iterdir()))


def _descriptors_for_a_second(process):
    for _ in range(20):
        yield _descriptors(process)
        time.sleep(0.05)


def _expect_quiet(place, register, at_start, resident, failures):
    process = place.service.pid
    failures.expect(shop.wait_until(lambda: _descriptors(process) <= at_start, 10),
                    f"voltisd keeps descriptors of connections that have ended, beside its {at_start}")
    grown = shop.resident_kb(process) - resident
    failures.expect(grown <= MOST_GROWTH_KB, f"voltisd has grown by {grown} kB")
    failures.expect(not register.events("frame", "command", "printed"), "the register has heard something")
    return grown


def _prove(place, arguments, counts, failures):
    register = place.add_register("r1", ["--model", "lynx"])
    reader = place.token("reader", "--scope", "read")
    printer = place.token("printer", "--scope", "print")
    place.start()
    process = place.service.pid
    at_start = min(_descriptors_for_a_second(process))  # the connection that asked whether it answers ends meanwhile
    chance = random.Random(arguments.seed)
    generator = Generator(arguments.seed, reader, printer)
    _requests(place, generator, chance, 200, collections.Counter(), failures)  # what is allocated once, is now
    before = shop.resident_kb(process)

    slow = _slow(place, chance, reader)
    for _ in range(5):
        for connection in slow:
            connection.turn(pieces=3)
    _requests(place, generator, chance, arguments.count, counts, failures)
    idle = _idle(place)
    failures.expect(place.answers(), "the Unix socket does not answer beside idle connections")
    peak = shop.resident_kb(process, "VmHWM") - before
    failures.expect(peak <= MOST_PEAK_KB, f"voltisd has grown by {peak} kB at most, beside idle connections")
    counts["idle, closed at once"] = sum(connection.go_on() for connection in idle)
    if arguments.until_closed:
        slow_open = _await([connection for connection in slow if not connection.is_closed], RECEIVE + SLACK)
        idle_open = _await([connection for connection in idle if not connection.is_closed], IDLE + SLACK)
        failures.expect(slow_open + idle_open == 0, f"{slow_open} slow and {idle_open} idle connections stay open")
    for connection in slow + idle:
        connection.socket.close()
    failures.expect(place.service.poll() is None and place.answers(), "voltisd does not answer any more")
    grown = _expect_quiet(place, register, at_start, before, failures)
    status, job = place.ask("POST", "/v1/registers/r1/jobs",
                            {"Authorization": "Bearer " + printer, "Idempotency-Key": "sale 1", "Prefer": "wait=30",
                             "Content-Type": "text/plain"}, SALE, by_socket=False)
    failures.expect(status == 200 and job["verdict"] == "printed", f"the sale afterwards: {status} {job}")
    receipts = [event for event in register.events("printed") if event["line"].startswith("RECEIPT ")]
    failures.expect(len(receipts) == 1, f"{len(receipts)} receipts instead of 1")
    return before, peak, grown


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--programs", required=True, type=lambda path: pathlib.Path(path).resolve())
    parser.add_argument("--count", type=int, default=2000)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--until-closed", action="store_true", help="wait until slow and idle connections are closed")
    arguments = parser.parse_args()
    shop.adopt_orphans()
    counts, failures = collections.Counter(), Failures()
    with tempfile.TemporaryDirectory(prefix="bad-requests-") as folder, shop.Shop(folder, arguments.programs) as place:
        begin, peak, grown = _prove(place, arguments, counts, failures)
    failures.expect(not any(status in counts for status in ("500", "no HTTP")), "an answer that is none")
    failures.expect(counts["400"] > arguments.count / 10, "hardly any request was judged")
    print(f"bad_requests, seed {arguments.seed}: {arguments.count} requests; " +
          ", ".join(f"{what}: {number}" for what, number in sorted(counts.items())) +
          f"; resident {begin} kB before, {peak:+} kB at most, with {IDLE_CONNECTIONS} idle connections, {grown:+} kB after; "
          f"{len(failures)} failures")
    for failure in failures[:20]:
        print("  " + failure)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())

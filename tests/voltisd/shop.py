# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""A shop in a folder: emulated registers on pseudo terminals, and the service in front of them, all as they are
shipped. Only processes that were started from here are ever signalled."""

import contextlib
import ctypes
import grp
import http.client
import json
import os
import pathlib
import random
import signal
import socket
import sqlite3
import subprocess
import sys
import threading
import time

PR_SET_CHILD_SUBREAPER = 36


def wait_until(condition, seconds=30, pause=0.02):
    """False: it has not become true in so long."""
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(pause)
    return True


# --- processes ----------------------------------------------------------------------------------------------


def adopt_orphans():
    """From now on a process whose parent was killed is a child of this one, so that descendants() finds it; and
    SIGTERM ends this program in order."""
    ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("ended by SIGTERM"))


def _children(process):
    try:
        return [int(word) for task in pathlib.Path(f"/proc/{process}/task").iterdir()
                for word in (task / "children").read_text().split()]
    except OSError:  # it has ended meanwhile
        return []


def descendants(process=None):
    found = []
    waiting = [process or os.getpid()]
    while waiting:
        children = _children(waiting.pop())
        found += children
        waiting += children
    return found


def command_of(process):
    """The words of its command line; none: it has ended."""
    with contextlib.suppress(OSError):
        return pathlib.Path(f"/proc/{process}/cmdline").read_bytes().decode(errors="replace").split("\0")[:-1]
    return []


def kill(process):
    """As kill -9. False: it has ended before."""
    try:
        handle = os.pidfd_open(process)
        try:
            if process not in descendants():  # the number may be another process's by now
                return False
            signal.pidfd_send_signal(handle, signal.SIGKILL)
            return True
        finally:
            os.close(handle)
    except OSError:
        return False


def bury():
    """Takes note of orphans that have ended; those that somebody waits for are left alone."""
    for child in _children(os.getpid()):
        with contextlib.suppress(OSError, IndexError):
            state = pathlib.Path(f"/proc/{child}/stat").read_text().rsplit(")", 1)[1].split()[0]
            if state == "Z" and child not in Started.processes:
                os.waitpid(child, os.WNOHANG)


class Started(subprocess.Popen):
    processes = set()

    def __init__(self, *words, **more):
        super().__init__([str(word) for word in words], **more)
        self.processes.add(self.pid)


def resident_kb(process, what="VmRSS"):
    """VmHWM: the most it ever was."""
    text = pathlib.Path(f"/proc/{process}/status").read_text()
    return int(text.split(what + ":")[1].split()[0])


# --- the registers ------------------------------------------------------------------------------------------


class Register:
    """An emulated register, with what it does in a journal of its own, and its desk at standard input."""

    def __init__(self, name, folder, programs, options=()):
        self.name = name
        self.link = folder / f"{name}.line"
        self.journal = folder / f"{name}.events"
        self._tape = open(folder / f"{name}.tape", "w")
        self._lock = threading.Lock()
        self._process = Started(programs / "voltisctl", "emulate", "--link", self.link, "--journal", self.journal,
                                *options, stdin=subprocess.PIPE, stdout=self._tape, stderr=self._tape, text=True)
        if not wait_until(self.link.exists):
            raise RuntimeError(f"register {name} did not start")

    def type(self, line):
        with self._lock:
            self._process.stdin.write(line + "\n")
            self._process.stdin.flush()

    def events(self, *kinds):
        with open(self.journal) as lines:
            return [event for event in map(json.loads, filter(lambda line: line.endswith("\n"), lines))
                    if event["event"] in kinds]

    def end(self):
        self._process.terminate()
        self._process.wait()
        self._tape.close()


# --- the service --------------------------------------------------------------------------------------------


class UnixConnection(http.client.HTTPConnection):
    def __init__(self, path, timeout):
        super().__init__("localhost", timeout=timeout)
        self._path = str(path)

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.settimeout(self.timeout)
        self.sock.connect(self._path)


def _free_port():
    """Not one that a caller's own end may be given while the service is dead."""
    lowest = int(pathlib.Path("/proc/sys/net/ipv4/ip_local_port_range").read_text().split()[0])
    for _ in range(1000):
        port = random.randrange(min(10000, lowest // 2), lowest)
        with contextlib.suppress(OSError), socket.socket() as taken:
            taken.bind(("127.0.0.1", port))
            return port
    raise RuntimeError(f"no free port below {lowest}")


class Shop:
    """The configuration, the registers and the service. Ends all of its processes at the end."""

    def __init__(self, folder, programs, more=""):
        self.folder = pathlib.Path(folder)
        self.programs = pathlib.Path(programs)
        self.registers = []
        self.port = _free_port()
        self.socket = self.folder / "voltisd.sock"
        self.database = self.folder / "state/journal.db"
        self.service = None
        for name in ("etc/registers", "locks", "logs", "state"):
            (self.folder / name).mkdir(parents=True)
        (self.folder / "etc/voltisd.conf").write_text(
            f"[voltisd]\nSocket={self.socket}\nGroup={grp.getgrgid(os.getegid()).gr_name}\n"
            f"Tokens={self.folder}/etc/tokens\nListen=127.0.0.1:{self.port}\n{more}")

    def add_register(self, name, options=(), settings=""):
        register = Register(name, self.folder, self.programs, options)
        (self.folder / f"etc/registers/{name}.ini").write_text(
            f"[VOLTIS]\nDevice={register.link}\nStandardLog=1\nDbgErrorLog=2\n{settings}")
        self.registers.append(register)
        return register

    def token(self, name, *options):
        told = subprocess.run([self.programs / "voltisctl", "token", "add", name, *options,
                               "--file", self.folder / "etc/tokens"],
                              check=True, capture_output=True, text=True).stdout
        return next(word for word in told.split() if word.startswith("vt_"))

    def places(self):
        """The options that voltisd and voltisctl run have in common."""
        return ("--config", self.folder / "etc", "--locks", self.folder / "locks", "--logs", self.folder / "logs",
                "--journal", self.database, "--driver", self.programs / "voltis")

    def connect(self, by_socket=True, timeout=30):
        if by_socket:
            return UnixConnection(self.socket, timeout)
        return http.client.HTTPConnection("127.0.0.1", self.port, timeout=timeout)

    def ask(self, method, path, headers=None, body=None, by_socket=True, timeout=30):
        """The status and what the JSON of the answer says."""
        with contextlib.closing(self.connect(by_socket, timeout)) as connection:
            connection.request(method, path, body, headers or {})
            answer = connection.getresponse()
            text = answer.read()
        is_json = "json" in (answer.getheader("Content-Type") or "")
        return answer.status, json.loads(text) if is_json else text.decode()

    def answers(self):
        try:
            return self.ask("GET", "/healthz", timeout=5)[0] == 200
        except (OSError, http.client.HTTPException):
            return False

    def start(self):
        with open(self.folder / "said", "a") as said:
            self.service = Started(self.programs / "voltisd", *self.places(), stderr=said, stdout=said)
        if not wait_until(lambda: self.answers() or self.service.poll() is not None) or not self.answers():
            raise RuntimeError("voltisd did not start: " + (self.folder / "said").read_text()[-500:])

    def kill_service(self):
        self.service.kill()
        self.service.wait()

    def end_service(self):
        """After the receipts that are being printed. Its exit code."""
        self.service.terminate()
        return self.service.wait(120)

    def rows(self, sql, *values):
        """Of the journal, without writing to it."""
        with contextlib.closing(sqlite3.connect(f"file:{self.database}?mode=ro", uri=True, timeout=30)) as database:
            database.row_factory = sqlite3.Row
            return database.execute(sql, values).fetchall()

    def __enter__(self):
        return self

    def __exit__(self, *failure):
        if self.service is not None and self.service.poll() is None:
            self.kill_service()
        for register in self.registers:
            register.end()
        for process in descendants():  # workers and drivers end by themselves, but nobody waits for that here
            kill(process)

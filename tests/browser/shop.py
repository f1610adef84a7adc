# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""A shop for a test: an emulated register, the shipped service, and those who call it."""

import functools
import http.client
import http.server
import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import threading
import time

TREE = pathlib.Path(__file__).resolve().parents[2]
EXAMPLES = TREE / "examples/http"
LONGEST_TIMEOUT = 19500  # what is longer wraps (docs/reference.md, "Pauses and time-outs")
SALE = 'SALE: DEPTNR=1; NAME="{}"; AMOUNT={}\nTENDER\n'


class Shop:
    """cmd_timeout is how long the driver waits for an answer of the register, in ms, and retries how often it asks
    again."""

    def __init__(self, build, origins="", cmd_timeout=300, retries=3):
        assert cmd_timeout <= LONGEST_TIMEOUT
        self.programs = pathlib.Path(build)
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="voltis-browser."))
        for name in ("etc", "etc/registers", "locks", "logs", "state"):
            (self.folder / name).mkdir()
        (self.folder / "etc/voltis.ini").write_text(
            f"[VOLTIS]\nDevice={self.folder}/register\nStandardLog=1\nDbgErrorLog=1\n"
            f"CmdTimeout_Default={cmd_timeout}\nCmdTimeout_Tender={cmd_timeout}\n"
            f"LostResponseRetryCount={retries}\n")
        (self.folder / "etc/voltisd.conf").write_text(
            f"[voltisd]\nListen=127.0.0.1:0\nSocket=none\nTokens={self.folder}/etc/tokens\n"
            f"Origins={origins}\n")
        self.tape = ""
        self.register = self.start("voltisctl", "emulate", "--strict", "--model", "lynx", "--link",
                                   self.folder / "register")
        self.register.stdout.readline()
        self.token = self.add_token("anna", "print,read,resolve")
        self.till = self.add_token("till-1", "print")
        self.service = self.start("voltisd", "--config", self.folder / "etc", "--journal",
                                  self.folder / "state/journal.db", "--locks", self.folder / "locks",
                                  "--logs", self.folder / "logs")
        self.address = re.search(r"127\.0\.0\.1:[0-9]+", self.read_serving()).group()
        self.url = f"http://{self.address}"
        # A pipe that nobody reads would stop the service in the end.
        self.log = threading.Thread(target=self.service.stdout.read, daemon=True)
        self.log.start()

    def start(self, program, *arguments):
        return subprocess.Popen([self.programs / program, *map(str, arguments)], stdin=subprocess.PIPE,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)

    def read_serving(self):
        said = ""
        for line in self.service.stdout:
            if line.startswith("serving "):
                return line
            said += line
        raise AssertionError(f"the service never serves: {said}")

    def close(self):
        for process in (self.service, self.register):
            process.kill()
            process.wait()
        self.log.join()
        for process in (self.service, self.register):
            process.stdin.close()
            process.stdout.close()
        shutil.rmtree(self.folder, ignore_errors=True)  # a worker may end a moment later

    def add_token(self, name, scopes):
        said = subprocess.run([self.programs / "voltisctl", "token", "add", name, "--scope", scopes, "--file",
                               self.folder / "etc/tokens"], capture_output=True, text=True, check=True)
        return re.search(r"vt_\S+", said.stdout).group()

    def type(self, text):
        """At the register; returns when it has obeyed."""
        self.register.stdin.write(text + "\n")
        self.register.stdin.flush()
        self.read_tape(r"^(done|ordered: .*)\n$")

    def read_tape(self, wanted):
        for line in self.register.stdout:
            self.tape += line
            if re.match(wanted, line):
                return
        raise AssertionError(f"the register never says {wanted}: {self.tape}")

    def ask(self, method, path, body=None, token=None, **headers):
        """The status and the JSON of the answer."""
        connection = http.client.HTTPConnection(self.address, timeout=90)
        headers = {name.replace("_", "-"): value for name, value in headers.items()}
        headers["Authorization"] = "Bearer " + (token or self.token)
        connection.request(method, path, body, headers)
        response = connection.getresponse()
        text = response.read()
        connection.close()
        return response.status, json.loads(text)

    def hand_in(self, key, text, wait=60):
        return self.ask("POST", "/v1/registers/default/jobs", text.encode(), self.till, Idempotency_Key=key,
                        Content_Type="text/plain; charset=utf-8", Prefer=f"wait={wait}")

    def job(self, key):
        return self.ask("GET", "/v1/jobs/" + key)[1]

    def hand_in_and_wait_until_it_prints(self, key, text):
        self.hand_in(key, text, wait=0)
        while self.job(key)["state"] != "sending":
            time.sleep(0.05)

    def receipts(self):
        """How many are on the paper, when the shop is closed."""
        self.register.terminate()
        self.tape += self.register.stdout.read()
        return len(re.findall("^RECEIPT ", self.tape, re.MULTILINE))


class Quiet(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *arguments):
        pass


class WebServer:
    """The pages of examples/http/, at an origin of their own."""

    def __init__(self):
        handler = functools.partial(Quiet, directory=os.fspath(EXAMPLES))
        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
        self.port = self.server.server_address[1]
        self.thread = threading.Thread(target=self.server.serve_forever)
        self.thread.start()

    def close(self):
        self.server.shutdown()
        self.thread.join()
        self.server.server_close()

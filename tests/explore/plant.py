#!/usr/bin/env python3
# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later
"""Writes EcrExchange.cpp with a deliberate fault in it.

    plant.py FAULT SOURCE RESULT

Ends with 1 when the source no longer has the place of the fault.
"""

import pathlib
import sys

SEND_EOF = "if (result == ACK) SendEof();"
STATUS_READ = "        FailIfRefused();\n"
STATUS_INVALID = "        ecrStatusValid = false;"

FAULTS = {
    "NONE": [],
    # A retry under another number is another command to the register.
    "NUMBER": [(STATUS_READ, STATUS_READ + "        ++outFrameSeqNumber;\n        payload = BUF();\n"
                "        payload.AddWORD(outFrameSeqNumber);\n        payload.AddBUF(cmdData);\n")],
    "STATUS": [(STATUS_READ, "        if (false) FailIfRefused();\n")],
    "EOF": [(SEND_EOF, "if (result == ACK || result == NAK) SendEof();")],
    "FLAG": [(STATUS_INVALID, ""), (SEND_EOF, SEND_EOF + "\n        ecrStatusValid = false;")],
}


def main():
    fault, source, result = sys.argv[1:]
    text = pathlib.Path(source).read_text()
    for old, new in FAULTS[fault]:
        if text.count(old) != 1:
            sys.exit(f"{source}: no single place for the fault {fault}: {old.strip()}")
        text = text.replace(old, new)
    pathlib.Path(result).write_text(text)


main()

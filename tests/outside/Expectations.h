// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Command files of these tests, and what the driver writes in answer to them.
#pragma once

#include <gmock/gmock.h>

#include <cstdint>
#include <string>

#include "tests/support/Shop.h"

inline const std::string sale =
    "SALE: DEPTNR=1; NAME=\"Apple tart\"; PRICE=2.50; QNTY=2\n"
    "TENDER\n";
inline const std::string openReceipt =
    "SALE: DEPTNR=1; PRICE=2.50; QNTY=2\n"
    "CONTINUE\n";
inline const std::string badSyntax = "SALE DEPTNR=1\n";
inline const std::string unknownArticle =
    "SALE: DEPTNR=1; NAME=Tart; PRICE=2.50; QNTY=1\n"
    "SALE: PLUNR=999\n"
    "TENDER\n";

inline const std::string wrongCommandLine = "Wrong command line format (use /? for help)";
inline const std::string marker = "voltis.started.tmp";

/// The result file after a receipt was closed, or left open, and after a failure.
std::string ClosedResult(int receipt);
std::string OpenResult(int receipt, const std::string& subtotal);
std::string FailedResult(int resultCode, const std::string& message, int errorCode);
inline const std::string soldResult = "[VOLTIS]\nResultCode=0\nMessage=OK\nLastReceiptNo=1";

/// Date and time in front of a line of a log, as a regular expression.
inline const std::string timeStamp = R"(\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d\.\d{3}  )";
/// A path as a regular expression that matches it alone.
std::string Literally(const std::string& text);
/// What every run puts into both logs first, as a regular expression.
std::string StartPattern(const std::string& arguments);
/// The whole text.
bool Matches(const std::string& text, const std::string& pattern);

/// The register refuses a command outside any run, so that its status carries the code.
void LeaveResultCode(Shop& shop, std::uint8_t code);

MATCHER(NothingOfARun, "") {
    *result_listener << "exit code " << arg.exitCode << ", printed '" << arg.out << "'";
    return !arg.result && arg.journal.empty() && arg.tape.empty();
}

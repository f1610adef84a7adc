// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the caller of a job is told: the verdict, an exit code and the text of the result file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "companion/verdict/Account.h"

namespace job {

/// The exit codes of a job, those of the driver's contract.
inline constexpr int exitPrinted = 0;
inline constexpr int exitMistake = 1;     // in the command file; nothing was printed
inline constexpr int exitNotPrinted = 2;  // for another reason
inline constexpr int exitUncertain = 101;

/// The error code of a result file that says "Outcome unknown".
inline constexpr int errorOutcomeUnknown = 160;

/// What the driver itself said. Without a result file the message is empty.
struct DriverWord {
    int exitCode = 0;
    std::string message = {};
    std::optional<int> errorCode = {};  // the old format of the result file has none
    std::string result = {};            // the result file
};

struct ReceiptState {
    std::optional<std::uint32_t> before, after;  // numbers
    std::optional<bool> open;
    std::optional<std::int64_t> subtotal;  // of an open one, in hundredths
};

struct Outcome {
    std::optional<std::string> id;
    std::string registerName;
    verdict::Kind verdict = verdict::Kind::NotPrinted;
    /// Commands. Of an unknown outcome, 0 of 0 is any number of any.
    std::size_t of = 0, atLeast = 0, atMost = 0;
    std::optional<int> nextLine;  // of the first that is not certain
    ReceiptState receipt;
    int exitCode = exitNotPrinted;
    std::optional<DriverWord> driver;  // none: it was not started
    std::string reason;                // why it was not, or what else is to be said
    std::string result;                // the text for the result file
    bool replayed = false;
    double seconds = 0;
};

/// "printed", "not-printed", "part", "unknown".
const char* Word(verdict::Kind kind);

/// What the driver said, read from its result file in either format.
DriverWord ReadResult(int exitCode, const std::string& result);

/// Settles exitCode and result from what is known: 0 only when all was printed, 1 and 2 only when
/// nothing was. Where that is the driver's own exit code, the result file is the driver's own.
void Settle(Outcome& outcome, bool oldFormat);
/// Of a job that nothing was sent of, for that reason.
void SettleUnsent(Outcome& outcome, bool oldFormat, int exitCode, int errorCode,
                  const std::string& reason);

/// Nobody can tell what became of any command.
void BeInDoubt(Outcome& outcome, bool oldFormat);

/// The outcome as a JSON object in one line; what is not UTF-8 is replaced.
std::string ToJson(const Outcome& outcome);
/// For the journal: the same with what a replay needs besides.
std::string ToRecord(const Outcome& outcome);
/// Throws std::runtime_error for what is no record.
Outcome FromRecord(const std::string& record);

}  // namespace job

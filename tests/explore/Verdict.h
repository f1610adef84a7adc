// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What became of one run of the driver, measured by what the register did.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "emulator/Register.h"
#include "tests/explore/Driver.h"
#include "tests/faults/Actions.h"

namespace explore {

using faults::Action;
using faults::Actions;
using faults::ActionsSince;

/// What may be untrue about a run.
enum class Issue : std::uint8_t {
    Missing,      // 0, but a command of the file was not done
    Twice,        // a command was done more often than the file has it
    Alien,        // something was done that the file does not have
    NoBeginning,  // not 0, and what was done is no beginning of the file
    Acted,        // 1 or 2, but a command was done
    Written,      // 1 or 2, but a data frame of a fiscal command was written
    Unwritten,    // 101, but none was written
    Refused,      // 0, but the register refused a command in between
    OutOfTurn,    // an end-of-file frame followed a data frame whose answer was no ACK
    WrongNumber,  // 0, but the receipt number in the result file is not the register's
    WrongResult,  // the result file and the exit code differ, or an exit code that does not exist
    Escaped,      // an exception that is none of the driver's
    Untold,       // the verdict told from the conversation is wrong
};
inline constexpr std::size_t issueCount = 13;
std::string_view IssueWord(Issue issue);

/// What companion/verdict tells of a run; where it is not asked, None.
struct Verdicts {
    enum class Known : std::uint8_t { None, Certain, Unknown };
    Known atOnce = Known::None;      // from the conversation alone
    Known withStatus = Known::None;  // when the register then answers one status read

    bool operator==(const Verdicts&) const = default;
    auto operator<=>(const Verdicts&) const = default;
};

/// The end of one run.
struct RunEnd {
    int exitCode = -1;
    unsigned issues = 0;  // a bit for each Issue
    Verdicts verdicts = {};

    bool Has(Issue issue) const { return (issues >> static_cast<unsigned>(issue) & 1U) != 0; }
    void Add(Issue issue) { issues |= 1U << static_cast<unsigned>(issue); }
    bool operator==(const RunEnd&) const = default;
    auto operator<=>(const RunEnd&) const = default;
};

/// What the driver told, and what was seen of it.
struct Told {
    DriverEnd end;
    std::string result;        // the result file
    bool fiscalFrame = false;  // a data frame of a command of the file was written
    bool refusal = false;      // the register refused a command
    bool outOfTurn = false;    // see Issue::OutOfTurn
};

RunEnd Judge(const Told& told, const Actions& done, const Actions& expected,
             const emulator::Register& device);

/// The runs of one schedule.
using Ending = std::vector<RunEnd>;
/// "2, then 0 (a command is missing)"
std::string EndingText(const Ending& ending);

}  // namespace explore

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The runs of a debug log as conversations that can be held again.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "emulator/Wire.h"

namespace replay {

/// What was written, or read, by one call of the driver.
struct Step {
    bool fromCaller = false;
    emulator::Bytes bytes;
    std::chrono::milliseconds time{0};  // that the driver waited for it
    int line = 0;                       // of the log

    bool operator==(const Step&) const = default;
};

/// A line that is not as the driver writes it.
struct DamagedLine {
    int number = 0;  // in the log, from 1
    std::string text;
};

struct LoggedRun {
    std::string started;      // as its first line has it: date and time; empty: there is none
    std::vector<Step> steps;  // begins with one of the caller; bytes that were thrown away are
                              // left out, for the log does not tell when they came
    bool cut = false;         // the log ends in the middle of a step, which is left out
    std::optional<DamagedLine> damage;  // the first one: the run cannot be replayed
};

/// All runs that have a conversation, in the order of the log.
std::vector<LoggedRun> ReadRuns(std::string_view log);

}  // namespace replay

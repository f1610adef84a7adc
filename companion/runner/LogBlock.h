// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// One run's lines in a log that other runs write, too.
#pragma once

#include <cstddef>
#include <string>

namespace runner {

/// The block of the run with that command file, from the empty line before "... started. Command
/// line : ..." to where the next run's block begins. Empty when there is none.
std::string LogBlock(const std::string& log, const std::string& commandFile);

/// Where the run's lines are to be expected in a log.
struct LogPlace {
    std::string log;          ///< the log's path
    std::string commandFile;  ///< as the driver's command line has it
    std::size_t from = 0;     ///< the log's size before the run
};

/// That block, read now; empty, too, when there is no log. std::runtime_error: it cannot be read.
std::string BlockAt(const LogPlace& place);

}  // namespace runner

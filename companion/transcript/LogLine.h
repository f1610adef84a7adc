// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// One line of the driver's debug log.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace transcript {

enum class LineKind : std::uint8_t {
    Block,    ///< bytes that went over the wire
    Lost,     ///< "PC<-ECR: lost", put in by hand where the driver waited in vain
    Damaged,  ///< begins as a block does and is none
    Message,  ///< with a time
    Other,    ///< a line of a command file, an empty line, or no line of a log at all
};

/// What a line says. Of the members only those of its kind have a meaning.
struct LogLine {
    LineKind kind = LineKind::Other;

    bool toRegister = false;               // Block, Damaged
    bool stale = false;                    // Block: the driver threw the bytes away
    std::optional<double> ms = {};         // Block: how long the call took
    std::vector<std::uint8_t> bytes = {};  // Block

    std::int64_t at = 0;         // Message: milliseconds of local time since 1970
    std::string_view text = {};  // Message: what follows the time; Other, Damaged: the line
};

/// Reads a line without its line feed. What it held before is replaced; its memory is used again.
void ReadLine(std::string_view text, LogLine& line);

/// The length of "22.11.2026 05:30:12.345  ", after which a message begins.
inline constexpr std::size_t timeLength = 25;

}  // namespace transcript

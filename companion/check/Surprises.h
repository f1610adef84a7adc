// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the driver accepts and does otherwise than its writer may think. docs/check.md lists the
// codes.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "FiscalCommand.h"
#include "companion/check/Lines.h"

namespace check {

struct Surprise {
    std::size_t at = 0;  // index into the line
    std::string code;
    std::string message;
};
using Surprises = std::vector<Surprise>;

/// Of any line that is a command or a piece of one, whether the driver accepts it or not.
Surprises OfLine(const Line& line);

/// False of most commands: the two functions below would find nothing.
bool MaySurprise(FiscalCommand& command, const std::string& line);

/// Of a command that the check pass accepts, whatever the model; it stays as it is. codePage is a
/// name of the driver's configuration. State must be STATE_SYNCHECK, and is so afterwards.
Surprises OfCommand(FiscalCommand& command, const std::string& line, const std::string& codePage);

/// The same for what depends on the model.
Surprises OfModel(FiscalCommand& command, const std::string& line);

/// Of the one command between two CONTINUE.
Surprise OfLoneCommand(const std::string& line);

}  // namespace check

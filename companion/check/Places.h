// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The place in a line that a message of the check pass is about.
#pragma once

#include <cstddef>
#include <string>

#include "FiscalCommand.h"

namespace check {

/// An index into the line: of the parameter's value that is wrong, of the parameter that is too
/// many, else of the command. rest is the command as the failure has left it, with the parameters
/// that were not looked at yet.
std::size_t PlaceOf(const std::string& message, const FiscalCommand& rest, const std::string& line);

}  // namespace check

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What a register is programmed with: departments, PLUs, cashiers and header lines, as JSON.
#pragma once

#include <string_view>

#include "companion/desk/Mistake.h"
#include "emulator/RegisterTypes.h"

namespace desk {

/// The configuration, which has its model, with what the program says in the place of its own.
/// Mistakes: the first thing that makes no sense.
emulator::RegisterConfig Programmed(emulator::RegisterConfig config, std::string_view program);

}  // namespace desk

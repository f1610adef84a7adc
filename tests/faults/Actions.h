// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the fault tests measure a run by: what the register did in it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "emulator/Register.h"

namespace faults {

/// Command and parameters, as the register acted on them.
struct Action {
    std::uint8_t command;
    emulator::Bytes payload;
    bool operator==(const Action&) const = default;
};
using Actions = std::vector<Action>;

/// What the register has done since its journal had that size, but for entering and leaving fiscal
/// mode.
Actions ActionsSince(const emulator::Register& device, std::size_t journalSize);

/// The actions are the first of those that were expected, or all of them.
bool IsBeginning(const Actions& actions, const Actions& expected);

/// The most frames that the driver may write in a run with so many commands on the wire, as its
/// numbers of retries (3 of each kind by default) allow.
int MostFrames(std::size_t commands);

/// Of the registers of these tests: the last receipt before the first run.
inline constexpr std::uint32_t receiptsBefore = 41;

/// What a strict register has against the driver, the first of it; nothing when that is nothing.
std::optional<std::string> Complaint(const emulator::Register& device);

}  // namespace faults

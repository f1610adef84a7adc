// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The verdict on a run, judged by what the register did.
#pragma once

#include <optional>
#include <string>

#include "companion/verdict/Account.h"
#include "tests/faults/Actions.h"
#include "tests/faults/FaultyChannel.h"

namespace faults {

/// What is wrong about the verdict that the conversation on the line leads to, by itself and when
/// the register then answers a status read; nothing when neither says what is not so. expected:
/// what the file makes the register do, in a run that enters fiscal mode first.
std::optional<std::string> WrongVerdict(FaultyLine& line, emulator::WireFamily family,
                                        const Actions& expected);

/// What is wrong about a verdict; nothing when it says nothing that is not so. expected: likewise.
std::optional<std::string> WrongAbout(const verdict::Verdict& told,
                                      const emulator::Register& device, const Actions& expected);

/// A frame was forged on the way, whether the driver took it or not, so that a wrong verdict is
/// excused.
bool Misled(const FaultyLine& line, emulator::WireFamily family);

}  // namespace faults

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the two families share. Not for other files.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "emulator/Wire.h"

namespace emulator {

std::unique_ptr<Wire> MakeOcelotWire();
std::unique_ptr<Wire> MakeMargayWire();

/// The sum of the bytes modulo 256.
std::uint8_t Sum(View bytes);

/// The byte that brings such a sum to zero.
constexpr std::uint8_t Negated(std::uint8_t sum) {
    return static_cast<std::uint8_t>(0x100 - sum);
}

/// Ack or Nak; nothing for any other code.
std::optional<Answer> AnswerOf(std::uint8_t code);
/// busy: the family's own code of Busy.
std::uint8_t CodeOf(Answer answer, std::uint8_t busy);

}  // namespace emulator

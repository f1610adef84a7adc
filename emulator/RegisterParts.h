// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the files of the register share. Not for other files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "emulator/Register.h"
#include "emulator/Wire.h"

namespace emulator {

using result::FiscalCommandError;
using result::Ok;

constexpr int mediaCount = 8;
constexpr int currencyCount = 4;
constexpr int cash = 1;  // the medium

constexpr const char* mediaNames[mediaCount] = {"CASH",     "TENDER 2", "CARD",     "TENDER 4",
                                                "TENDER 5", "TENDER 6", "TENDER 7", "TENDER 8"};

/// Packed BCD, most significant digits first; nothing when a nibble is no digit.
std::optional<std::int64_t> ReadBcd(View bytes);
void AppendBcd(Bytes& out, std::uint64_t value, std::size_t size);

/// Half away from zero.
std::int64_t DivideRounded(std::int64_t value, std::int64_t divisor);

/// "DEPARTMENT 07": what, and the number in that many digits.
std::string Numbered(const char* what, long long number, int digits);

constexpr bool InRange(std::int64_t value, std::int64_t low, std::int64_t high) {
    return low <= value && value <= high;
}

}  // namespace emulator

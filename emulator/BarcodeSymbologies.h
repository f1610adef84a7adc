// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The symbologies, one function each. Not for other files than those of the barcode reader.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "emulator/BarcodeBars.h"

namespace emulator {

/// True when the bars carry the text, which has no blanks.
using Carries = bool (*)(const Widths& bars, const std::string& text);

bool CarriesEan(const Widths& bars, const std::string& text);
bool CarriesUpcE(const Widths& bars, const std::string& text);
bool CarriesIsbn(const Widths& bars, const std::string& text);
bool CarriesCode39(const Widths& bars, const std::string& text);
bool CarriesCode93(const Widths& bars, const std::string& text);
bool CarriesCode128(const Widths& bars, const std::string& text);
bool CarriesRawCode128(const Widths& bars, const std::string& text);
bool CarriesInterleaved(const Widths& bars, const std::string& text);
bool CarriesCodabar(const Widths& bars, const std::string& text);
bool CarriesMsi(const Widths& bars, const std::string& text);
bool CarriesPlessey(const Widths& bars, const std::string& text);

/// Without blanks.
std::string Squeezed(std::string_view text);
std::string Upper(std::string text);

/// The place of the entry in a table of equal ones; std::string::npos when it is not there.
template <typename Table>
std::size_t PlaceIn(const Table& table, std::string_view entry) {
    std::size_t place = 0;
    for (const std::string_view each : table) {
        if (each == entry) return place;
        ++place;
    }
    return std::string::npos;
}

/// Two wide of five elements: the place of a digit in "0123456789"; npos for another pattern. What
/// Code 39 and interleaved 2 of 5 have in common.
std::size_t TwoOfFive(std::string_view fiveElements);

}  // namespace emulator

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "emulator/BarcodeReader.h"

#include <algorithm>
#include <optional>
#include <string>

#include "emulator/BarcodeBars.h"
#include "emulator/BarcodeSymbologies.h"

namespace emulator {

namespace {

// A new symbology is a row here and its function.
constexpr Carries symbologies[] = {CarriesEan,        CarriesUpcE,        CarriesIsbn,
                                   CarriesCode39,     CarriesCode93,      CarriesCode128,
                                   CarriesRawCode128, CarriesInterleaved, CarriesCodabar,
                                   CarriesMsi,        CarriesPlessey};

}  // namespace

bool BarsCarry(View raster, View text) {
    const std::optional<Widths> bars = WidthsOf(raster);
    if (!bars) return false;
    const std::string squeezed = Squeezed(std::string(text.begin(), text.end()));
    return std::any_of(std::begin(symbologies), std::end(symbologies),
                       [&](Carries carries) { return carries(*bars, squeezed); });
}

std::string Squeezed(std::string_view text) {
    std::string squeezed(text);
    std::erase(squeezed, ' ');
    return squeezed;
}

std::string Upper(std::string text) {
    for (char& c : text)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return text;
}

}  // namespace emulator

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "emulator/BarcodeBars.h"

#include <numeric>
#include <vector>

namespace emulator {

namespace {

constexpr std::size_t widest = 9;  // modules of one element: the gap before an add-on

bool Burnt(View raster, std::size_t dot) {
    return (raster[dot / 8] >> (dot % 8) & 1) != 0;
}

// In dots, the margins left out.
std::vector<std::size_t> Runs(View raster) {
    std::vector<std::size_t> runs;
    bool ink = false;
    for (std::size_t dot = 0; dot < 8 * raster.size(); ++dot) {
        const bool burnt = Burnt(raster, dot);
        if (burnt != ink) {
            runs.push_back(0);
            ink = burnt;
        }
        if (!runs.empty()) ++runs.back();
    }
    if (!runs.empty() && !ink) runs.pop_back();
    return runs;
}

}  // namespace

std::optional<Widths> WidthsOf(View raster) {
    const std::vector<std::size_t> runs = Runs(raster);
    std::size_t module = 0;
    for (const std::size_t run : runs) module = std::gcd(module, run);
    Widths widths;
    for (const std::size_t run : runs) {
        if (run / module > widest) return std::nullopt;
        widths += static_cast<char>('0' + run / module);
    }
    if (widths.empty()) return std::nullopt;
    return widths;
}

bool BarReader::Skip(std::string_view elements) {
    if (rest_.substr(0, elements.size()) != elements) return false;
    rest_.remove_prefix(elements.size());
    return true;
}

std::string_view BarReader::Take(std::size_t count) {
    if (count > rest_.size()) return {};
    const std::string_view taken = rest_.substr(0, count);
    rest_.remove_prefix(count);
    return taken;
}

}  // namespace emulator

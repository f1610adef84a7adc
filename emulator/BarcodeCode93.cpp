// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Code 93: three bars and three spaces of nine modules, and two check characters.
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "emulator/BarcodeSymbologies.h"

namespace emulator {

namespace {

// In the order of their values: 0 to 9, A to Z, - . blank $ / + %, and four shifts.
constexpr std::string_view code93Elements[] = {
    "131112", "111213", "111312", "111411", "121113", "121212", "121311", "111114",
    "131211", "141111", "211113", "211212", "211311", "221112", "221211", "231111",
    "112113", "112212", "112311", "122112", "132111", "111123", "111222", "111321",
    "121122", "131121", "212112", "212211", "211122", "211221", "221121", "222111",
    "112122", "112221", "122121", "123111", "121131", "311112", "311211", "321111",
    "112131", "113121", "211131", "121221", "312111", "311121", "122211"};
constexpr std::string_view code93Characters = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ-. $/+%";
constexpr std::string_view code93Edge = "111141";

// With a letter after it, a shift means one of the other characters of ASCII.
enum Shift : std::size_t { Dollar = 43, Percent = 44, Slash = 45, Plus = 46 };

using Values = std::vector<std::size_t>;

std::optional<Values> ReadCode93Values(const Widths& widths) {
    BarReader bars(widths);
    if (!bars.Skip(code93Edge)) return std::nullopt;
    Values values;
    while (bars.Left() > code93Edge.size() + 1) {
        values.push_back(PlaceIn(code93Elements, bars.Take(6)));
        if (values.back() == std::string::npos) return std::nullopt;
    }
    if (!bars.Skip(code93Edge) || !bars.Skip("1")) return std::nullopt;
    return values;
}

// The last value is the sum of those before it, weighted 1, 2, 3 ... from the right up to limit.
bool EndsWithCheck(const Values& values, std::size_t limit) {
    std::size_t sum = 0;
    const std::size_t last = values.size() - 1;
    for (std::size_t i = 0; i < last; ++i) sum += values[i] * ((last - i - 1) % limit + 1);
    return sum % std::size(code93Elements) == values.back();
}

std::optional<char> Shifted(std::size_t shift, char letter) {
    if (letter < 'A' || letter > 'Z') return std::nullopt;
    if (shift == Dollar) return static_cast<char>(letter - 'A' + 1);
    if (shift == Plus) return static_cast<char>(letter - 'A' + 'a');
    if (shift == Slash) return letter == 'Z' ? ':' : static_cast<char>(letter - 'A' + '!');
    constexpr char afterPercent[] = "\x1B\x1C\x1D\x1E\x1F;<=>?[\\]^_{|}~\x7F\0@`\x7F\x7F\x7F";
    return afterPercent[static_cast<std::size_t>(letter - 'A')];
}

std::optional<std::string> TextOf(const Values& values) {
    std::string text;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (values[i] < code93Characters.size()) {
            text += code93Characters[values[i]];
            continue;
        }
        const std::size_t shift = values[i];
        ++i;
        if (i == values.size() || values[i] >= code93Characters.size()) return std::nullopt;
        const auto shifted = Shifted(shift, code93Characters[values[i]]);
        if (!shifted) return std::nullopt;
        text += *shifted;
    }
    return text;
}

}  // namespace

bool CarriesCode93(const Widths& bars, const std::string& text) {
    auto values = ReadCode93Values(bars);
    if (!values || values->size() < 3 || !EndsWithCheck(*values, 15)) return false;
    values->pop_back();
    if (!EndsWithCheck(*values, 20)) return false;
    values->pop_back();
    const auto read = TextOf(*values);
    return read && Squeezed(*read) == text;
}

}  // namespace emulator

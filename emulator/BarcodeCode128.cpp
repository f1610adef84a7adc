// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Code 128: three bars and three spaces of eleven modules, three sets of characters.
#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "emulator/BarcodeSymbologies.h"

namespace emulator {

namespace {

constexpr std::string_view elements[] = {
    "212222", "222122", "222221", "121223", "121322", "131222", "122213", "122312", "132212",
    "221213", "221312", "231212", "112232", "122132", "122231", "113222", "123122", "123221",
    "223211", "221132", "221231", "213212", "223112", "312131", "311222", "321122", "321221",
    "312212", "322112", "322211", "212123", "212321", "232121", "111323", "131123", "131321",
    "112313", "132113", "132311", "211313", "231113", "231311", "112133", "112331", "132131",
    "113123", "113321", "133121", "313121", "211331", "231131", "213113", "213311", "213131",
    "311123", "311321", "331121", "312113", "312311", "332111", "314111", "221411", "431111",
    "111224", "111422", "121124", "121421", "141122", "141221", "112214", "112412", "122114",
    "122411", "142112", "142211", "241211", "221114", "413111", "241112", "134111", "111242",
    "121142", "121241", "114212", "124112", "124211", "411212", "421112", "421211", "212141",
    "214121", "412121", "111143", "111341", "131141", "114113", "114311", "411113", "411311",
    "113141", "114131", "311141", "411131", "211412", "211214", "211232"};
constexpr std::string_view code128Stop = "2331112";

enum Value : std::size_t {
    Function3 = 96,
    Function2 = 97,
    OtherSet = 98,  // for one character
    ToC = 99,
    ToB = 100,  // in set B: function 4
    ToA = 101,  // in set A: function 4
    Function1 = 102,
    StartA = 103,
    StartB = 104,
    StartC = 105
};

using Values = std::vector<std::size_t>;

// From the start to the last before the check; nothing when the check is wrong.
std::optional<Values> ReadValues(const Widths& widths) {
    BarReader bars(widths);
    Values values;
    while (bars.Left() > code128Stop.size()) {
        values.push_back(PlaceIn(elements, bars.Take(6)));
        if (values.back() == std::string::npos) return std::nullopt;
    }
    if (!bars.Skip(code128Stop) || values.size() < 2) return std::nullopt;
    const std::size_t check = values.back();
    values.pop_back();
    std::size_t sum = values[0];
    for (std::size_t i = 1; i < values.size(); ++i) sum += i * values[i];
    if (sum % 103 != check) return std::nullopt;
    return values;
}

// Turns values into text, one by one. Functions have no text: bars with one are not read.
class Decoder {
  public:
    explicit Decoder(char set) : set_(set) {}

    /// False for a function.
    bool Add(std::size_t value) {
        const char set = once_ ? (set_ == 'A' ? 'B' : 'A') : set_;
        once_ = false;
        if (set == 'C' && value <= ToC) return AddPair(value);
        if (set != 'C' && value < Function3) return AddCharacter(set, value);
        return Turn(value);
    }

    const std::string& Text() const { return text_; }

  private:
    bool AddCharacter(char set, std::size_t value) {
        const bool control = set == 'A' && value >= 64;
        text_ += static_cast<char>(control ? value - 64 : value + ' ');
        return true;
    }

    bool AddPair(std::size_t value) {
        text_ += static_cast<char>('0' + value / 10);
        text_ += static_cast<char>('0' + value % 10);
        return true;
    }

    // To another set.
    bool Turn(std::size_t value) {
        const char before = set_;
        once_ = value == OtherSet;
        if (value == ToA) set_ = 'A';
        if (value == ToB) set_ = 'B';
        if (value == ToC) set_ = 'C';
        return once_ || set_ != before;
    }

    char set_;
    bool once_ = false;  // the next character is of the other set
    std::string text_;
};

// Takes one number from the front of the text, with the zeros and the sign before it.
bool TakeNumber(std::string_view& text, std::size_t number) {
    const std::string digits = std::to_string(number);
    std::string_view rest = text;
    while (!rest.empty() && rest.substr(0, digits.size()) != digits) {
        if (rest[0] != '0' && rest[0] != '+' && rest[0] != '-') return false;
        rest.remove_prefix(1);
    }
    if (rest.empty()) return false;
    text = rest.substr(digits.size());
    return true;
}

}  // namespace

bool CarriesCode128(const Widths& bars, const std::string& text) {
    const auto values = ReadValues(bars);
    if (!values || values->front() < StartA) return false;
    Decoder decoder("ABC"[values->front() - StartA]);
    const bool read = std::all_of(values->begin() + 1, values->end(),
                                  [&](std::size_t value) { return decoder.Add(value); });
    return read && Squeezed(decoder.Text()) == text;
}

// The text names the values of all elements, the start included and the check not.
bool CarriesRawCode128(const Widths& bars, const std::string& text) {
    const auto values = ReadValues(bars);
    if (!values) return false;
    std::string numbers = text;
    std::erase_if(numbers, [](char c) { return c >= '\t' && c <= '\r'; });
    std::string_view rest = numbers;
    for (const std::size_t value : *values)
        if (!TakeNumber(rest, value)) return false;
    // A last 0 may be written with several.
    return rest.empty() ||
           (values->back() == 0 && rest.find_first_not_of('0') == std::string_view::npos);
}

}  // namespace emulator

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Symbologies of narrow elements (one module) and wide ones (three): Code 39, interleaved 2 of 5,
// Codabar, MSI and Plessey.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "emulator/BarcodeSymbologies.h"

namespace emulator {

namespace {

constexpr std::string_view twoOfFive[] = {"11331", "31113", "13113", "33111", "11313",
                                          "31311", "13311", "11133", "31131", "13131"};

// --- Code 39: five bars and four spaces, a narrow gap after each character ------------------

// In the order of their values, of which 43 counts as 0; '*' begins and ends.
constexpr std::string_view code39 = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ-. $/+%*";
constexpr std::size_t modulusOfCode39 = 43;

// The bars say which of ten, the wide space which ten; four characters have three wide spaces.
struct SpaceGroup {
    std::string_view spaces;
    std::string_view characters;  // of the bar patterns of 0 to 9
};
constexpr SpaceGroup spaceGroups[] = {
    {"1311", "0123456789"}, {"1131", "JABCDEFGHI"}, {"1113", "TKLMNOPQRS"}, {"3111", "*UVWXYZ-. "}};
constexpr std::string_view threeWideSpaces[] = {"3331", "3313", "3133", "1333"};  // $ / + %

// Character by nine elements; nothing when they are none.
std::optional<char> Code39Character(std::string_view nine) {
    if (nine.size() != 9) return std::nullopt;
    std::string bars, spaces;
    for (std::size_t i = 0; i < nine.size(); ++i) (i % 2 == 0 ? bars : spaces) += nine[i];
    if (bars == "11111") {
        const std::size_t place = PlaceIn(threeWideSpaces, spaces);
        if (place == std::string::npos) return std::nullopt;
        return "$/+%"[place];
    }
    const std::size_t place = TwoOfFive(bars);
    for (const SpaceGroup& group : spaceGroups)
        if (group.spaces == spaces && place != std::string::npos) return group.characters[place];
    return std::nullopt;
}

std::optional<std::string> ReadCode39(const Widths& widths) {
    BarReader bars(widths);
    std::string characters;
    for (bool more = true; more; more = bars.Skip("1")) {
        const auto character = Code39Character(bars.Take(9));
        if (!character) return std::nullopt;
        characters += *character;
    }
    const std::size_t last = characters.size() - 1;
    if (!bars.AtEnd() || last < 2 || characters[0] != '*' || characters[last] != '*')
        return std::nullopt;
    return characters.substr(1, last - 1);
}

// Its last character is the sum of the others' values.
bool SumsUpInCode39(const std::string& characters) {
    std::size_t sum = 0;
    for (std::size_t i = 0; i + 1 < characters.size(); ++i) sum += code39.find(characters[i]);
    return code39[sum % modulusOfCode39] == characters.back();
}

// --- Interleaved 2 of 5: one digit in five bars, the next in the spaces between them --------

std::optional<std::string> ReadInterleaved(const Widths& widths) {
    BarReader bars(widths);
    if (!bars.Skip("1111")) return std::nullopt;
    std::string digits;
    while (bars.Left() > 3) {
        const std::string_view ten = bars.Take(10);
        std::string odd, even;
        for (std::size_t i = 0; i < ten.size(); ++i) (i % 2 == 0 ? odd : even) += ten[i];
        for (const std::string& five : {odd, even}) {
            const std::size_t digit = TwoOfFive(five);
            if (digit == std::string::npos) return std::nullopt;
            digits += static_cast<char>('0' + digit);
        }
    }
    if (!bars.Skip("311") || digits.empty()) return std::nullopt;
    return digits;
}

char WeightedCheck(std::string_view digits) {
    std::size_t sum = 0;
    std::size_t weight = 3;
    for (std::size_t i = digits.size(); i-- > 0; weight = 4 - weight)
        sum += static_cast<std::size_t>(digits[i] - '0') * weight;
    return static_cast<char>('0' + (10 - sum % 10) % 10);
}

// --- Codabar: seven elements, a narrow gap after each character -----------------------------

// In the order of their values. T, N, * and E are printed as A, B, C and D.
constexpr std::string_view codabar = "0123456789-$:/.+ABCDTN*E";
constexpr std::size_t firstLetter = 16, printedCharacters = 20;
constexpr std::string_view codabarElements[] = {
    "1111133", "1111331", "1113113", "3311111", "1131131", "3111131", "1311113",
    "1311311", "1331111", "3113111", "1113311", "1133111", "3111313", "3131113",
    "3131311", "1131313", "1133131", "1313113", "1113133", "1113331"};

std::optional<std::string> ReadCodabar(const Widths& widths) {
    BarReader bars(widths);
    std::string characters;
    for (bool more = true; more; more = bars.Skip("1")) {
        const std::size_t place = PlaceIn(codabarElements, bars.Take(7));
        if (place == std::string::npos) return std::nullopt;
        characters += codabar[place];
    }
    if (!bars.AtEnd()) return std::nullopt;
    return characters;
}

char AsPrinted(char c) {
    const std::size_t value = codabar.find(c);
    return value < printedCharacters ? c : codabar[firstLetter + value - printedCharacters];
}

// A text that does not begin with a letter, which '*' is not, is put between A and T.
std::string Framed(const std::string& text) {
    const bool framed = !text.empty() && text[0] >= 'A';
    return framed ? text : "A" + text + "T";
}

// Before the last character: brings the sum of the values to a multiple of 16.
std::string WithCodabarCheck(std::string characters) {
    std::size_t sum = 0;
    for (const char c : characters) sum += codabar.find(c);
    if (characters.size() > 1)
        characters.insert(characters.size() - 1, 1, codabar[(16 - sum % 16) % 16]);
    return characters;
}

// --- MSI and Plessey: a bar and a space for each bit ----------------------------------------

// The bits from start to stop as '0' and '1'; nothing when something else is there.
std::optional<std::string> ReadBits(const Widths& widths, std::string_view start,
                                    std::string_view stop) {
    BarReader bars(widths);
    if (!bars.Skip(start)) return std::nullopt;
    std::string bits;
    while (bars.Left() > stop.size()) {
        const std::string_view pair = bars.Take(2);
        if (pair != "13" && pair != "31") return std::nullopt;
        bits += pair == "31" ? '1' : '0';
    }
    if (!bars.Skip(stop)) return std::nullopt;
    return bits;
}

std::size_t FromBits(std::string_view bits, bool lowestFirst) {
    std::size_t value = 0;
    for (std::size_t i = 0; i < bits.size(); ++i) {
        const char bit = lowestFirst ? bits[bits.size() - 1 - i] : bits[i];
        value = 2 * value + (bit == '1' ? 1 : 0);
    }
    return value;
}

// Each four bits a digit of sixteen.
std::string HexDigits(std::string_view bits, bool lowestFirst) {
    std::string digits;
    for (std::size_t i = 0; i + 4 <= bits.size(); i += 4)
        digits += "0123456789ABCDEF"[FromBits(bits.substr(i, 4), lowestFirst)];
    return digits;
}

// Every second digit from the right counts twice, and of 10 and more both digits count.
char LuhnCheck(std::string_view digits) {
    int sum = 0;
    bool twice = true;
    for (std::size_t i = digits.size(); i-- > 0; twice = !twice) {
        const int value = (digits[i] - '0') * (twice ? 2 : 1);
        sum += value > 9 ? value - 9 : value;
    }
    return static_cast<char>('0' + (10 - sum % 10) % 10);
}

// What is left of the bits, eight zeros after them, divided by the generator: nothing when the
// last eight are their check.
bool DividesWithoutRest(std::string bits) {
    constexpr std::string_view generator = "111101001";
    for (std::size_t i = 0; i + generator.size() <= bits.size(); ++i) {
        if (bits[i] == '0') continue;
        for (std::size_t k = 0; k < generator.size(); ++k)
            bits[i + k] = bits[i + k] == generator[k] ? '0' : '1';
    }
    return bits.find('1') == std::string::npos;
}

}  // namespace

std::size_t TwoOfFive(std::string_view fiveElements) {
    return PlaceIn(twoOfFive, fiveElements);
}

bool CarriesCode39(const Widths& bars, const std::string& text) {
    const auto characters = ReadCode39(bars);
    if (!characters || !SumsUpInCode39(*characters)) return false;
    return Squeezed({characters->data(), characters->size() - 1}) == Upper(text);
}

// A zero before makes the number of digits even.
bool CarriesInterleaved(const Widths& bars, const std::string& text) {
    const auto digits = ReadInterleaved(bars);
    if (!digits) return false;
    const std::string data = digits->substr(0, digits->size() - 1);
    if (WeightedCheck(data) != digits->back()) return false;
    return data == text || data == "0" + text;
}

bool CarriesCodabar(const Widths& bars, const std::string& text) {
    const auto read = ReadCodabar(bars);
    const std::string characters = Framed(Upper(text));
    if (!read || characters.find_first_not_of(codabar) != std::string::npos) return false;
    std::string printed = WithCodabarCheck(characters);
    for (char& c : printed) c = AsPrinted(c);
    return *read == printed;
}

bool CarriesMsi(const Widths& bars, const std::string& text) {
    const auto bits = ReadBits(bars, "31", "131");
    if (!bits || bits->size() < 8 || bits->size() % 4 != 0) return false;
    const std::string digits = HexDigits(*bits, false);
    const std::string data = digits.substr(0, digits.size() - 1);
    return data == text && LuhnCheck(data) == digits.back();
}

bool CarriesPlessey(const Widths& bars, const std::string& text) {
    const auto bits = ReadBits(bars, "31311331", "331311313");
    if (!bits || bits->size() < 12 || bits->size() % 4 != 0) return false;
    const std::string data = HexDigits({bits->data(), bits->size() - 8}, true);
    return data == Upper(text) && DividesWithoutRest(*bits);
}

}  // namespace emulator

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// EAN, UPC and ISBN: digits of four elements in a left and a right half, and an add-on.
#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "emulator/BarcodeSymbologies.h"

namespace emulator {

namespace {

// A digit of set L begins with a space. Set G is its mirror image, set R the same widths beginning
// with a bar.
constexpr std::string_view setL[] = {"3211", "2221", "2122", "1411", "1132",
                                     "1231", "1114", "1312", "1213", "3112"};
constexpr std::string_view edge = "111", middle = "11111", endOfUpcE = "111111";
constexpr std::string_view addOnGap = "9", addOnBegin = "112", addOnSeparator = "11";

// Which set each digit is of names a digit more.
constexpr std::string_view firstDigit[] = {"LLLLLL", "LLGLGG", "LLGGLG", "LLGGGL", "LGLLGG",
                                           "LGGLLG", "LGGGLL", "LGLGLG", "LGLGGL", "LGGLGL"};
constexpr std::string_view checkOfUpcE[] = {"GGGLLL", "GGLGLL", "GGLLGL", "GGLLLG", "GLGGLL",
                                            "GLLGGL", "GLLLGG", "GLGLGL", "GLGLLG", "GLLGLG"};
constexpr std::string_view sumOfFive[] = {"GGLLL", "GLGLL", "GLLGL", "GLLLG", "LGGLL",
                                          "LLGGL", "LLLGG", "LGLGL", "LGLLG", "LLGLG"};
constexpr std::string_view sumOfTwo[] = {"LL", "LG", "GL", "GG"};

struct Digits {
    std::string digits;
    std::string sets;  // 'L' or 'G' for each
};

bool TakeDigit(BarReader& bars, Digits& taken) {
    const std::string element(bars.Take(4));
    const std::string mirrored(element.rbegin(), element.rend());
    const std::size_t inL = PlaceIn(setL, element);
    const std::size_t inG = PlaceIn(setL, mirrored);
    if (inL == std::string::npos && inG == std::string::npos) return false;
    taken.digits += static_cast<char>('0' + std::min(inL, inG));
    taken.sets += inL != std::string::npos ? 'L' : 'G';
    return true;
}

std::optional<Digits> TakeDigits(BarReader& bars, std::size_t count) {
    Digits taken;
    while (taken.digits.size() < count)
        if (!TakeDigit(bars, taken)) return std::nullopt;
    return taken;
}

// The weights are outer, inner, outer ... from the right.
std::size_t WeightedSum(std::string_view digits, std::size_t outer, std::size_t inner) {
    std::size_t sum = 0;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        const bool atOuter = (digits.size() - i) % 2 == 1;
        sum += static_cast<std::size_t>(digits[i] - '0') * (atOuter ? outer : inner);
    }
    return sum;
}

char CheckDigit(std::string_view digits) {
    return static_cast<char>('0' + (10 - WeightedSum(digits, 3, 1) % 10) % 10);
}

bool EndsWithItsCheckDigit(std::string_view digits) {
    return CheckDigit(digits.substr(0, digits.size() - 1)) == digits.back();
}

// Two or five digits between separators, each digit of the set that their sum asks for.
std::optional<std::string> TakeAddOn(BarReader& bars) {
    if (bars.AtEnd()) return "";
    if (!bars.Skip(addOnGap) || !bars.Skip(addOnBegin)) return std::nullopt;
    Digits taken;
    do {
        if (!TakeDigit(bars, taken)) return std::nullopt;
    } while (bars.Skip(addOnSeparator));
    const std::string& digits = taken.digits;
    if (!bars.AtEnd()) return std::nullopt;
    if (digits.size() == 2 && taken.sets == sumOfTwo[std::stoul(digits) % 4]) return digits;
    if (digits.size() == 5 && taken.sets == sumOfFive[WeightedSum(digits, 3, 9) % 10])
        return digits;
    return std::nullopt;
}

struct Article {
    std::string number;  // with its check digit
    std::string addOn;   // empty: none
};

// EAN-13 with half 6, UPC-A among them; EAN-8 with half 4.
std::optional<Article> ReadHalves(const Widths& widths, std::size_t half) {
    BarReader bars(widths);
    if (!bars.Skip(edge)) return std::nullopt;
    const auto left = TakeDigits(bars, half);
    if (!left || !bars.Skip(middle)) return std::nullopt;
    const auto right = TakeDigits(bars, half);
    if (!right || right->sets != std::string(half, 'L') || !bars.Skip(edge)) return std::nullopt;
    const auto addOn = TakeAddOn(bars);
    const std::size_t first = half == 6 ? PlaceIn(firstDigit, left->sets)
                                        : (left->sets == "LLLL" ? 0 : std::string::npos);
    if (!addOn || first == std::string::npos) return std::nullopt;
    std::string number = half == 6 ? std::string(1, static_cast<char>('0' + first)) : "";
    number += left->digits + right->digits;
    if (!EndsWithItsCheckDigit(number)) return std::nullopt;
    return Article{number, *addOn};
}

// The text is the number, with or without its check digit, and the add-on.
bool IsTextOf(const Article& article, const std::string& text) {
    const std::string bare = article.number.substr(0, article.number.size() - 1);
    return text == article.number + article.addOn || text == bare + article.addOn;
}

// The UPC-A number, check digit included, that a UPC-E number of six digits stands for.
std::string Expanded(char system, const std::string& six) {
    const char last = six[5];
    std::string number(1, system);
    if (last <= '2') number += six.substr(0, 2) + last + "0000" + six.substr(2, 3);
    if (last == '3') number += six.substr(0, 3) + "00000" + six.substr(3, 2);
    if (last == '4') number += six.substr(0, 4) + "00000" + six[4];
    if (last >= '5') number += six.substr(0, 5) + "0000" + last;
    return number + CheckDigit(number);
}

// Six digits; with number system 0 or 1 before, with a check digit after, or with both.
bool NamesUpcA(const std::string& text, const std::string& number) {
    switch (text.size()) {
        case 6:
            return Expanded('0', text) == number;
        case 7:
            return Expanded(text[0], text.substr(1)) == number ||
                   (Expanded('0', text) == number && text[6] == number.back());
        case 8:
            return Expanded(text[0], text.substr(1)) == number && text[7] == number.back();
        default:
            return false;
    }
}

std::string OtherSets(std::string sets) {
    for (char& set : sets) set = set == 'L' ? 'G' : 'L';
    return sets;
}

}  // namespace

bool CarriesEan(const Widths& bars, const std::string& text) {
    if (const auto small = ReadHalves(bars, 4)) return IsTextOf(*small, text);
    const auto article = ReadHalves(bars, 6);
    if (!article) return false;
    if (IsTextOf(*article, text)) return true;
    return article->number[0] == '0' && IsTextOf({article->number.substr(1), article->addOn}, text);
}

bool CarriesUpcE(const Widths& widths, const std::string& text) {
    BarReader bars(widths);
    if (!bars.Skip(edge)) return false;
    const auto six = TakeDigits(bars, 6);
    if (!six || !bars.Skip(endOfUpcE)) return false;
    const auto addOn = TakeAddOn(bars);
    if (!addOn) return false;
    const bool systemOne = six->sets[0] == 'L';
    const std::string number = Expanded(systemOne ? '1' : '0', six->digits);
    const auto sets = checkOfUpcE[static_cast<std::size_t>(number.back() - '0')];
    if ((systemOne ? OtherSets(six->sets) : six->sets) != sets) return false;
    const std::size_t size = text.size() - std::min(text.size(), addOn->size());
    return text.substr(size) == *addOn && NamesUpcA(text.substr(0, size), number);
}

// A book's number is an EAN-13 of the country 978. Of the text the first nine digits count: the
// tenth is a check digit of its own, and hyphens are for the reader.
bool CarriesIsbn(const Widths& bars, const std::string& text) {
    const auto article = ReadHalves(bars, 6);
    if (!article || article->number.substr(0, 3) != "978") return false;
    std::string number = text;
    std::erase(number, '-');
    const std::size_t addOn = article->addOn.size();
    if (number.size() < 9 + addOn || number.size() > 10 + addOn) return false;
    return number.substr(0, 9) == article->number.substr(3, 9) &&
           number.substr(number.size() - addOn) == article->addOn;
}

}  // namespace emulator

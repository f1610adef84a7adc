// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Decimal numbers: two texts and their arithmetic, computed once more with wider or simpler means;
// and any bytes as packed BCD. An input is two numbers with a blank between them.

#include <algorithm>
#include <optional>

#include "Decimal.h"
#include "fuzz/Property.h"

namespace {

Tally tally("fuzz_decimal", "pairs of numbers in them");

using Wide = __int128;
using Bits = unsigned long long;

constexpr unsigned int fewPlaces = 18;  // 10^18 fits 64 bits, and 128 bits hold every product

long long Mantissa(const Decimal& d) {
    return static_cast<long long>(d);
}

std::string Text(const Decimal& d) {
    return static_cast<std::string>(d);
}

void RequireSame(const Decimal& a, const Decimal& b, const char* property) {
    Require(Mantissa(a) == Mantissa(b) && a.GetDecCount() == b.GetDecCount(), property);
}

// ---- Texts -------------------------------------------------------------------------------------

bool IsNumber(const std::string& text) {
    return text.find_first_not_of("0123456789.", text[0] == '-' ? 1 : 0) == std::string::npos;
}

std::optional<Decimal> Parse(const std::string& text) {
    Decimal number;
    cmdError = false;
    const auto failure = FailureOf([&] { number = text; });
    if (text.empty()) {
        RequireInternalError(failure.get());
        Require(!cmdError, "an empty text is no fault of the file");
        return std::nullopt;
    }
    Require((failure == nullptr) == IsNumber(text), "what is a number");
    if (failure == nullptr) return number;
    RequireCommandFault(*failure);
    RequireEqual(failure->Message, "Wrong number format", "a text that is no number");
    return std::nullopt;
}

void RequireTextStandsForNumber(const Decimal& d) {
    const std::string text = Text(d);
    const std::size_t point = text.find('.');
    const std::size_t places = point == std::string::npos ? 0 : text.size() - point - 1;
    Require(places == d.GetDecCount(), "the places are printed as held");
    std::string digits = text;
    if (places > 0) digits.erase(point, 1);
    Require(digits[0] == '-' || isdigit(digits[0]), "a text begins with a sign or a digit");
    const Decimal parsed(text);
    Require(Compare(parsed, d) == 0, "the text is parsed to the number again");
    Decimal reduced = d;
    reduced.MakeConsistent();
    RequireSame(parsed, reduced, "and reduced");
}

// ---- Places and rounding -----------------------------------------------------------------------

/// The digits of |d| before the point and after it.
std::string Digits(const Decimal& d) {
    std::string text = Text(d);
    text.erase(std::remove_if(text.begin(), text.end(), [](char c) { return !isdigit(c); }),
               text.end());
    return text;
}

/// Cutting the text cuts the number; the text has at least one digit before the point.
Decimal Cut(const Decimal& d, unsigned int places) {
    const std::string digits = Digits(d);
    const std::string kept = digits.substr(0, digits.size() - (d.GetDecCount() - places));
    const Bits magnitude = std::stoull(kept);
    const bool negative = Mantissa(d) < 0;
    return Decimal(static_cast<long long>(negative ? 0 - magnitude : magnitude), places);
}

void RequireRounding(const Decimal& d, unsigned short places) {
    const unsigned int held = d.GetDecCount();
    for (int type : {int{ROUNDING_HALF_UP}, int{ROUNDING_HALF_DOWN}}) {
        const Decimal rounded = Round(d, places, type);
        if (places >= held) {
            RequireSame(rounded, d, "rounding adds no places");
            continue;
        }
        const std::string digits = Digits(d);
        const char dropped = digits[digits.size() - (held - places)];
        const bool up = dropped > (Mantissa(d) < 0 ? '0' : '4') && type == ROUNDING_HALF_UP;
        RequireSame(rounded, Decimal(Mantissa(Cut(d, places)) + (up ? 1 : 0), places), "rounding");
    }
    Decimal set = d;
    set.SetDecCount(places);
    if (places < held) RequireSame(set, Cut(d, places), "fewer places cut digits off");
}

void RequireShifts(const Decimal& d, int count) {
    Decimal shifted = d;
    shifted.ShiftDecDotL(count);
    Require(Mantissa(shifted) == Mantissa(d), "dividing by a power of ten keeps the digits");
    shifted.ShiftDecDotR(count);
    RequireSame(shifted, d, "multiplying takes it back");
}

// ---- Arithmetic --------------------------------------------------------------------------------

Wide PowerOfTen(unsigned int places) {
    Wide power = 1;
    while (places-- > 0) power *= 10;
    return power;
}

int Sign(Wide value) {
    return value > 0 ? 1 : (value < 0 ? -1 : 0);
}

bool Fits(Wide value) {
    return value == static_cast<long long>(value);
}

/// Where 128 bits are enough to say what must come out.
void RequireExact(const Decimal& a, const Decimal& b) {
    const unsigned int places = std::max(a.GetDecCount(), b.GetDecCount());
    if (places > fewPlaces) return;
    const Wide left = Mantissa(a) * PowerOfTen(places - a.GetDecCount());
    const Wide right = Mantissa(b) * PowerOfTen(places - b.GetDecCount());
    if (Fits(left) && Fits(right)) {
        Require(Compare(a, b) == Sign(left - right), "a comparison by value");
        if (Fits(left + right)) {
            Decimal sum = a;
            sum += b;
            RequireSame(sum, Decimal(static_cast<long long>(left + right), places), "a sum");
        }
    }
    const Wide product = static_cast<Wide>(Mantissa(a)) * Mantissa(b);
    if (!Fits(product)) return;
    Decimal expected(static_cast<long long>(product), a.GetDecCount() + b.GetDecCount());
    expected.MakeConsistent();
    RequireSame(a * b, expected, "a product");
}

void RequireArithmetic(const Decimal& a, const Decimal& b) {
    RequireExact(a, b);
    Require(Compare(a, a) == 0, "a number equals itself");
    Require(Compare(a, b) == -Compare(b, a), "a comparison in both directions");
    RequireSame(a * b, b * a, "a product in both orders");
    Decimal forth = a;
    forth += b;
    Require(forth.GetDecCount() == std::max(a.GetDecCount(), b.GetDecCount()),
            "a sum has the larger count of places");
    Decimal back = forth;
    back -= b;
    Require(Compare(back, a) == 0, "what was added can be subtracted");
    Require(forth.CheckBounds(Mantissa(forth), Mantissa(forth)), "bounds include their ends");
}

// ---- Packed BCD --------------------------------------------------------------------------------

/// The last digits of the mantissa, as many as fit, two to a byte.
void RequirePacked(const Decimal& d, unsigned short byteCount) {
    const BUF packed = Dec2BCD(d, byteCount);
    Require(packed.GetSize() == byteCount, "the size of a packed number");
    const std::string all = std::string(2u * byteCount, '0') + Digits(Mantissa(d));
    std::string digits = all.substr(all.size() - 2u * byteCount);
    const bool negative = Mantissa(d) < 0;
    if (negative) digits[0] = '1';
    std::string got;
    for (unsigned int i = 0; i < byteCount; ++i) {
        got += static_cast<char>('0' + packed[i] / 16);
        got += static_cast<char>('0' + packed[i] % 16);
    }
    RequireEqual(got, digits, "packed digits");
    if (negative) return;
    const Decimal unpacked = BCD2Dec(packed, 0, byteCount, false);
    Require(Mantissa(unpacked) == std::stoll(digits), "unpacking returns the digits");
    BUF withSign;
    withSign.AddBYTE(0x10, 1);
    withSign.AddBUF(packed);
    const auto size = static_cast<unsigned short>(byteCount + 1);
    Require(Mantissa(BCD2Dec(withSign, 0, size, true)) == -std::stoll(digits), "a sign byte");
}

/// Any bytes: each is read as tens and units, whatever its nibbles.
void RequireUnpacked(const BUF& bytes, bool isSigned) {
    Bits expected = 0;
    bool readable = true;
    for (unsigned int i = 0; i < bytes.GetSize(); ++i) {
        readable = readable && bytes[i] <= 0x99;
        if (!isSigned || i > 0) expected = expected * 100 + (bytes[i] / 16u * 10u + bytes[i] % 16u);
    }
    if (isSigned && bytes.GetSize() > 0 && bytes[0] != 0) expected = 0 - expected;
    Decimal unpacked;
    const auto size = static_cast<unsigned short>(bytes.GetSize());
    const auto failure = FailureOf([&] { unpacked = BCD2Dec(bytes, 0, size, isSigned); });
    Require((failure == nullptr) == readable, "bytes above 99h are refused");
    if (failure) {
        RequireInternalError(failure.get());
    } else {
        RequireSame(unpacked, Decimal(static_cast<long long>(expected)), "unpacked bytes");
    }
    const auto outside = FailureOf([&] { BCD2Dec(bytes, 1, size, isSigned); });
    if (size > 0) RequireInternalError(outside.get());
    Require(size > 0 || outside == nullptr, "no bytes are 0, wherever they are");
}

void RequireNumber(const Decimal& d, std::uint8_t choice) {
    RequireTextStandsForNumber(d);
    RequireRounding(d, choice % 8);
    RequireShifts(d, choice % 100);
    for (unsigned short byteCount = 1; byteCount <= 8; ++byteCount) RequirePacked(d, byteCount);
}

/// Bytes that no number contains become some that one can, so that most inputs hold two numbers.
std::string InAlphabet(std::string text) {
    static const std::string alphabet = "0123456789.- ";
    for (char& c : text) {
        if (alphabet.find(c) == std::string::npos)
            c = alphabet[static_cast<std::uint8_t>(c) % alphabet.size()];
    }
    return text;
}

void RequireNumbers(const std::string& text) {
    const std::size_t blank = std::min(text.find(' '), text.size());
    const auto a = Parse(text.substr(0, blank));
    const auto b = Parse(text.substr(std::min(blank + 1, text.size())));
    const std::uint8_t choice =
        text.empty() ? std::uint8_t{0} : static_cast<std::uint8_t>(text.back());
    for (const auto& number : {a, b}) {
        if (number) RequireNumber(*number, choice);
    }
    if (!a || !b) return;
    tally.Count();
    RequireArithmetic(*a, *b);
    RequireNumber(*a * *b, choice);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tally.Input();
    ResetGlobals();
    const std::string text = AsText(data, size);
    for (bool isSigned : {false, true}) RequireUnpacked(BUF(text), isSigned);

    RequireNumbers(text);
    RequireNumbers(InAlphabet(text));
    return 0;
}

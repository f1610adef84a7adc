// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "Decimal.h"

#include <algorithm>

#include "DriverException.h"

namespace {

using Bits = unsigned long long;  // arithmetic that wraps without being undefined

// 10^64 is a multiple of 2^64: more steps change nothing.
constexpr unsigned int maxSteps = 64;

long long Add(long long a, long long b) {
    return static_cast<long long>(static_cast<Bits>(a) + static_cast<Bits>(b));
}

long long Multiply(long long a, long long b) {
    return static_cast<long long>(static_cast<Bits>(a) * static_cast<Bits>(b));
}

long long Negate(long long n) {
    return static_cast<long long>(Bits{0} - static_cast<Bits>(n));
}

long long ScaleUp(long long n, unsigned int places) {
    for (unsigned int i = std::min(places, maxSteps); i > 0; --i) n = Multiply(n, 10);
    return n;
}

long long ScaleDown(long long n, unsigned int places) {
    for (unsigned int i = std::min(places, maxSteps); i > 0; --i) n /= 10;
    return n;
}

}  // namespace

Decimal::Decimal(long long n) : num(n) {}

Decimal::Decimal(long long n, unsigned int decCount) : num(n), dec(decCount) {}

Decimal::Decimal(const std::string& s) {
    *this = s;
}

void Decimal::operator=(const Decimal& d) {
    num = d.num;
    dec = d.dec;
}

void Decimal::operator=(long long n) {
    num = n;
    dec = 0;
}

void Decimal::operator=(const std::string& s) {
    if (s.empty()) FailInternal();
    const bool negative = s[0] == '-';
    Decimal parsed;
    for (std::size_t i = negative ? 1 : 0; i < s.size(); ++i) {
        if (s[i] >= '0' && s[i] <= '9') {
            parsed.num = Add(Multiply(parsed.num, 10), s[i] - '0');
        } else if (s[i] == '.') {
            // Deliberate: a point after another one is accepted, and the last one counts; see the
            // suite Decimal_Parse.
            parsed.dec = static_cast<unsigned int>(s.size() - i - 1);
        } else {
            FailCommand("Wrong number format");
        }
    }
    if (negative) parsed.num = Negate(parsed.num);
    parsed.MakeConsistent();
    *this = parsed;
}

void Decimal::operator+=(const Decimal& d) {
    Decimal other = d;
    const unsigned int places = std::max(dec, other.dec);
    SetDecCount(places);
    other.SetDecCount(places);
    num = Add(num, other.num);
}

void Decimal::operator-=(const Decimal& d) {
    *this += Decimal(Negate(d.num), d.dec);
}

Decimal::operator long long() const {
    return num;
}

Decimal::operator std::string() const {
    std::string text = std::to_string(num);
    const bool negative = text[0] == '-';
    if (negative) text.erase(0, 1);
    if (dec > 0) {
        if (text.size() <= dec) text.insert(0, dec + 1 - text.size(), '0');
        text.insert(text.size() - dec, 1, '.');
    }
    return negative ? "-" + text : text;
}

unsigned int Decimal::GetDecCount() const {
    return dec;
}

void Decimal::SetDecCount(unsigned int decCount) {
    num = dec < decCount ? ScaleUp(num, decCount - dec) : ScaleDown(num, dec - decCount);
    dec = decCount;
}

bool Decimal::CheckBounds(long long lbound, long long ubound) const {
    return lbound <= num && num <= ubound;
}

void Decimal::ShiftDecDotR(int posCount) {
    if (posCount <= 0) return;
    const auto steps = static_cast<unsigned int>(posCount);
    const unsigned int placesTaken = std::min(steps, dec);
    dec -= placesTaken;
    num = ScaleUp(num, steps - placesTaken);
}

void Decimal::ShiftDecDotL(int n) {
    dec += static_cast<unsigned int>(n);
}

void Decimal::MakeConsistent() {
    if (num == 0) dec = 0;
    while (dec > 0 && num % 10 == 0) {
        num /= 10;
        --dec;
    }
}

Decimal Round(const Decimal& decimal, unsigned short decCount, int roundingType) {
    const unsigned int places = decimal.GetDecCount();
    if (decCount >= places) return decimal;

    const long long kept = ScaleDown(decimal, places - decCount - 1);
    const long long truncated = kept / 10;
    // Deliberate: of a negative number every digit but 0 is above 4 as a byte, and adding one then
    // goes towards zero; see the suite Round.
    const auto droppedDigit = static_cast<BYTE>(kept % 10);
    const bool goesUp = roundingType != ROUNDING_HALF_DOWN && droppedDigit > 4;
    return Decimal(Add(truncated, goesUp ? 1 : 0), decCount);
}

Decimal operator*(const Decimal& a, const Decimal& b) {
    Decimal product(Multiply(a, b), a.GetDecCount() + b.GetDecCount());
    product.MakeConsistent();
    return product;
}

short Compare(const Decimal& a, const Decimal& b) {
    const unsigned int places = std::max(a.GetDecCount(), b.GetDecCount());
    const long long left = ScaleUp(a, places - a.GetDecCount());
    const long long right = ScaleUp(b, places - b.GetDecCount());
    return static_cast<short>(left > right ? 1 : (left < right ? -1 : 0));
}

BUF Dec2BCD(const Decimal& d, unsigned short byteCount) {
    const long long mantissa = d;
    const bool negative = mantissa < 0;
    Bits digits = static_cast<Bits>(negative ? Negate(mantissa) : mantissa);
    BUF result;
    result.AddBYTE(0, byteCount);
    for (unsigned int i = byteCount; i > 0; --i) {
        result[i - 1] = ByteToBCDByte(static_cast<BYTE>(digits % 100));
        digits /= 100;
    }
    if (negative && byteCount > 0) result[0] = static_cast<BYTE>((result[0] & 0x0F) | 0x10);
    return result;
}

Decimal BCD2Dec(const BUF& buf, unsigned short offset, unsigned short byteCount, bool isSigned) {
    if (byteCount == 0) return Decimal();
    if (DWORD{offset} + byteCount > buf.GetSize()) FailInternal();
    long long value = 0;
    bool negative = false;
    for (unsigned int i = 0; i < byteCount; ++i) {
        const BYTE pair = BCDByteToByte(buf[offset + i]);
        if (isSigned && i == 0) {
            negative = pair != 0;
        } else {
            value = Add(Multiply(value, 100), pair);
        }
    }
    return Decimal(negative ? Negate(value) : value);
}

unsigned char ByteToBCDByte(unsigned char b) {
    if (b > 99) FailInternal();
    return static_cast<unsigned char>((b / 10) << 4 | b % 10);
}

unsigned char BCDByteToByte(unsigned char b) {
    if (b > 0x99) FailInternal();
    return static_cast<unsigned char>((b >> 4) * 10 + (b & 0x0F));
}

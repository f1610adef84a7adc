// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Decimal: exact decimal numbers for money, quantities and rates, and their packed-BCD form on the
// register's wire.
#pragma once

#include <string>

#include "Buf.h"
#include "Common.h"

inline constexpr BYTE ROUNDING_HALF_UP = 0;
/// Deliberate: discards the dropped digits; see the suite Round.
inline constexpr BYTE ROUNDING_HALF_DOWN = 1;

/// The value is num / 10^dec. Trailing zeros may be held (1250/2 or 125/1 for 12.5); only parsing,
/// multiplication and MakeConsistent drop them. Overflow is not detected: 64 bits wrap.
class Decimal {
  public:
    Decimal() = default;
    Decimal(const Decimal&) = default;
    Decimal(long long n);  // NOLINT: conversions are part of the type's use
    Decimal(long long n, unsigned int decCount);
    /// Parses: digits, one leading "-", "." (the last one decides the places). Raises 99 on an
    /// empty text, 1 "Wrong number format" (cmdError set) on any other character.
    Decimal(const std::string& s);  // NOLINT

    void operator=(const Decimal& d);
    void operator=(long long n);
    void operator=(const std::string& s);
    /// The result keeps the larger count of places.
    void operator+=(const Decimal& d);
    void operator-=(const Decimal& d);

    /// The raw mantissa, not the value: 1250 for 12.50 held as 1250/2.
    operator long long() const;
    /// The digits as held: "12.50" for 1250/2.
    operator std::string() const;

    unsigned int GetDecCount() const;
    /// Lowering the places cuts digits off without rounding.
    void SetDecCount(unsigned int decCount);
    /// Compares the raw mantissa, whatever the places.
    bool CheckBounds(long long lbound, long long ubound) const;
    /// Multiplies the value by 10^posCount.
    void ShiftDecDotR(int posCount);
    /// Divides the value by 10^n; the mantissa stays.
    void ShiftDecDotL(int n);
    /// Drops trailing zeros after the point.
    void MakeConsistent();

  private:
    long long num = 0;
    unsigned int dec = 0;
};

/// roundingType ROUNDING_HALF_DOWN truncates; any other value rounds half up on the first dropped
/// digit. Deliberate: a negative number with a dropped digit that is not 0 goes up by one instead;
/// see the suite Round.
Decimal Round(const Decimal& decimal, unsigned short decCount, int roundingType);
Decimal operator*(const Decimal& a, const Decimal& b);
/// 1, -1 or 0 by value.
short Compare(const Decimal& a, const Decimal& b);

/// byteCount bytes of packed BCD of the raw mantissa, most significant pair first; digits that do
/// not fit are dropped. Deliberate: a negative number's first high nibble is 1, whatever digit had
/// its place there; see the suite Dec2BCD.
BUF Dec2BCD(const Decimal& d, unsigned short byteCount);
/// Deliberate: when isSigned, the first byte holds the sign only (not 0: negative) and no digits,
/// as the register sends it; see the suite BCD2Dec. A field that reaches past the end of buf raises
/// 99; no bytes are 0 wherever they begin.
Decimal BCD2Dec(const BUF& buf, unsigned short offset, unsigned short byteCount, bool isSigned);
/// b above 99 raises 99 "Internal error".
unsigned char ByteToBCDByte(unsigned char b);
/// b above 0x99 raises 99 "Internal error"; the nibbles are not checked for being digits.
unsigned char BCDByteToByte(unsigned char b);

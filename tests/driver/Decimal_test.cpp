// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "Decimal.h"

#include <gtest/gtest.h>

#include <climits>

#include "Globals.h"
#include "tests/support/Bytes.h"
#include "tests/support/Failure.h"
#include "tests/support/InternalError.h"

namespace {

std::string Text(const Decimal& d) {
    return static_cast<std::string>(d);
}

/// The mantissa and the places as held, for example "1250/2".
std::string Held(const Decimal& d) {
    return std::to_string(static_cast<long long>(d)) + "/" + std::to_string(d.GetDecCount());
}

/// The packed form in hex, for example "00 12 34".
std::string Packed(const Decimal& d, unsigned short byteCount) {
    const BUF buf = Dec2BCD(d, byteCount);
    std::string hex;
    for (unsigned int i = 0; i < buf.GetSize(); ++i) {
        hex += Format(i == 0 ? "%02X" : " %02X", static_cast<unsigned int>(buf[i]));
    }
    return hex;
}

std::string Rounded(const std::string& text, unsigned short places, int type) {
    return Held(Round(Decimal(text), places, type));
}

}  // namespace

TEST(Decimal, IsZeroAtFirst) {
    EXPECT_EQ(Held(Decimal()), "0/0");
}

TEST(Decimal, TakesAWholeNumberWithoutPlaces) {
    EXPECT_EQ(Held(Decimal(-12)), "-12/0");
    Decimal d(1250, 2);
    d = 7LL;
    EXPECT_EQ(Held(d), "7/0");
}

TEST(Decimal, TakesMantissaAndPlacesAsGiven) {
    EXPECT_EQ(Held(Decimal(1250, 2)), "1250/2");
}

TEST(Decimal, CopiesMantissaAndPlaces) {
    const Decimal original(1250, 2);
    Decimal assigned;
    assigned = original;
    EXPECT_EQ(Held(Decimal(original)), "1250/2");
    EXPECT_EQ(Held(assigned), "1250/2");
}

TEST(Decimal_Parse, DropsTrailingZeros) {
    EXPECT_EQ(Held(Decimal("12.50")), "125/1");
    EXPECT_EQ(Held(Decimal("0.00")), "0/0");
    EXPECT_EQ(Held(Decimal("100")), "100/0");
}

TEST(Decimal_Parse, TakesWhatLooksOddAsLongAsTheCharactersAreRight) {
    EXPECT_EQ(Held(Decimal("-0.5")), "-5/1");
    EXPECT_EQ(Held(Decimal("007")), "7/0");
    EXPECT_EQ(Held(Decimal(".5")), "5/1");
    EXPECT_EQ(Held(Decimal("5.")), "5/0");
    EXPECT_EQ(Held(Decimal("-")), "0/0");
    EXPECT_EQ(Held(Decimal(".")), "0/0");
}

TEST(Decimal_Parse, LetsTheLastPointDecideThePlaces) {
    EXPECT_EQ(Held(Decimal("1.2.3")), "123/1");
    EXPECT_EQ(Text(Decimal("1.2.3")), "12.3");
}

TEST(Decimal_Parse, RefusesEveryOtherCharacter) {
    for (const char* text : {"+1", " 1", "1 ", "1,5", "1-", "--1", "1a", "0x1", "1e5", "\xB2"}) {
        cmdError = false;
        const auto failure = FailureOf([&] { Decimal d(text); });
        ASSERT_TRUE(failure) << text;
        EXPECT_EQ(failure->ErrorCode, 1) << text;
        EXPECT_EQ(failure->Message, "Wrong number format") << text;
        EXPECT_TRUE(cmdError) << text;
    }
}

TEST(Decimal_Parse, LeavesTheNumberUnchangedWhenItRefuses) {
    Decimal d(1250, 2);
    EXPECT_TRUE(FailureOf([&] { d = std::string("3x"); }));
    EXPECT_EQ(Held(d), "1250/2");
}

TEST(Decimal_Parse, TakesAnEmptyTextForAnInternalError) {
    cmdError = false;
    ExpectInternalError(FailureOf([] { Decimal d(""); }));
    EXPECT_FALSE(cmdError);
}

TEST(Decimal_Parse, WrapsBeyond64Bits) {
    EXPECT_EQ(Held(Decimal("9223372036854775807")), "9223372036854775807/0");
    EXPECT_EQ(Held(Decimal("9223372036854775808")), "-9223372036854775808/0");
    EXPECT_EQ(Held(Decimal("-9223372036854775808")), "-9223372036854775808/0");
    EXPECT_EQ(Held(Decimal("18446744073709551617")), "1/0");
}

TEST(Decimal_Text, PrintsThePlacesAsHeld) {
    EXPECT_EQ(Text(Decimal(1250, 2)), "12.50");
    EXPECT_EQ(Text(Decimal(110, 2)), "1.10");
    EXPECT_EQ(Text(Decimal("1.10")), "1.1");
    EXPECT_EQ(Text(Decimal(-7)), "-7");
}

TEST(Decimal_Text, FillsUpWithZeros) {
    EXPECT_EQ(Text(Decimal(5, 2)), "0.05");
    EXPECT_EQ(Text(Decimal(-5, 2)), "-0.05");
    EXPECT_EQ(Text(Decimal(12, 2)), "0.12");
    EXPECT_EQ(Text(Decimal(0, 0)), "0");
    EXPECT_EQ(Text(Decimal(0, 2)), "0.00");
}

TEST(Decimal_Text, PrintsTheSmallestMantissa) {
    EXPECT_EQ(Text(Decimal(LLONG_MIN, 2)), "-92233720368547758.08");
}

TEST(Decimal_LongLong, IsTheRawMantissa) {
    EXPECT_EQ(static_cast<long long>(Decimal(1250, 2)), 1250);
}

TEST(Decimal_Add, KeepsTheLargerCountOfPlaces) {
    Decimal d("1.5");
    d += Decimal("2.25");
    EXPECT_EQ(Held(d), "375/2");
    Decimal e("2.25");
    e += Decimal("1.5");
    EXPECT_EQ(Held(e), "375/2");
}

TEST(Decimal_Add, DoesNotReduceTheSum) {
    Decimal d(150, 2);
    d += Decimal(50, 2);
    EXPECT_EQ(Held(d), "200/2");
}

TEST(Decimal_Subtract, KeepsTheLargerCountOfPlaces) {
    Decimal d("1.5");
    d -= Decimal("2.25");
    EXPECT_EQ(Held(d), "-75/2");
    Decimal e("2.25");
    e -= Decimal("-1.5");
    EXPECT_EQ(Held(e), "375/2");
}

TEST(Decimal_Add, AddsANumberToItself) {
    Decimal d("1.5");
    const Decimal& same = d;
    d += same;
    EXPECT_EQ(Held(d), "30/1");
    d -= same;
    EXPECT_EQ(Held(d), "0/1");
}

TEST(Decimal_Add, Wraps) {
    Decimal d(LLONG_MAX);
    d += Decimal(1);
    EXPECT_EQ(Held(d), "-9223372036854775808/0");
    d -= Decimal(1);
    EXPECT_EQ(Held(d), "9223372036854775807/0");
    Decimal e(0);
    e -= Decimal(LLONG_MIN);
    EXPECT_EQ(Held(e), "-9223372036854775808/0");
}

TEST(Decimal_SetDecCount, AddsPlaces) {
    Decimal d("1.5");
    d.SetDecCount(3);
    EXPECT_EQ(Held(d), "1500/3");
}

TEST(Decimal_SetDecCount, CutsPlacesWithoutRounding) {
    Decimal d("1.239");
    d.SetDecCount(2);
    EXPECT_EQ(Held(d), "123/2");
    Decimal e("-1.239");
    e.SetDecCount(2);
    EXPECT_EQ(Held(e), "-123/2");
    e.SetDecCount(0);
    EXPECT_EQ(Held(e), "-1/0");
}

TEST(Decimal_SetDecCount, EndsSoonForHugeCounts) {
    Decimal d(7);
    d.SetDecCount(64);
    EXPECT_EQ(Held(d), "0/64");  // 7 x 10^64 wraps to 0
    d = 7LL;
    d.SetDecCount(63);
    EXPECT_EQ(Held(d), "-9223372036854775808/63");
    d = 7LL;
    d.SetDecCount(UINT_MAX);
    EXPECT_EQ(Held(d), "0/4294967295");
    d = Decimal(7, UINT_MAX);
    d.SetDecCount(0);
    EXPECT_EQ(Held(d), "0/0");
}

TEST(Decimal_CheckBounds, ComparesTheRawMantissa) {
    const Decimal d(99999, 2);
    EXPECT_TRUE(d.CheckBounds(0, 99999));
    EXPECT_TRUE(d.CheckBounds(99999, 99999));
    EXPECT_FALSE(d.CheckBounds(0, 99998));
    EXPECT_FALSE(d.CheckBounds(100000, LLONG_MAX));
    EXPECT_TRUE(Decimal(-1).CheckBounds(-1, 0));
    EXPECT_FALSE(Decimal(-1).CheckBounds(0, LLONG_MAX));
}

TEST(Decimal_ShiftDecDotR, TakesPlacesAwayFirst) {
    Decimal d("1.25");
    d.ShiftDecDotR(1);
    EXPECT_EQ(Held(d), "125/1");
}

TEST(Decimal_ShiftDecDotR, MultipliesWhenNoPlaceIsLeft) {
    Decimal d("1.25");
    d.ShiftDecDotR(3);
    EXPECT_EQ(Held(d), "1250/0");
}

TEST(Decimal_ShiftDecDotR, EndsSoonForHugeCounts) {
    Decimal d("1.25");
    d.ShiftDecDotR(INT_MAX);
    EXPECT_EQ(Held(d), "0/0");
}

TEST(Decimal_ShiftDecDotR, DoesNothingForNoSteps) {
    Decimal d("1.25");
    d.ShiftDecDotR(0);
    d.ShiftDecDotR(-1);
    EXPECT_EQ(Held(d), "125/2");
}

TEST(Decimal_ShiftDecDotL, AddsPlacesAndKeepsTheMantissa) {
    Decimal d("1.5");
    d.ShiftDecDotL(2);
    EXPECT_EQ(Held(d), "15/3");
    EXPECT_EQ(Text(d), "0.015");
}

TEST(Decimal_MakeConsistent, DropsTrailingZerosAfterThePoint) {
    Decimal d(1250, 2);
    d.MakeConsistent();
    EXPECT_EQ(Held(d), "125/1");
    Decimal negative(-1200, 2);
    negative.MakeConsistent();
    EXPECT_EQ(Held(negative), "-12/0");
}

TEST(Decimal_MakeConsistent, KeepsZerosBeforeThePoint) {
    Decimal d(100);
    d.MakeConsistent();
    EXPECT_EQ(Held(d), "100/0");
}

TEST(Round, LeavesANumberWithFewerPlacesUnchanged) {
    EXPECT_EQ(Rounded("1.2", 3, ROUNDING_HALF_UP), "12/1");
    EXPECT_EQ(Rounded("1.2", 1, ROUNDING_HALF_DOWN), "12/1");
}

TEST(Round, RoundsHalfUpOnTheFirstDroppedDigit) {
    EXPECT_EQ(Rounded("1.25", 1, ROUNDING_HALF_UP), "13/1");
    EXPECT_EQ(Rounded("1.249", 1, ROUNDING_HALF_UP), "12/1");
    EXPECT_EQ(Rounded("1.2501", 1, ROUNDING_HALF_UP), "13/1");
    EXPECT_EQ(Rounded("9.99", 1, ROUNDING_HALF_UP), "100/1");
    EXPECT_EQ(Rounded("0.5", 0, ROUNDING_HALF_UP), "1/0");
}

TEST(Round, TruncatesInTheModeNamedHalfDown) {
    EXPECT_EQ(Rounded("1.25", 1, ROUNDING_HALF_DOWN), "12/1");
    EXPECT_EQ(Rounded("1.29", 1, ROUNDING_HALF_DOWN), "12/1");
    EXPECT_EQ(Rounded("-1.29", 1, ROUNDING_HALF_DOWN), "-12/1");
}

TEST(Round, TakesEveryOtherModeForHalfUp) {
    EXPECT_EQ(Rounded("1.25", 1, 7), "13/1");
}

TEST(Round, MovesNegativesTowardsZeroWhenADigitIsDropped) {
    EXPECT_EQ(Rounded("-1.25", 1, ROUNDING_HALF_UP), "-11/1");
    EXPECT_EQ(Rounded("-1.24", 1, ROUNDING_HALF_UP), "-11/1");
    EXPECT_EQ(Rounded("-1.21", 1, ROUNDING_HALF_UP), "-11/1");
    EXPECT_EQ(Rounded("-1.29", 1, ROUNDING_HALF_UP), "-11/1");
}

TEST(Round, LeavesANegativeWhoseDroppedDigitIsZero) {
    EXPECT_EQ(Held(Round(Decimal(-120, 2), 1, ROUNDING_HALF_UP)), "-12/1");
    EXPECT_EQ(Rounded("-1.209", 1, ROUNDING_HALF_UP), "-12/1");
}

TEST(Round, EndsSoonForHugeCounts) {
    EXPECT_EQ(Held(Round(Decimal(99, UINT_MAX), 2, ROUNDING_HALF_UP)), "0/2");
}

TEST(Decimal_Multiply, ReducesTheProduct) {
    EXPECT_EQ(Held(Decimal("1.5") * Decimal("2.50")), "375/2");
    EXPECT_EQ(Held(Decimal("2.5") * Decimal("4")), "10/0");
    EXPECT_EQ(Held(Decimal("-0.5") * Decimal(250, 2)), "-125/2");
}

TEST(Decimal_Multiply, KeepsTheLow64Bits) {
    EXPECT_EQ(Held(Decimal(4294967297) * Decimal(4294967297)), "8589934593/0");
    EXPECT_EQ(Held(Decimal(LLONG_MIN) * Decimal(-1)), "-9223372036854775808/0");
}

TEST(Compare, ComparesByValue) {
    EXPECT_EQ(Compare(Decimal("2"), Decimal(200, 2)), 0);
    EXPECT_EQ(Compare(Decimal(150, 2), Decimal("1.5")), 0);
    EXPECT_EQ(Compare(Decimal("-1"), Decimal("0.5")), -1);
    EXPECT_EQ(Compare(Decimal("0.5"), Decimal("-1")), 1);
    EXPECT_EQ(Compare(Decimal("1.51"), Decimal("1.5")), 1);
    EXPECT_EQ(Compare(Decimal("1.5"), Decimal("1.51")), -1);
}

TEST(Dec2BCD, PutsTheMostSignificantPairFirst) {
    EXPECT_EQ(Packed(Decimal(1234), 3), "00 12 34");
    EXPECT_EQ(Packed(Decimal(0), 2), "00 00");
    EXPECT_EQ(Packed(Decimal(9999999999999999), 8), "99 99 99 99 99 99 99 99");
}

TEST(Dec2BCD, TakesTheRawMantissa) {
    Decimal d("12.50");
    d.SetDecCount(2);
    EXPECT_EQ(Packed(d, 4), "00 00 12 50");
}

TEST(Dec2BCD, DropsDigitsThatDoNotFit) {
    EXPECT_EQ(Packed(Decimal(1234567), 3), "23 45 67");
    EXPECT_EQ(Packed(Decimal(1234567), 0), "");
}

TEST(Dec2BCD, PutsTheSignInTheFirstHighNibble) {
    EXPECT_EQ(Packed(Decimal(-1234), 3), "10 12 34");
    EXPECT_EQ(Packed(Decimal(-1), 1), "11");
    EXPECT_EQ(Packed(Decimal(-56), 1), "16");
    EXPECT_EQ(Packed(Decimal(-123456), 3), "12 34 56");
    EXPECT_EQ(Packed(Decimal(-1), 0), "");
}

TEST(Dec2BCD, PacksTheSmallestMantissa) {
    EXPECT_EQ(Packed(Decimal(LLONG_MIN), 11), "10 09 22 33 72 03 68 54 77 58 08");
}

TEST(BCD2Dec, ReadsDigitPairs) {
    const BUF buf = Bytes({0xFF, 0x10, 0x12, 0x34});
    EXPECT_EQ(Held(BCD2Dec(buf, 1, 3, false)), "101234/0");
    EXPECT_EQ(Held(BCD2Dec(buf, 2, 1, false)), "12/0");
}

TEST(BCD2Dec, TakesTheFirstByteForTheSignOnly) {
    EXPECT_EQ(Held(BCD2Dec(Bytes({0x10, 0x12, 0x34}), 0, 3, true)), "-1234/0");
    EXPECT_EQ(Held(BCD2Dec(Bytes({0x01, 0x12, 0x34}), 0, 3, true)), "-1234/0");
    EXPECT_EQ(Held(BCD2Dec(Bytes({0x00, 0x12, 0x34}), 0, 3, true)), "1234/0");
    EXPECT_EQ(Held(BCD2Dec(Bytes({0x10}), 0, 1, true)), "0/0");
}

TEST(BCD2Dec, LosesTheDigitThatDec2BCDKeepsBesideTheSign) {
    EXPECT_EQ(Held(BCD2Dec(Dec2BCD(Decimal(-91234), 3), 0, 3, true)), "-1234/0");
}

TEST(BCD2Dec, IsZeroForNoBytes) {
    EXPECT_EQ(Held(BCD2Dec(Bytes({0x12}), 0, 0, true)), "0/0");
    EXPECT_EQ(Held(BCD2Dec(BUF(), 0, 0, false)), "0/0");
    EXPECT_EQ(Held(BCD2Dec(Bytes({0x12}), 1, 0, false)), "0/0");
    EXPECT_EQ(Held(BCD2Dec(Bytes({0x12}), 2, 0, true)), "0/0");
    EXPECT_EQ(Held(BCD2Dec(BUF(), 65535, 0, false)), "0/0");
}

TEST(BCD2Dec, RefusesAFieldPastTheEnd) {
    const BUF buf = Bytes({0x12, 0x34});
    ExpectInternalError(FailureOf([&] { BCD2Dec(buf, 0, 3, false); }));
    ExpectInternalError(FailureOf([&] { BCD2Dec(buf, 2, 1, false); }));
    ExpectInternalError(FailureOf([&] { BCD2Dec(buf, 65535, 65535, false); }));
}

TEST(BCD2Dec, RefusesABytePast99) {
    ExpectInternalError(FailureOf([] { BCD2Dec(Bytes({0x9A}), 0, 1, false); }));
}

TEST(ByteToBCDByte, PacksTensAndUnits) {
    for (int value = 0; value <= 99; ++value) {
        EXPECT_EQ(ByteToBCDByte(static_cast<BYTE>(value)), value / 10 * 16 + value % 10);
    }
}

TEST(ByteToBCDByte, RefusesAValueAbove99) {
    ExpectInternalError(FailureOf([] { ByteToBCDByte(100); }));
    ExpectInternalError(FailureOf([] { ByteToBCDByte(255); }));
}

TEST(BCDByteToByte, TakesNibblesThatAreNoDigits) {
    EXPECT_EQ(BCDByteToByte(0x42), 42);
    EXPECT_EQ(BCDByteToByte(0x99), 99);
    EXPECT_EQ(BCDByteToByte(0x2F), 35);
}

TEST(BCDByteToByte, RefusesAByteAbove0x99) {
    ExpectInternalError(FailureOf([] { BCDByteToByte(0x9A); }));
    ExpectInternalError(FailureOf([] { BCDByteToByte(0xFF); }));
}

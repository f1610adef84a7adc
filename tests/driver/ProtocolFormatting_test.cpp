// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ProtocolFormatting.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/Failure.h"
#include "tests/support/Hex.h"
#include "tests/support/InternalError.h"
#include "tests/support/Regex.h"
#include "tests/support/TempDir.h"

namespace {

using Ocelot = ProtocolFormatter_Ocelot;
using Margay = ProtocolFormatter_Margay;

std::string WireFormatPage() {
    return ReadWholeFile(VOLTIS_SOURCE_DIR "/docs/wire-format.md");
}

/// The frame has these bytes, and docs/wire-format.md shows them.
void ExpectDocumented(const BUF& frame, const std::string& hex) {
    EXPECT_EQ(ToHex(frame), hex);
    EXPECT_NE(WireFormatPage().find("| `" + hex + "` |"), std::string::npos) << hex;
}

void ExpectFormattingError(const std::unique_ptr<DriverException>& failure) {
    ExpectInternalError(failure, "src/ProtocolFormatting.cpp");
}

/// What parsing a data frame ended with: the code, and the data as it is afterwards.
struct Parsed {
    BYTE code;
    std::string data;
    bool operator==(const Parsed&) const = default;
};
void PrintTo(const Parsed& p, std::ostream* out) {
    *out << int{p.code} << " '" << p.data << "'";
}

Parsed ParseData(IProtocolFormatter& formatter, const BUF& frame) {
    BUF data = FromHex("aa bb");  // must be replaced, or stay when the frame is garbage
    const BYTE code = formatter.ParseDataFrame(frame, data);
    return {code, ToHex(data)};
}
const Parsed garbageParsed{GARBAGE, "aa bb"};

BUF Pattern(unsigned int size) {
    BUF data;
    for (unsigned int i = 0; i < size; ++i) data.AddBYTE(static_cast<BYTE>(i * 37 + size), 1);
    return data;
}

const char sale[] =
    "02 00 01 4d 49 4c 4b 20 20 20 20 20 20 20 20 20 20 20 20 20 20 00 10 00 00 00 02 50";
const char saleFrame[] =
    "02 00 01 4d 49 4c 4b 20 20 20 20 20 20 20 20 20 20 20 20 20 20 00 10 00 00 00 02 50 42 6c";

// --- Ocelot family: what goes out ---------------------------------------------------------------

TEST(OcelotFrames, ARequestNamesTheNetworkIdAndTheCommand) {
    Ocelot ocelot(false);
    ExpectDocumented(ocelot.BuildDataSendRequestFrame(1, 0xB3), "d0 01 b3 62 1a");
    ExpectDocumented(ocelot.BuildDataSendRequestFrame(1, 0xBB), "d0 01 bb 6a 0a");
    ExpectDocumented(ocelot.BuildDataReadRequestFrame(1, 0xD1), "d9 01 d1 09 4c");
    EXPECT_EQ(ToHex(ocelot.BuildDataSendRequestFrame(0xFF, 0xB3)), "d0 ff b3 9c e2");
}

TEST(OcelotFrames, ARequestIsItsTypeAndItsTwoBytesAfterTheCheckBytes) {
    Ocelot ocelot(false);
    EXPECT_EQ(ToHex(ocelot.BuildRequestFrame(0x12, 0x34, 0x56)), "12 34 56 70 f4");
}

TEST(OcelotFrames, AResponseCarriesItsCode) {
    Ocelot ocelot(false);
    ExpectDocumented(ocelot.BuildResponseFrame(ACK), "d9 06 df 42");
    ExpectDocumented(ocelot.BuildResponseFrame(NAK), "d9 15 cc 46");
    EXPECT_EQ(ocelot.GetResponseFrameSize(), 4);
}

TEST(OcelotFrames, ADataFrameIsTheDataAndTheCheckBytes) {
    Ocelot ocelot(false);
    ExpectDocumented(ocelot.BuildDataFrame(FromHex("03 00")), "03 00 03 fa");
    ExpectDocumented(ocelot.BuildDataFrame(FromHex("01 00 01")), "01 00 01 00 fe");
    ExpectDocumented(ocelot.BuildDataFrame(FromHex(sale)), saleFrame);
    ExpectDocumented(
        ocelot.BuildDataFrame(FromHex("02 00 04 00 00 71 00 00 00 17 00 00 00 00 00 02 50")),
        "02 00 04 00 00 71 00 00 00 17 00 00 00 00 00 02 50 32 ee");
    EXPECT_EQ(ocelot.GetDataFrameSize(17), 19);
    EXPECT_EQ(ocelot.GetDataFrameSize(0), 2);
}

TEST(OcelotFrames, EndOfFileIsTwiceFFAndTheCheckBytes) {
    Ocelot ocelot(false);
    ExpectDocumented(ocelot.BuildEofFrame(), "ff ff 00 02");
    EXPECT_EQ(ocelot.GetEofFrameSize(), 4);
}

TEST(OcelotCheckBytes, AreTheExclusiveOrAndTheByteThatBringsTheSumToZero) {
    Ocelot ocelot(false);
    for (unsigned int size = 0; size <= 253; ++size) {
        const BUF frame = ocelot.BuildDataFrame(Pattern(size));
        ASSERT_EQ(frame.GetSize(), size + 2);
        unsigned int all = 0;
        unsigned int sum = 0;
        for (unsigned int i = 0; i < size; ++i) all ^= frame[i];
        for (unsigned int i = 0; i < size + 2; ++i) sum += frame[i];
        EXPECT_EQ(frame[size], all) << size;
        EXPECT_EQ(sum % 256, 0U) << size;
    }
}

TEST(OcelotCheckBytes, CoverOnlyTheSizeThatIsAskedFor) {
    Ocelot ocelot(false);
    BYTE xorByte = 1;
    BYTE sumByte = 1;
    ocelot.CalcCRC(FromHex("d0 01 b3 77 77"), 3, xorByte, sumByte);
    EXPECT_EQ(xorByte, 0x62);
    EXPECT_EQ(sumByte, 0x1A);
    ocelot.CalcCRC(FromHex("d0 01"), 0, xorByte, sumByte);
    EXPECT_EQ(xorByte, 0);
    EXPECT_EQ(sumByte, 0);
}

TEST(OcelotCheckBytes, CheckRaisesForAFrameThatCannotHoldThem) {
    Ocelot ocelot(false);
    ExpectFormattingError(FailureOf([&] { ocelot.CheckCRC(BUF(), 0); }));
    ExpectFormattingError(FailureOf([&] { ocelot.CheckCRC(FromHex("00"), 1); }));
    EXPECT_TRUE(ocelot.CheckCRC(FromHex("00 00"), 2));
    EXPECT_FALSE(ocelot.CheckCRC(FromHex("00 01"), 2));
    EXPECT_FALSE(ocelot.CheckCRC(FromHex("01 00"), 2));
}

// --- Ocelot family: what comes in ---------------------------------------------------------------

TEST(OcelotParseResponse, KnowsTheThreeCodes) {
    Ocelot ocelot(false);
    EXPECT_EQ(ocelot.ParseResponseFrame(FromHex("d9 06 df 42")), ACK);
    EXPECT_EQ(ocelot.ParseResponseFrame(FromHex("d9 15 cc 46")), NAK);
    EXPECT_EQ(ocelot.ParseResponseFrame(FromHex("d9 0b d2 4a")), BSY);
    ExpectDocumented(FromHex("d9 0b d2 4a"), "d9 0b d2 4a");
}

TEST(OcelotParseResponse, AnyOtherCodeIsGarbage) {
    Ocelot ocelot(false);
    for (int code = 0; code <= 255; ++code) {
        if (code == ACK || code == NAK || code == BSY) continue;
        const BUF frame = ocelot.BuildResponseFrame(static_cast<BYTE>(code));
        EXPECT_EQ(ocelot.ParseResponseFrame(frame), GARBAGE) << code;
    }
}

TEST(OcelotParseResponse, DoesNotExamineTheFirstByte) {
    Ocelot ocelot(false);
    EXPECT_EQ(ocelot.ParseResponseFrame(ocelot.BuildDataFrame(FromHex("00 06"))), ACK);
}

TEST(OcelotParseResponse, AnotherSizeIsGarbageEvenWithGoodCheckBytes) {
    Ocelot ocelot(false);
    EXPECT_EQ(ocelot.ParseResponseFrame(BUF()), GARBAGE);
    EXPECT_EQ(ocelot.ParseResponseFrame(FromHex("06")), GARBAGE);
    EXPECT_EQ(ocelot.ParseResponseFrame(ocelot.BuildDataFrame(FromHex("06"))), GARBAGE);
    EXPECT_EQ(ocelot.ParseResponseFrame(ocelot.BuildDataFrame(FromHex("d9 06 00"))), GARBAGE);
}

TEST(OcelotParseData, GivesTheBareBytes) {
    Ocelot ocelot(false);
    EXPECT_EQ(ParseData(ocelot, FromHex("01 00 01 00 fe")), (Parsed{ACK, "01 00 01"}));
    EXPECT_EQ(ParseData(ocelot, FromHex(saleFrame)), (Parsed{ACK, sale}));
}

TEST(OcelotParseData, TakesBackWhatWasBuiltAtEverySizeOfAFrame) {
    Ocelot ocelot(false);
    for (unsigned int size = 0; size <= 253; ++size) {
        const BUF data = Pattern(size);
        const BUF frame = ocelot.BuildDataFrame(data);
        EXPECT_EQ(frame.GetSize(), ocelot.GetDataFrameSize(static_cast<WORD>(size)));
        EXPECT_EQ(ParseData(ocelot, frame), (Parsed{ACK, ToHex(data)})) << size;
    }
}

TEST(OcelotParseData, FindsEveryChangeOfOneByteAndLeavesTheDataUntouched) {
    Ocelot ocelot(false);
    for (const char* hex : {"01 00 01 00 fe", "ff ff 00 02", saleFrame}) {
        const BUF good = FromHex(hex);
        for (unsigned int i = 0; i < good.GetSize(); ++i) {
            for (int change = 1; change <= 255; ++change) {
                BUF bad = good;
                bad[i] = static_cast<BYTE>(bad[i] ^ change);
                ASSERT_EQ(ParseData(ocelot, bad), garbageParsed) << hex << " at " << i;
            }
        }
    }
}

TEST(OcelotParseData, FindsAMissingByte) {
    Ocelot ocelot(false);
    EXPECT_EQ(ParseData(ocelot, FromHex("01 00 01 00")), garbageParsed);
    EXPECT_EQ(ParseData(ocelot, FromHex("00 01 00 fe")), garbageParsed);
}

TEST(OcelotParseData, RaisesForAFrameTooShortForItsCheckBytes) {
    for (const bool skipCheck : {false, true}) {
        Ocelot ocelot(skipCheck);
        ExpectFormattingError(FailureOf([&] { ParseData(ocelot, BUF()); }));
        ExpectFormattingError(FailureOf([&] { ParseData(ocelot, FromHex("00")); }));
        EXPECT_EQ(ParseData(ocelot, FromHex("00 00")), (Parsed{ACK, ""}));
    }
}

TEST(OcelotParseEof, WantsTwiceFFAndGoodCheckBytes) {
    Ocelot ocelot(false);
    EXPECT_EQ(ocelot.ParseEofFrame(FromHex("ff ff 00 02")), ACK);
    EXPECT_EQ(ocelot.ParseEofFrame(FromHex("ff ff 00 03")), GARBAGE);
    EXPECT_EQ(ocelot.ParseEofFrame(FromHex("ff ff 01 02")), GARBAGE);
    EXPECT_EQ(ocelot.ParseEofFrame(ocelot.BuildDataFrame(FromHex("ff fe"))), GARBAGE);
    EXPECT_EQ(ocelot.ParseEofFrame(ocelot.BuildDataFrame(FromHex("fe ff"))), GARBAGE);
    EXPECT_EQ(ocelot.ParseEofFrame(ocelot.BuildDataFrame(FromHex("ff ff ff"))), GARBAGE);
    EXPECT_EQ(ocelot.ParseEofFrame(BUF()), GARBAGE);
}

TEST(OcelotCheckFrame, WantsTheExpectedSizeThenTheCheckBytes) {
    Ocelot ocelot(false);
    EXPECT_EQ(ocelot.CheckFrame(FromHex("d0 01 b3 62 1a"), 5), ACK);
    EXPECT_EQ(ocelot.CheckFrame(FromHex("d0 01 b3 62 1a"), 4), GARBAGE);
    EXPECT_EQ(ocelot.CheckFrame(FromHex("d0 01 b3 62 1b"), 5), GARBAGE);
}

TEST(OcelotWithoutCheck, WrongCheckBytesParseAsGoodWhenTheSizeIsRight) {
    Ocelot ocelot(true);
    EXPECT_EQ(ocelot.ParseResponseFrame(FromHex("d9 06 00 00")), ACK);
    EXPECT_EQ(ParseData(ocelot, FromHex("01 00 01 77 77")), (Parsed{ACK, "01 00 01"}));
    EXPECT_EQ(ocelot.ParseEofFrame(FromHex("ff ff 77 77")), ACK);
}

TEST(OcelotWithoutCheck, SizeAndCodeStillCount) {
    Ocelot ocelot(true);
    EXPECT_EQ(ocelot.ParseResponseFrame(FromHex("d9 06 00")), GARBAGE);
    EXPECT_EQ(ocelot.ParseResponseFrame(FromHex("d9 07 00 00")), GARBAGE);
    EXPECT_EQ(ocelot.ParseEofFrame(FromHex("ff fe 00 00")), GARBAGE);
    EXPECT_EQ(ocelot.ParseEofFrame(FromHex("ff ff 00")), GARBAGE);
}

TEST(OcelotWithoutCheck, StillSendsCheckBytes) {
    Ocelot ocelot(true);
    EXPECT_EQ(ToHex(ocelot.BuildDataSendRequestFrame(1, 0xB3)), "d0 01 b3 62 1a");
}

// --- Margay family: what goes out ---------------------------------------------------------------

TEST(MargayFrames, ARequestIsTheCommandAndItsCheckLetters) {
    Margay margay(false);
    ExpectDocumented(margay.BuildDataReadRequestFrame(1, 0xD1), "02 d1 32 44 03");
    ExpectDocumented(margay.BuildDataSendRequestFrame(1, 0xBB), "02 bb 34 33 03");
    EXPECT_EQ(ToHex(margay.BuildRequestFrame(0xB0)), "02 b0 34 45 03");
}

// Deliberate: neither the network ID nor the direction is on the wire.
TEST(MargayFrames, BothRequestsAreTheSameBytesForEveryNetworkId) {
    Margay margay(false);
    for (int id = 0; id <= 255; ++id) {
        const BYTE network = static_cast<BYTE>(id);
        EXPECT_EQ(ToHex(margay.BuildDataSendRequestFrame(network, 0xD1)), "02 d1 32 44 03");
        EXPECT_EQ(ToHex(margay.BuildDataReadRequestFrame(network, 0xD1)), "02 d1 32 44 03");
    }
}

TEST(MargayFrames, AResponseIsTheCodeAlone) {
    Margay margay(false);
    ExpectDocumented(margay.BuildResponseFrame(ACK), "06");
    ExpectDocumented(margay.BuildResponseFrame(NAK), "15");
    EXPECT_EQ(margay.GetResponseFrameSize(), 1);
}

TEST(MargayFrames, ADataFrameIsTwoLettersPerByteItsCheckLettersAndCarriageReturn) {
    Margay margay(false);
    ExpectDocumented(margay.BuildDataFrame(FromHex("01")), "30 31 39 46 0d");
    ExpectDocumented(margay.BuildDataFrame(FromHex("03 00")), "30 33 30 30 33 44 0d");
    ExpectDocumented(
        margay.BuildDataFrame(FromHex("02 00 08 00 00 71 00 00 00 17 00 00 00 00 00 02 50")),
        "30 32 30 30 30 38 30 30 30 30 37 31 30 30 30 30 30 30 31 37 30 30 30 30 30 30 30 30 30 30 "
        "30 32 35 30 37 46 0d");
    EXPECT_EQ(margay.GetDataFrameSize(17), 37);
    EXPECT_EQ(margay.GetDataFrameSize(0), 3);
}

TEST(MargayFrames, EndOfFileCarriesTheTotalOfTheDataFrame) {
    Margay margay(false);
    margay.BuildDataSendRequestFrame(1, 0xBB);
    margay.BuildDataFrame(FromHex("01"));
    ExpectDocumented(margay.BuildEofFrame(), "39 46 1a");
    margay.BuildDataSendRequestFrame(1, 0xBB);
    margay.BuildDataFrame(FromHex("03 00"));
    ExpectDocumented(margay.BuildEofFrame(), "33 44 1a");
    EXPECT_EQ(margay.GetEofFrameSize(), 3);
}

TEST(MargayTotal, EitherRequestStartsItAnew) {
    Margay margay(false);
    margay.BuildDataFrame(FromHex("01"));
    margay.BuildDataSendRequestFrame(1, 0xBB);
    EXPECT_EQ(ToHex(margay.BuildEofFrame()), "30 30 1a");
    margay.BuildDataFrame(FromHex("01"));
    margay.BuildDataReadRequestFrame(1, 0xD1);
    EXPECT_EQ(ToHex(margay.BuildEofFrame()), "30 30 1a");
}

TEST(MargayTotal, AddsTheCheckByteOfEveryDataFrameModulo256) {
    Margay margay(false);
    margay.BuildDataSendRequestFrame(1, 0xBB);
    margay.BuildDataFrame(FromHex("01"));
    margay.BuildDataFrame(FromHex("01"));
    EXPECT_EQ(ToHex(margay.BuildEofFrame()), "33 45 1a");  // 2 x 9f = 13e
    EXPECT_EQ(ToHex(margay.BuildEofFrame()), "33 45 1a");  // building it changes nothing
}

TEST(MargayTotal, CheckingAFrameLeavesItAlone) {
    Margay margay(false);
    margay.BuildDataSendRequestFrame(1, 0xBB);
    margay.BuildDataFrame(FromHex("01"));
    ParseData(margay, FromHex("30 33 30 30 33 44 0d"));
    ParseData(margay, FromHex("30 33 30 30 33 45 0d"));
    EXPECT_EQ(ToHex(margay.BuildEofFrame()), "39 46 1a");
}

TEST(MargayTotal, GrowsOnlyWhereItIsAsked) {
    Margay margay(false);
    margay.BuildDataSendRequestFrame(1, 0xBB);
    BYTE high = 0;
    BYTE low = 0;
    margay.CalcCRC(FromHex("30 31 ff"), 2, false, high, low);
    EXPECT_EQ(high, '9');
    EXPECT_EQ(low, 'F');
    EXPECT_EQ(ToHex(margay.BuildEofFrame()), "30 30 1a");
    margay.CalcCRC(FromHex("30 31 ff"), 2, true, high, low);
    EXPECT_EQ(ToHex(margay.BuildEofFrame()), "39 46 1a");
    BUF frame;
    margay.AddTotalCRC(frame);
    EXPECT_EQ(ToHex(frame), "39 46");
}

TEST(MargayTotal, AddingCheckLettersThatDoNotCountClearsIt) {
    Margay margay(false);
    margay.BuildDataFrame(FromHex("01"));
    BUF frame = FromHex("02 d1");
    margay.AddCRC(frame, false);
    EXPECT_EQ(ToHex(frame), "02 d1 32 44");
    EXPECT_EQ(ToHex(margay.BuildEofFrame()), "30 30 1a");
}

TEST(MargayCheckByte, BringsTheSumOfTheLettersToZero) {
    Margay margay(false);
    for (unsigned int size = 0; size <= 126; ++size) {
        const BUF frame = margay.BuildDataFrame(Pattern(size));
        ASSERT_EQ(frame.GetSize(), 2 * size + 3);
        unsigned int sum = 0;
        for (unsigned int i = 0; i < 2 * size; ++i) sum += frame[i];
        const std::string letters{static_cast<char>(frame[2 * size]),
                                  static_cast<char>(frame[2 * size + 1])};
        EXPECT_EQ((sum + std::stoul(letters, nullptr, 16)) % 256, 0U) << size;
    }
}

TEST(MargayCheckByte, CheckRaisesForAFrameThatCannotHoldIt) {
    Margay margay(false);
    ExpectFormattingError(FailureOf([&] { margay.CheckCRC(BUF(), 0); }));
    ExpectFormattingError(FailureOf([&] { margay.CheckCRC(FromHex("30"), 1); }));
    ExpectFormattingError(FailureOf([&] { margay.CheckCRC(FromHex("30 30"), 2); }));
    EXPECT_TRUE(margay.CheckCRC(FromHex("30 30 0d"), 3));
    EXPECT_FALSE(margay.CheckCRC(FromHex("30 31 0d"), 3));
    EXPECT_FALSE(margay.CheckCRC(FromHex("31 30 0d"), 3));
}

TEST(MargayLetters, AreUpperCaseHexDigits) {
    Margay margay(false);
    std::string letters;
    for (BYTE d = 0; d < 16; ++d) letters += static_cast<char>(margay.HexDigitToLetter(d));
    EXPECT_EQ(letters, "0123456789ABCDEF");
    ExpectFormattingError(FailureOf([&] { margay.HexDigitToLetter(16); }));
    ExpectFormattingError(FailureOf([&] { margay.HexDigitToLetter(255); }));
}

TEST(MargayLetters, ReadInEitherCaseAndAnyOtherByteIsZero) {
    Margay margay(false);
    for (int byte = 0; byte <= 255; ++byte) {
        const std::string upper = "0123456789ABCDEF";
        const std::string lower = "0123456789abcdef";
        size_t digit = upper.find(static_cast<char>(byte));
        if (digit == std::string::npos) digit = lower.find(static_cast<char>(byte));
        if (digit == std::string::npos) digit = 0;
        EXPECT_EQ(margay.LetterToHexDigit(static_cast<BYTE>(byte)), digit) << byte;
    }
}

// --- Margay family: what comes in ---------------------------------------------------------------

TEST(MargayParseResponse, KnowsItsThreeCodesAndNothingElse) {
    Margay margay(false);
    for (int code = 0; code <= 255; ++code) {
        const BYTE expected = code == 6 ? ACK : code == 21 ? NAK : code == 27 ? BSY : GARBAGE;
        EXPECT_EQ(margay.ParseResponseFrame(BUF(std::string(1, static_cast<char>(code)))), expected)
            << code;
    }
    ExpectDocumented(FromHex("1b"), "1b");
}

TEST(MargayParseResponse, AnotherSizeIsGarbageEvenIfItBeginsWithACK) {
    Margay margay(false);
    EXPECT_EQ(margay.ParseResponseFrame(FromHex("06 06")), GARBAGE);
    EXPECT_EQ(margay.ParseResponseFrame(BUF()), GARBAGE);
}

TEST(MargayParseData, TakesBackWhatWasBuiltAtEverySizeOfAFrame) {
    Margay margay(false);
    for (unsigned int size = 0; size <= 253; ++size) {
        const BUF data = Pattern(size);
        const BUF frame = margay.BuildDataFrame(data);
        EXPECT_EQ(frame.GetSize(), margay.GetDataFrameSize(static_cast<WORD>(size)));
        EXPECT_EQ(ParseData(margay, frame), (Parsed{ACK, ToHex(data)})) << size;
    }
}

// The last byte is never examined, so its changes pass.
TEST(MargayParseData, FindsEveryChangeOfOneByteButTheLast) {
    Margay margay(false);
    for (const char* hex : {"30 31 39 46 0d", "30 33 30 30 33 44 0d"}) {
        const BUF good = FromHex(hex);
        const Parsed parsed = ParseData(margay, good);
        const unsigned int last = good.GetSize() - 1;
        for (unsigned int i = 0; i <= last; ++i) {
            for (int change = 1; change <= 255; ++change) {
                BUF bad = good;
                bad[i] = static_cast<BYTE>(bad[i] ^ change);
                ASSERT_EQ(ParseData(margay, bad), i == last ? parsed : garbageParsed)
                    << hex << " at " << i;
            }
        }
    }
}

TEST(MargayParseData, LowerCaseCheckLettersFailTheCheck) {
    Margay margay(false);
    EXPECT_EQ(ParseData(margay, FromHex("30 31 39 46 0d")), (Parsed{ACK, "01"}));
    EXPECT_EQ(ParseData(margay, FromHex("30 31 39 66 0d")), garbageParsed);
}

TEST(MargayParseData, LowerCaseDataLettersCount) {
    Margay margay(false);
    // "a1": 61 + 31 = 92, so the check byte is 6e.
    EXPECT_EQ(ParseData(margay, FromHex("61 31 36 45 0d")), (Parsed{ACK, "a1"}));
}

TEST(MargayParseData, AByteThatIsNoHexDigitCountsAsZero) {
    Margay margay(false);
    // "z1": 7a + 31 = ab, so the check byte is 55.
    EXPECT_EQ(ParseData(margay, FromHex("7a 31 35 35 0d")), (Parsed{ACK, "01"}));
}

TEST(MargayParseData, AnOddNumberOfLettersIsGarbageEvenWithAGoodCheck) {
    Margay margay(false);
    EXPECT_EQ(ParseData(margay, FromHex("30 44 30 0d")), garbageParsed);
    EXPECT_EQ(ParseData(margay, BUF()), garbageParsed);
    EXPECT_EQ(ParseData(margay, FromHex("30 30")), garbageParsed);
}

TEST(MargayParseData, RaisesForAFrameTooShortForItsCheckLetters) {
    for (const bool skipCheck : {false, true}) {
        Margay margay(skipCheck);
        ExpectFormattingError(FailureOf([&] { ParseData(margay, FromHex("0d")); }));
    }
    Margay margay(false);
    EXPECT_EQ(ParseData(margay, FromHex("30 30 0d")), (Parsed{ACK, ""}));
}

TEST(MargayParseEof, WantsThreeBytesThatEndWith1A) {
    Margay margay(false);
    EXPECT_EQ(margay.ParseEofFrame(FromHex("33 44 1a")), ACK);
    EXPECT_EQ(margay.ParseEofFrame(FromHex("33 44 0d")), GARBAGE);
    EXPECT_EQ(margay.ParseEofFrame(FromHex("44 1a")), GARBAGE);
    EXPECT_EQ(margay.ParseEofFrame(FromHex("33 44 1a 1a")), GARBAGE);
    EXPECT_EQ(margay.ParseEofFrame(BUF()), GARBAGE);
}

TEST(MargayParseEof, DoesNotVerifyTheTotal) {
    Margay margay(false);
    margay.BuildDataReadRequestFrame(1, 0xD1);
    EXPECT_EQ(margay.ParseEofFrame(FromHex("39 46 1a")), ACK);
    EXPECT_EQ(margay.ParseEofFrame(FromHex("00 ff 1a")), ACK);
}

TEST(MargayWithoutCheck, WrongCheckLettersParseAsGood) {
    Margay margay(true);
    EXPECT_EQ(ParseData(margay, FromHex("30 31 30 30 0d")), (Parsed{ACK, "01"}));
    EXPECT_EQ(ParseData(margay, FromHex("30 31 00 00 00")), (Parsed{ACK, "01"}));
    EXPECT_EQ(ParseData(margay, FromHex("30 31 30 0d")), garbageParsed);  // odd all the same
}

// --- The selection ------------------------------------------------------------------------------

void ExpectNothingSelected() {
    BUF data;
    ExpectFormattingError(FailureOf([] { BuildDataSendRequestFrame(1, 0xB3); }));
    ExpectFormattingError(FailureOf([] { BuildDataReadRequestFrame(1, 0xD1); }));
    ExpectFormattingError(FailureOf([] { GetResponseFrameSize(); }));
    ExpectFormattingError(FailureOf([] { BuildResponseFrame(ACK); }));
    ExpectFormattingError(FailureOf([] { ParseResponseFrame(BUF()); }));
    ExpectFormattingError(FailureOf([] { GetDataFrameSize(1); }));
    ExpectFormattingError(FailureOf([] { BuildDataFrame(BUF()); }));
    ExpectFormattingError(FailureOf([&] { ParseDataFrame(BUF(), data); }));
    ExpectFormattingError(FailureOf([] { GetEofFrameSize(); }));
    ExpectFormattingError(FailureOf([] { BuildEofFrame(); }));
    ExpectFormattingError(FailureOf([] { ParseEofFrame(BUF()); }));
}

TEST(SelectFormatting, BeforeItEveryOperationRaises) {
    ExpectNothingSelected();
}

TEST(SelectFormatting, RoutesEveryOperationToTheSelectedFamily) {
    BUF data;
    SelectFormatting(ProtocolFormatting_Ocelot, false);
    EXPECT_EQ(ToHex(BuildDataSendRequestFrame(1, 0xB3)), "d0 01 b3 62 1a");
    EXPECT_EQ(ToHex(BuildDataReadRequestFrame(1, 0xD1)), "d9 01 d1 09 4c");
    EXPECT_EQ(GetResponseFrameSize(), 4);
    EXPECT_EQ(ToHex(BuildResponseFrame(NAK)), "d9 15 cc 46");
    EXPECT_EQ(ParseResponseFrame(FromHex("d9 0b d2 4a")), BSY);
    EXPECT_EQ(GetDataFrameSize(17), 19);
    EXPECT_EQ(ToHex(BuildDataFrame(FromHex("03 00"))), "03 00 03 fa");
    EXPECT_EQ(ParseDataFrame(FromHex("03 00 03 fa"), data), ACK);
    EXPECT_EQ(ToHex(data), "03 00");
    EXPECT_EQ(GetEofFrameSize(), 4);
    EXPECT_EQ(ToHex(BuildEofFrame()), "ff ff 00 02");
    EXPECT_EQ(ParseEofFrame(FromHex("ff ff 00 02")), ACK);

    SelectFormatting(ProtocolFormatting_Margay, false);
    EXPECT_EQ(ToHex(BuildDataSendRequestFrame(1, 0xBB)), "02 bb 34 33 03");
    EXPECT_EQ(ToHex(BuildDataReadRequestFrame(1, 0xD1)), "02 d1 32 44 03");
    EXPECT_EQ(GetResponseFrameSize(), 1);
    EXPECT_EQ(ToHex(BuildResponseFrame(NAK)), "15");
    EXPECT_EQ(ParseResponseFrame(FromHex("1b")), BSY);
    EXPECT_EQ(GetDataFrameSize(17), 37);
    EXPECT_EQ(ToHex(BuildDataFrame(FromHex("01"))), "30 31 39 46 0d");
    EXPECT_EQ(ParseDataFrame(FromHex("30 31 39 46 0d"), data), ACK);
    EXPECT_EQ(ToHex(data), "01");
    EXPECT_EQ(GetEofFrameSize(), 3);
    EXPECT_EQ(ToHex(BuildEofFrame()), "39 46 1a");
    EXPECT_EQ(ParseEofFrame(FromHex("39 46 1a")), ACK);
}

TEST(SelectFormatting, PassesOnWhetherToCheck) {
    for (const bool skipCheck : {false, true}) {
        const BYTE expected = skipCheck ? ACK : GARBAGE;
        BUF data;
        SelectFormatting(ProtocolFormatting_Ocelot, skipCheck);
        EXPECT_EQ(ParseResponseFrame(FromHex("d9 06 00 00")), expected);
        SelectFormatting(ProtocolFormatting_Margay, skipCheck);
        EXPECT_EQ(ParseDataFrame(FromHex("30 31 30 30 0d"), data), expected);
    }
}

TEST(SelectFormatting, AnUnknownValueLeavesNothingSelected) {
    SelectFormatting(ProtocolFormatting_Ocelot, false);
    SelectFormatting(static_cast<ProtocolFormatting>(2), false);
    ExpectNothingSelected();
}

// --- docs/wire-format.md ------------------------------------------------------------------------

struct LogLine {
    bool fromRegister;
    unsigned int count;
    BUF frame;
};

/// The block lines of the page, in its order.
std::vector<LogLine> SampleLines() {
    static const Regex pattern(R"(PC(->|<-)ECR +(\d+) bytes in +[\d.]+ ms : ([0-9a-f ]+))");
    std::vector<LogLine> lines;
    std::istringstream page(WireFormatPage());
    for (std::string text; std::getline(page, text);) {
        const auto m = pattern.Match(text);
        if (!m) continue;
        lines.push_back(
            {m->at(1) == "<-", static_cast<unsigned int>(std::stoul(m->at(2))), FromHex(m->at(3))});
    }
    return lines;
}

/// One status read and one command, twelve frames, as the driver itself builds and parses them.
void ExpectSample(IProtocolFormatter& formatter, const std::vector<LogLine>& lines,
                  const std::string& status) {
    const auto sent = [&](size_t i, const BUF& frame) {
        EXPECT_FALSE(lines[i].fromRegister) << i;
        EXPECT_EQ(ToHex(lines[i].frame), ToHex(frame)) << i;
    };
    const auto acknowledged = [&](size_t i) {
        EXPECT_TRUE(lines[i].fromRegister) << i;
        EXPECT_EQ(formatter.ParseResponseFrame(lines[i].frame), ACK) << i;
    };
    ASSERT_EQ(lines.size(), 12U);
    for (const LogLine& line : lines) EXPECT_EQ(line.count, line.frame.GetSize());
    sent(0, formatter.BuildDataReadRequestFrame(1, 0xD1));
    acknowledged(1);
    EXPECT_TRUE(lines[2].fromRegister);
    EXPECT_EQ(ParseData(formatter, lines[2].frame), (Parsed{ACK, status}));
    sent(3, formatter.BuildResponseFrame(ACK));
    EXPECT_TRUE(lines[4].fromRegister);
    EXPECT_EQ(formatter.ParseEofFrame(lines[4].frame), ACK);
    sent(5, formatter.BuildResponseFrame(ACK));
    sent(6, formatter.BuildDataSendRequestFrame(1, 0xB0));
    acknowledged(7);
    sent(8, formatter.BuildDataFrame(FromHex("01 00 01")));
    acknowledged(9);
    sent(10, formatter.BuildEofFrame());
    acknowledged(11);
}

TEST(WireFormatPage, TheSamplesAreWhatTheDriverSendsAndAccepts) {
    const std::vector<LogLine> lines = SampleLines();
    ASSERT_EQ(lines.size(), 24U);
    Ocelot ocelot(false);
    ExpectSample(ocelot, {lines.begin(), lines.begin() + 12},
                 "00 00 04 00 00 11 00 00 00 16 00 00 00 00 00 00 00");
    Margay margay(false);
    ExpectSample(margay, {lines.begin() + 12, lines.end()},
                 "00 00 08 00 00 11 00 00 00 16 00 00 00 00 00 00 00");
}

TEST(WireFormatPage, TheStatusBlockIsTheOneOfTheDataFrame) {
    const std::string block = "04 00 00 71 00 00 00 17 00 00 00 00 00 02 50";
    EXPECT_EQ(FromHex(block).GetSize(), 15U);
    const std::string page = WireFormatPage();
    EXPECT_NE(page.find("`" + block + "`"), std::string::npos);
    EXPECT_NE(page.find("| `02 00 " + block + " 32 ee` |"), std::string::npos);
    EXPECT_NE(page.find("| 8 | 7 | `00 00 00 00 00 02 50` |"), std::string::npos);
}

}  // namespace

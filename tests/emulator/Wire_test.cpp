// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The emulator's frames and models, byte for byte.
#include <gtest/gtest.h>

#include "emulator/Model.h"
#include "emulator/Wire.h"
#include "tests/emulator/Peer.h"

using namespace emulator;

namespace {

const Wire& OcelotWire() {
    static const auto wire = MakeWire(WireFamily::Ocelot);
    return *wire;
}

const Wire& MargayWire() {
    static const auto wire = MakeWire(WireFamily::Margay);
    return *wire;
}

}  // namespace

// --- Ocelot --------------------------------------------------------------------------------------

TEST(OcelotWire, ReadsTheRequestForADepartmentSale) {
    const auto request = OcelotWire().ParseRequest(FromHex("d0 01 b3 62 1a"));
    ASSERT_TRUE(request);
    EXPECT_EQ(request->direction, Direction::Send);
    EXPECT_EQ(request->networkId, 1);
    EXPECT_EQ(request->command, 0xB3);
}

TEST(OcelotWire, ReadsTheRequestForTheStatus) {
    // d9 ^ 01 ^ d1 = 09, d9 + 01 + d1 = ab (mod 256), 09 + ab = b4, 100 - b4 = 4c
    const auto request = OcelotWire().ParseRequest(FromHex("d9 01 d1 09 4c"));
    ASSERT_TRUE(request);
    EXPECT_EQ(request->direction, Direction::Read);
    EXPECT_EQ(request->command, 0xD1);
}

TEST(OcelotWire, RefusesARequestWithAnyBitFlipped) {
    const Bytes good = FromHex("d0 01 b3 62 1a");
    for (std::size_t i = 0; i < good.size(); ++i)
        for (int bit = 0; bit < 8; ++bit) {
            Bytes bad = good;
            bad[i] = static_cast<std::uint8_t>(bad[i] ^ 1 << bit);
            EXPECT_FALSE(OcelotWire().ParseRequest(bad)) << ToHex(bad);
        }
}

TEST(OcelotWire, RefusesAGoodFrameOfAnotherKindAsRequest) {
    EXPECT_FALSE(
        OcelotWire().ParseRequest(FromHex("d1 01 b3 63 18")));  // 63 + 85 (mod 256) + 18 = 100
    EXPECT_FALSE(OcelotWire().ParseRequest(FromHex("ff ff 00 02")));
    EXPECT_FALSE(OcelotWire().ParseRequest({}));
}

TEST(OcelotWire, BuildsTheThreeAnswers) {
    // d9 ^ 06 = df, df + df = 1be, 200 - 1be = 42; the others likewise
    EXPECT_EQ(ToHex(OcelotWire().BuildAnswer(Answer::Ack)), "d9 06 df 42");
    EXPECT_EQ(ToHex(OcelotWire().BuildAnswer(Answer::Nak)), "d9 15 cc 46");
    EXPECT_EQ(ToHex(OcelotWire().BuildAnswer(Answer::Busy)), "d9 0b d2 4a");
}

TEST(OcelotWire, ReadsTheAnswersOfTheOtherEnd) {
    EXPECT_EQ(OcelotWire().ParseAnswer(FromHex("d9 06 df 42")), Answer::Ack);
    EXPECT_EQ(OcelotWire().ParseAnswer(FromHex("d9 15 cc 46")), Answer::Nak);
    EXPECT_EQ(OcelotWire().ParseAnswer(FromHex("d9 06 df 43")), std::nullopt);
    EXPECT_EQ(OcelotWire().ParseAnswer(FromHex("d9 0b d2 4a")), std::nullopt);
    EXPECT_EQ(OcelotWire().ParseAnswer(FromHex("06")), std::nullopt);
}

TEST(OcelotWire, BuildsAndReadsTheEndOfFileFrame) {
    EXPECT_EQ(ToHex(OcelotWire().BuildEof(0)), "ff ff 00 02");
    EXPECT_TRUE(OcelotWire().ParseEof(FromHex("ff ff 00 02"), 77));
    EXPECT_FALSE(OcelotWire().ParseEof(FromHex("ff ff 00 03"), 0));
    EXPECT_FALSE(OcelotWire().ParseEof(FromHex("ff fe 01 02"), 0));
    EXPECT_FALSE(OcelotWire().ParseEof(FromHex("ff ff 00"), 0));
}

TEST(OcelotWire, ReadsADataFrameOfTheAwaitedSizeOnly) {
    const Bytes frame = FromHex("02 00 01 03 fa");  // 02 ^ 01 = 03, 03 + 03 + fa = 100
    EXPECT_EQ(OcelotWire().ParseData(frame, 3), FromHex("02 00 01"));
    EXPECT_EQ(OcelotWire().ParseData(frame, 2), std::nullopt);
    EXPECT_EQ(OcelotWire().ParseData(frame, 4), std::nullopt);
    EXPECT_EQ(OcelotWire().ParseData(FromHex("02 00 01 03 fb"), 3), std::nullopt);
    EXPECT_EQ(OcelotWire().ParseData(FromHex("02 00 01 02 fb"), 3), std::nullopt);
}

TEST(OcelotWire, ClosesADataFrameWithXorAndNegatedSum) {
    EXPECT_EQ(ToHex(OcelotWire().BuildData(FromHex("02 00 01"))), "02 00 01 03 fa");
    EXPECT_EQ(OcelotWire().DataFrameSize(17), 19U);
}

TEST(OcelotWire, NoRequestBeginsWithAGoodDataFrameOfFourBytes) {
    const Wire& wire = OcelotWire();
    for (int kind : {0xD0, 0xD9})
        for (int id = 0; id < 256; ++id)
            for (int command = 0xB0; command <= 0xD5; ++command) {
                const bool read = command == 0xD1;
                if (read != (kind == 0xD9)) continue;
                const Bytes data = {static_cast<std::uint8_t>(kind), static_cast<std::uint8_t>(id),
                                    static_cast<std::uint8_t>(command)};
                const Bytes frame = wire.BuildData(data);
                ASSERT_TRUE(wire.ParseRequest(frame));
                EXPECT_FALSE(wire.ParseData(View(frame).first(4), 2)) << ToHex(frame);
                EXPECT_FALSE(wire.ParseAnswer(View(frame).first(4))) << ToHex(frame);
            }
}

// --- Margay --------------------------------------------------------------------------------------

TEST(MargayWire, ReadsTheRequestForTheStatus) {
    const auto request = MargayWire().ParseRequest(FromHex("02 d1 32 44 03"));
    ASSERT_TRUE(request);
    EXPECT_EQ(request->direction, Direction::Either);
    EXPECT_EQ(request->networkId, std::nullopt);
    EXPECT_EQ(request->command, 0xD1);
}

TEST(MargayWire, RefusesARequestWithAnyBitFlipped) {
    const Bytes good = FromHex("02 d1 32 44 03");
    for (std::size_t i = 0; i < good.size(); ++i)
        for (int bit = 0; bit < 8; ++bit) {
            Bytes bad = good;
            bad[i] = static_cast<std::uint8_t>(bad[i] ^ 1 << bit);
            EXPECT_FALSE(MargayWire().ParseRequest(bad)) << ToHex(bad);
        }
}

TEST(MargayWire, AnswersWithASingleByte) {
    EXPECT_EQ(ToHex(MargayWire().BuildAnswer(Answer::Ack)), "06");
    EXPECT_EQ(ToHex(MargayWire().BuildAnswer(Answer::Nak)), "15");
    EXPECT_EQ(ToHex(MargayWire().BuildAnswer(Answer::Busy)), "1b");
    EXPECT_EQ(MargayWire().ParseAnswer(FromHex("06")), Answer::Ack);
    EXPECT_EQ(MargayWire().ParseAnswer(FromHex("15")), Answer::Nak);
    EXPECT_EQ(MargayWire().ParseAnswer(FromHex("1b")), std::nullopt);
    EXPECT_EQ(MargayWire().ParseAnswer(FromHex("06 06")), std::nullopt);
}

TEST(MargayWire, WritesDataInLettersWithANegatedSum) {
    EXPECT_EQ(MargayWire().BuildData(FromHex("01")), Ascii("019F\r"));
    EXPECT_EQ(MargayWire().TotalOf(Ascii("019F\r")), 0x9F);
    EXPECT_EQ(MargayWire().DataFrameSize(17), 37U);
}

TEST(MargayWire, ReadsADataFrameOfTheAwaitedSizeOnly) {
    EXPECT_EQ(MargayWire().ParseData(Ascii("019F\r"), 1), FromHex("01"));
    EXPECT_EQ(MargayWire().ParseData(Ascii("019F\r"), 2), std::nullopt);
    EXPECT_EQ(MargayWire().ParseData(Ascii("019E\r"), 1), std::nullopt);
    EXPECT_EQ(MargayWire().ParseData(Ascii("019F\n"), 1), std::nullopt);
}

TEST(MargayWire, TakesSmallLettersForDataButNotForTheCheck) {
    // 'a' + 'b' = 61 + 62 = c3, 100 - c3 = 3d
    EXPECT_EQ(MargayWire().ParseData(Ascii("ab3D\r"), 1), FromHex("ab"));
    EXPECT_EQ(MargayWire().ParseData(Ascii("ab3d\r"), 1), std::nullopt);
    EXPECT_EQ(MargayWire().ParseData(Ascii("019f\r"), 1), std::nullopt);
}

TEST(MargayWire, RefusesLettersThatAreNoDigitsUnderAGoodCheck) {
    // 'G' + '0' = 47 + 30 = 77, 100 - 77 = 89
    EXPECT_EQ(MargayWire().ParseData(Ascii("G089\r"), 1), std::nullopt);
}

TEST(MargayWire, TheEndOfFileFrameCarriesTheTotal) {
    EXPECT_EQ(MargayWire().BuildEof(0x9F), Ascii("9F\x1a"));
    EXPECT_TRUE(MargayWire().ParseEof(Ascii("9F\x1a"), 0x9F));
    EXPECT_FALSE(MargayWire().ParseEof(Ascii("9F\x1a"), 0x9E));
    EXPECT_FALSE(MargayWire().ParseEof(Ascii("9f\x1a"), 0x9F));
    EXPECT_FALSE(MargayWire().ParseEof(Ascii("9F\r"), 0x9F));
    EXPECT_TRUE(MargayWire().IsSomeEof(Ascii("00\x1a")));
    EXPECT_FALSE(MargayWire().IsSomeEof(Ascii("0G\x1a")));
}

// --- models --------------------------------------------------------------------------------------

TEST(Models, AreTheNineProtocolCodes) {
    struct Row {
        const char* name;
        std::uint8_t version, code;
        std::size_t line, nameWidth;
        std::uint8_t drawerReport;
    };
    const Row rows[] = {
        {"ocelot", 1, 0, 36, 18, 13}, {"lynx", 1, 1, 20, 18, 13},   {"puma", 1, 2, 32, 18, 13},
        {"serval", 1, 3, 32, 18, 13}, {"ocelot", 2, 4, 36, 18, 13}, {"lynx", 2, 5, 20, 18, 13},
        {"puma", 2, 6, 32, 18, 13},   {"serval", 2, 7, 32, 18, 13}, {"margay", 2, 8, 20, 20, 2}};
    EXPECT_EQ(Models().size(), std::size(rows));
    for (const Row& row : rows) {
        const Model* model = FindModel(row.name, row.version);
        ASSERT_NE(model, nullptr) << row.name;
        EXPECT_EQ(model->code, row.code);
        EXPECT_EQ(model->lineLength, row.line);
        EXPECT_EQ(model->nameWidth, row.nameWidth);
        EXPECT_EQ(model->drawerReport, row.drawerReport);
        EXPECT_EQ(model->CommentWidth(), row.line - 1);
    }
}

TEST(Models, ThereIsNoMargayOfVersionOne) {
    EXPECT_EQ(FindModel("margay", 1), nullptr);
    EXPECT_EQ(FindModel("tiger", 1), nullptr);
    EXPECT_EQ(FindModel("ocelot", 3), nullptr);
}

TEST(Models, OnlyMargaySpeaksLettersUnlessToldOtherwise) {
    for (const Model& model : Models())
        EXPECT_EQ(model.family == WireFamily::Margay, model.name == "margay");
}

TEST(PayloadSize, KnowsEveryCommandOfTheOcelot) {
    struct Row {
        std::uint8_t command;
        std::size_t size;
    };
    const Row rows[] = {{0xB0, 1},  {0xB1, 0},           {0xB2, 35}, {0xB3, 26}, {0xB4, 26},
                        {0xB5, 14}, {0xB6, 14},          {0xB7, 2},  {0xB8, 4},  {0xB9, 2},
                        {0xBA, 4},  {0xBB, 0},           {0xBC, 5},  {0xBD, 6},  {0xBE, 2},
                        {0xBF, 0},  {0xC1, 5},           {0xC2, 6},  {0xC3, 5},  {0xC4, 6},
                        {0xC5, 2},  {0xC6, 54 + 2 + 36}, {0xD4, 4},  {0xD5, 4}};
    int commands = 0;
    for (int code = 0; code < 256; ++code) {
        std::size_t expected = kNotACommand;
        for (const Row& row : rows)
            if (row.command == code) expected = row.size;
        EXPECT_EQ(PayloadSize(*FindModel("ocelot", 2), static_cast<std::uint8_t>(code)), expected)
            << code;
        commands += expected != kNotACommand ? 1 : 0;
    }
    EXPECT_EQ(commands, 24);
}

TEST(PayloadSize, FollowsTheModel) {
    EXPECT_EQ(PayloadSize(*FindModel("ocelot", 1), PluSale), 10U);
    EXPECT_EQ(PayloadSize(*FindModel("margay", 2), PluReturn), 14U);
    EXPECT_EQ(PayloadSize(*FindModel("margay", 2), DeptSale), 28U);
    EXPECT_EQ(PayloadSize(*FindModel("lynx", 1), PrintComment), 19U);
    EXPECT_EQ(PayloadSize(*FindModel("serval", 1), Barcode), 48U + 2 + 32);
    EXPECT_EQ(PayloadSize(*FindModel("margay", 2), Barcode), 30U + 2 + 20);
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What each habit changes about the emulated register, and that it changes nothing else.
#include <gtest/gtest.h>

#include <set>
#include <string_view>

#include "emulator/Habit.h"
#include "emulator/Line.h"
#include "tests/emulator/Peer.h"

using namespace emulator;

namespace {

const Bytes otherSale = FromHex("01") + Bytes(18, ' ') + FromHex("00 10 00 00 00 02 60");

/// One register with one habit, or none, in fiscal mode.
struct Shop {
    Shop(WireFamily family, std::initializer_list<Habit> habits)
        : device(ConfigWith(habits)), line(family, device), peer(line, family) {
        EXPECT_TRUE(peer.Do(EnterFiscalMode, {1}));
    }

    static RegisterConfig ConfigWith(std::initializer_list<Habit> habits) {
        RegisterConfig config;
        config.model = FindModel("ocelot", 2);
        for (const Habit habit : habits) config.habits.Add(habit);
        return config;
    }

    Register device;
    Line line;
    Peer peer;
};

class HabitOf : public testing::TestWithParam<WireFamily> {};

INSTANTIATE_TEST_SUITE_P(Habit, HabitOf, testing::Values(WireFamily::Ocelot, WireFamily::Margay),
                         [](const auto& each) {
                             return each.param == WireFamily::Ocelot ? "Ocelot" : "Margay";
                         });

Bytes Spoilt(Bytes frame) {
    frame.back() ^= 0x04;
    return frame;
}

}  // namespace

TEST(HabitTable, GivesEachHabitAWordOfItsOwn) {
    std::set<std::string_view> words;
    for (const HabitRow& row : HabitTable()) {
        EXPECT_EQ(FindHabit(row.word), row.habit);
        EXPECT_FALSE(row.meaning.empty());
        words.insert(row.word);
    }
    EXPECT_EQ(words.size(), 6U);
    EXPECT_EQ(FindHabit("number"), std::nullopt);
    EXPECT_EQ(FindHabit(""), std::nullopt);
}

TEST(HabitSet, HasWhatWasAdded) {
    Habits habits;
    EXPECT_FALSE(habits.Has(Habit::NumberOnly));
    habits.Add(Habit::ForgetsAtRequest);
    EXPECT_TRUE(habits.Has(Habit::ForgetsAtRequest));
    EXPECT_FALSE(habits.Has(Habit::NumberOnly));
}

TEST_P(HabitOf, NumberOnlyTakesAnotherCommandUnderTheSameNumberForARepetition) {
    Shop shop(GetParam(), {Habit::NumberOnly});
    EXPECT_TRUE(shop.peer.Send(DeptSale, 2, saleOf250));
    EXPECT_TRUE(shop.peer.Send(DeptSale, 2, otherSale));
    EXPECT_TRUE(shop.peer.Send(DeptReturn, 2, saleOf250));
    EXPECT_EQ(shop.device.Subtotal(), 250);
    EXPECT_TRUE(shop.peer.Send(DeptSale, 3, saleOf250));
    EXPECT_EQ(shop.device.Subtotal(), 500);
}

TEST_P(HabitOf, NumberOnlyForgetsTheNumberAtTheEndOfFile) {
    Shop shop(GetParam(), {Habit::NumberOnly});
    EXPECT_TRUE(shop.peer.Do(DeptSale, saleOf250));
    EXPECT_TRUE(shop.peer.Send(DeptSale, 1, saleOf250));
    shop.peer.Close();
    EXPECT_TRUE(shop.peer.Send(DeptSale, 1, saleOf250));
    EXPECT_EQ(shop.device.Subtotal(), 750);
}

TEST_P(HabitOf, ForgetsAtStatusActsAgainAfterAStatusRead) {
    Shop shop(GetParam(), {Habit::ForgetsAtStatus});
    EXPECT_TRUE(shop.peer.Send(DeptSale, 2, saleOf250));
    EXPECT_TRUE(shop.peer.Send(DeptSale, 2, saleOf250));
    EXPECT_EQ(shop.device.Subtotal(), 250);
    shop.peer.ReadStatus();
    EXPECT_TRUE(shop.peer.Send(DeptSale, 2, saleOf250));
    EXPECT_EQ(shop.device.Subtotal(), 500);
}

TEST_P(HabitOf, ForgetsAtStatusRemembersUntilTheStatusReadHasItsEndOfFile) {
    Shop shop(GetParam(), {Habit::ForgetsAtStatus});
    EXPECT_TRUE(shop.peer.Send(DeptSale, 2, saleOf250));
    shop.peer.Say(shop.peer.RequestFrame(ReadFiscalStatus));
    EXPECT_TRUE(shop.peer.Send(DeptSale, 2, saleOf250));
    EXPECT_EQ(shop.device.Subtotal(), 250);
}

TEST_P(HabitOf, ForgetsAtRequestActsAgainAtTheRepeatedCommand) {
    Shop shop(GetParam(), {Habit::ForgetsAtRequest});
    EXPECT_TRUE(shop.peer.Send(DeptSale, 2, saleOf250));
    EXPECT_TRUE(shop.device.Open().has_value());
    EXPECT_TRUE(shop.peer.Send(DeptSale, 2, saleOf250));
    EXPECT_EQ(shop.device.Subtotal(), 500);
}

TEST_P(HabitOf, AnswersStrayEofAcknowledgesOneThatIsNotDue) {
    Shop shop(GetParam(), {Habit::AnswersStrayEof});
    EXPECT_EQ(shop.peer.Say(shop.peer.EofFrame()), shop.peer.Ack());
    shop.peer.Say(shop.peer.RequestFrame(PrintComment));
    EXPECT_EQ(shop.peer.Say(shop.peer.EofFrame()), shop.peer.Ack());
    EXPECT_EQ(shop.device.Journal().size(), 1U);
    EXPECT_EQ(shop.peer.Say(Spoilt(shop.peer.RequestFrame(PrintComment))), shop.peer.Nak());
}

TEST_P(HabitOf, SilentWhenUnreadableAsksForNoFrameAgain) {
    Shop shop(GetParam(), {Habit::SilentWhenUnreadable});
    shop.peer.Say(shop.peer.RequestFrame(DeptSale));
    EXPECT_TRUE(shop.peer.Say(Spoilt(shop.peer.DataFrame(2, saleOf250))).empty());
    EXPECT_EQ(shop.peer.Say(shop.peer.DataFrame(2, saleOf250)), shop.peer.Ack());
    EXPECT_TRUE(shop.peer.Say(Spoilt(shop.peer.EofFrame())).empty());
    EXPECT_EQ(shop.peer.Say(shop.peer.EofFrame()), shop.peer.Ack());
    EXPECT_EQ(shop.device.Subtotal(), 250);
}

TEST_P(HabitOf, SilentWhenUnreadableStillRefusesByNak) {
    Shop shop(GetParam(), {Habit::SilentWhenUnreadable});
    shop.peer.Say(shop.peer.RequestFrame(AmountDiscount));
    EXPECT_EQ(shop.peer.Say(shop.peer.DataFrame(2, FromHex("00 00 01 00"))), shop.peer.Nak());
}

TEST_P(HabitOf, ForgetsWithoutPowerActsAgainAfterAPowerFailure) {
    Shop shop(GetParam(), {Habit::ForgetsWithoutPower});
    EXPECT_TRUE(shop.peer.Send(DeptSale, 2, saleOf250));
    shop.peer.ReadStatus();
    EXPECT_TRUE(shop.peer.Send(DeptSale, 2, saleOf250));
    EXPECT_EQ(shop.device.Subtotal(), 250);
    shop.device.PowerOff();
    shop.device.PowerOn();
    EXPECT_TRUE(shop.device.InFiscalMode());
    EXPECT_TRUE(shop.peer.Send(DeptSale, 2, saleOf250));
    EXPECT_EQ(shop.device.Subtotal(), 500);
}

TEST_P(HabitOf, AnotherLineGoesOnWhereThisOneIs) {
    Shop shop(GetParam(), {});
    shop.peer.Say(shop.peer.RequestFrame(DeptSale));
    Register twin = shop.device;
    Line line(shop.line, twin);
    EXPECT_EQ(line.Exchange(), shop.line.Exchange());
    EXPECT_EQ(line.Feed(shop.peer.DataFrame(2, saleOf250)), shop.peer.Ack());
    EXPECT_NE(line.Exchange(), shop.line.Exchange());
    EXPECT_EQ(twin.Subtotal(), 250);
    EXPECT_EQ(shop.device.Subtotal(), 0);
    EXPECT_EQ(shop.peer.Say(shop.peer.DataFrame(2, saleOf250)), shop.peer.Ack());
    EXPECT_EQ(line.Exchange(), shop.line.Exchange());
}

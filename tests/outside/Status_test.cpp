// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The shipped driver from outside. Command files of one word: EXIT and GET_STATUS.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "emulator/Register.h"
#include "tests/outside/Expectations.h"
#include "tests/support/Shop.h"

using emulator::Keylock;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Optional;

TEST(ExitFile, EndsWithOneAndWritesNoResult) {
    Shop shop;
    const RunOutcome run = shop.Execute("# the end\nexit\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run, NothingOfARun());
    EXPECT_EQ(shop.Line().Counters().bytesIn, 0) << "there is no connection";
    EXPECT_TRUE(Matches(run.dbgLog, StartPattern(" cmd.txt"))) << run.dbgLog;
}

TEST(ExitFile, IsNoErrorForTheLogs) {
    Shop shop;
    const RunOutcome run = shop.Ini("DbgErrorLog", "1").Execute("EXIT\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.dbgLog, "");
}

TEST(ExitFile, IsNothingSpecialWithAnotherCommand) {
    Shop shop;
    EXPECT_THAT(shop.Execute("EXIT\n" + sale).result, Optional(soldResult));
    EXPECT_THAT(shop.Execute("EXIT\nEXIT\n").result, Optional(soldResult));
}

TEST(GetStatus, TellsTheLastReceipt) {
    Shop shop;
    shop.Execute(sale);
    const RunOutcome run = shop.Execute("GET_STATUS\n");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.result, Optional(soldResult));
    EXPECT_THAT(run.journal, IsEmpty()) << "nothing but the status is asked for";
}

TEST(GetStatus, TellsTheReceiptInProgress) {
    Shop shop;
    shop.Execute(openReceipt);
    const RunOutcome run = shop.Execute("GET_STATUS\n");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.result,
                Optional(std::string("[VOLTIS]\nResultCode=0\nMessage=Receipt not finished\n"
                                     "CurrentReceiptNo=1\nSubtotal=5.00")));
    EXPECT_THAT(run.journal, IsEmpty());
}

TEST(GetStatus, TellsTheReceiptInProgressInTheOldFormat) {
    Shop shop;
    shop.Ini("OldResultFileFormat", "1").Execute(openReceipt);
    EXPECT_THAT(shop.Execute("GET_STATUS\n").result,
                Optional(std::string("0\nOK\nReceipt not finished")));
}

TEST(GetStatus, NeedsTheKeyInReg) {
    for (const Keylock position : {Keylock::Z, Keylock::Off, Keylock::X}) {
        Shop shop;
        shop.Device().SetKeylock(position);
        const RunOutcome run = shop.Execute("GET_STATUS\n");
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_THAT(run.result,
                    Optional(FailedResult(
                        2, "Incorrect keylock position. Please set keylock in REG position", 104)));
    }
}

TEST(GetStatus, TellsTheLastResult) {
    Shop shop;
    LeaveResultCode(shop, emulator::result::JournalPaperEnd);
    EXPECT_THAT(shop.Execute("GET_STATUS\n").result,
                Optional(FailedResult(2, "Journal paper end", 202)));
}

TEST(GetStatus, LooksAtTheKeyFirst) {
    Shop shop;
    shop.Device().SetKeylock(Keylock::X);
    LeaveResultCode(shop, emulator::result::JournalPaperEnd);
    EXPECT_THAT(shop.Execute("GET_STATUS\n").result, Optional(HasSubstr("ErrorCode=104")));
    EXPECT_THAT(shop.Execute(sale).result, Optional(HasSubstr("ErrorCode=202")))
        << "a file with commands looks at the result first";
}

TEST(GetStatus, IsNothingSpecialWithAnotherCommand) {
    Shop shop;
    shop.Execute(openReceipt);
    EXPECT_THAT(shop.Execute("GET_STATUS\nGET_STATUS\n").result,
                Optional(FailedResult(2, "Previous receipt not finished", 105)));
    Shop another;
    EXPECT_THAT(another.Execute("GET_STATUS\n" + sale).result, Optional(soldResult));
}

TEST(GetStatus, TakesNoParameters) {
    Shop shop;
    EXPECT_THAT(shop.Execute("GET_STATUS: A=1\n").result,
                Optional(FailedResult(1, "Too many parameters (line: 1)", 1)));
}

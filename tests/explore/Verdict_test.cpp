// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What a run is found guilty of.
#include "tests/explore/Verdict.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/explore/Scenario.h"

using namespace explore;
using emulator::Bytes;

namespace {

const Action a{emulator::DeptSale, {1}}, b{emulator::Tender, {2}}, alien{emulator::Report, {}};

class Verdict : public testing::Test {
  protected:
    std::string ResultFile(int exitCode, const std::string& rest) {
        return "[Result]\nResultCode=" + std::to_string(exitCode) + "\n" + rest;
    }
    /// A run that tells nothing untrue by itself.
    Told Of(int exitCode) {
        Told told;
        told.end.exitCode = exitCode;
        told.result = ResultFile(exitCode, "LastReceiptNo=41\n");
        told.fiscalFrame = exitCode == 101 || exitCode == 0;
        return told;
    }
    unsigned Issues(const Told& told, const Actions& done, const Actions& expected) {
        const RunEnd end = Judge(told, done, expected, device_);
        EXPECT_EQ(end.exitCode, told.end.exitCode);
        return end.issues;
    }
    unsigned Issues(int exitCode, const Actions& done, const Actions& expected) {
        return Issues(Of(exitCode), done, expected);
    }
    static unsigned Only(std::initializer_list<Issue> issues) {
        RunEnd end;
        for (const Issue issue : issues) end.Add(issue);
        return end.issues;
    }
    void EnterFiscalMode() { device_.Execute(emulator::EnterFiscalMode, 1, Bytes{1}); }
    void BeginReceipt() {
        EnterFiscalMode();
        Bytes sale(emulator::PayloadSize(device_.GetModel(), emulator::DeptSale), ' ');
        const Bytes amounts = {0x00, 0x10, 0x00, 0x00, 0x01, 0x00, 0x00};  // quantity and price
        std::copy(amounts.begin(), amounts.end(), sale.end() - 7);
        sale[0] = 1;
        ASSERT_TRUE(device_.Execute(emulator::DeptSale, 2, sale));
        ASSERT_TRUE(device_.ReceiptInProgress());
    }

    emulator::Register device_{ParseScenario("margay", "sale", "default").Register()};
};

}  // namespace

TEST_F(Verdict, ARunThatDidAllOfTheFileInItsOrderHasNoIssue) {
    EXPECT_EQ(Issues(0, {a, b}, {a, b}), 0U);
    EXPECT_EQ(Issues(0, {a, a}, {a, a}), 0U);
}

TEST_F(Verdict, ARunThatDidABeginningOfTheFileAndTells101HasNoIssue) {
    for (const Actions& done : {Actions{}, Actions{a}, Actions{a, b}, Actions{a, b, a}})
        EXPECT_EQ(Issues(101, done, {a, b, a}), 0U) << done.size();
}

TEST_F(Verdict, ARunThatDidNothingAndTells1Or2HasNoIssue) {
    EXPECT_EQ(Issues(1, {}, {a, b}), 0U);
    EXPECT_EQ(Issues(2, {}, {a, b}), 0U);
}

// --- what was done -------------------------------------------------------------------------------

TEST_F(Verdict, ACommandIsMissingAfter0) {
    EXPECT_EQ(Issues(0, {a}, {a, b}), Only({Issue::Missing}));
    EXPECT_EQ(Issues(0, {b}, {a, b}), Only({Issue::Missing}));
}

TEST_F(Verdict, OneOfTwoEqualCommandsIsMissingAfter0) {
    EXPECT_EQ(Issues(0, {a}, {a, a}), Only({Issue::Missing}));
    EXPECT_EQ(Issues(0, {a, b}, {a, b, a}), Only({Issue::Missing}));
}

TEST_F(Verdict, AnotherOrderCountsAsMissing) {
    EXPECT_EQ(Issues(0, {b, a}, {a, b}), Only({Issue::Missing}));
}

TEST_F(Verdict, ACommandThatWasDoneOnceMoreThanTheFileHasItIsTwice) {
    EXPECT_EQ(Issues(0, {a, a, b}, {a, b}), Only({Issue::Twice}));
    EXPECT_EQ(Issues(0, {a, a, a}, {a, a}), Only({Issue::Twice}));
    EXPECT_EQ(Issues(101, {a, a}, {a, b}), Only({Issue::Twice}));
}

TEST_F(Verdict, DoneTwiceInARunWith2IsTwiceAndActed) {
    EXPECT_EQ(Issues(2, {a, a}, {a, b}), Only({Issue::Twice, Issue::Acted}));
}

TEST_F(Verdict, OneCommandTwiceInPlaceOfAnotherIsTwiceAndMissing) {
    EXPECT_EQ(Issues(0, {a, a}, {a, b}), Only({Issue::Twice, Issue::Missing}));
}

TEST_F(Verdict, WhatTheFileDoesNotHaveIsAlien) {
    EXPECT_EQ(Issues(0, {a, alien}, {a}), Only({Issue::Alien}));
    EXPECT_EQ(Issues(101, {alien}, {a}), Only({Issue::Alien}));
    const Action otherwise{a.command, {9}};  // the same command with other parameters
    EXPECT_EQ(Issues(101, {otherwise}, {a}), Only({Issue::Alien}));
}

TEST_F(Verdict, AGapIsNoBeginningOfTheFile) {
    EXPECT_EQ(Issues(101, {b}, {a, b}), Only({Issue::NoBeginning}));
    EXPECT_EQ(Issues(101, {a, b}, {a, a, b}), Only({Issue::NoBeginning}));
    EXPECT_EQ(Issues(2, {b}, {a, b}), Only({Issue::NoBeginning, Issue::Acted}));
}

TEST_F(Verdict, ACommandThatWasDoneIsAnIssueAfter1And2) {
    EXPECT_EQ(Issues(1, {a}, {a, b}), Only({Issue::Acted}));
    EXPECT_EQ(Issues(2, {a}, {a, b}), Only({Issue::Acted}));
}

// --- what was written and refused ----------------------------------------------------------------

TEST_F(Verdict, ADataFrameThatWasWrittenIsAnIssueAfter1And2) {
    for (const int exitCode : {1, 2}) {
        Told told = Of(exitCode);
        told.fiscalFrame = true;
        EXPECT_EQ(Issues(told, {}, {a}), Only({Issue::Written})) << exitCode;
    }
}

TEST_F(Verdict, A101WithoutADataFrameIsUnwritten) {
    Told told = Of(101);
    told.fiscalFrame = false;
    EXPECT_EQ(Issues(told, {}, {a}), Only({Issue::Unwritten}));
}

TEST_F(Verdict, ARefusalIsAnIssueAfter0Only) {
    Told told = Of(0);
    told.refusal = true;
    EXPECT_EQ(Issues(told, {a}, {a}), Only({Issue::Refused}));
    for (const int exitCode : {2, 101}) {
        told = Of(exitCode);
        told.refusal = true;
        EXPECT_EQ(Issues(told, {}, {a}), 0U) << exitCode;
    }
}

TEST_F(Verdict, AnEndOfFileOutOfTurnIsAnIssueAfterEveryCode) {
    for (const int exitCode : {0, 1, 2, 101}) {
        Told told = Of(exitCode);
        told.outOfTurn = true;
        EXPECT_EQ(Issues(told, {}, {}), Only({Issue::OutOfTurn})) << exitCode;
    }
}

// --- what was told -------------------------------------------------------------------------------

TEST_F(Verdict, ANumberOtherThanThatOfTheLastReceiptIsWrong) {
    Told told = Of(0);
    for (const char* wrong : {"LastReceiptNo=42\n", "CurrentReceiptNo=41\n", ""}) {
        told.result = ResultFile(0, wrong);
        EXPECT_EQ(Issues(told, {a}, {a}), Only({Issue::WrongNumber})) << wrong;
    }
}

TEST_F(Verdict, WhileAReceiptIsInProgressItsNumberCounts) {
    BeginReceipt();
    Told told = Of(0);
    told.result = ResultFile(0, "CurrentReceiptNo=42\n");
    EXPECT_EQ(Issues(told, {a}, {a}), 0U);
    for (const char* wrong : {"LastReceiptNo=42\n", "CurrentReceiptNo=41\n"}) {
        told.result = ResultFile(0, wrong);
        EXPECT_EQ(Issues(told, {a}, {a}), Only({Issue::WrongNumber})) << wrong;
    }
}

TEST_F(Verdict, NoNumberIsAskedForAfterOtherCodes) {
    Told told = Of(101);
    told.result = ResultFile(101, "");
    EXPECT_EQ(Issues(told, {a}, {a}), 0U);
}

TEST_F(Verdict, AResultFileThatTellsAnotherCodeIsAWrongResult) {
    for (const int exitCode : {0, 1, 2, 101}) {
        Told told = Of(exitCode);
        told.result = ResultFile(7, "LastReceiptNo=41\n");
        EXPECT_EQ(Issues(told, {}, {}), Only({Issue::WrongResult})) << exitCode;
        told.result = "\nLastReceiptNo=41\n";
        EXPECT_EQ(Issues(told, {}, {}), Only({Issue::WrongResult})) << exitCode;
    }
}

TEST_F(Verdict, ACodeThatDoesNotExistIsAWrongResult) {
    for (const int exitCode : {-1, 3, 100})
        EXPECT_EQ(Issues(exitCode, {}, {a}), Only({Issue::WrongResult})) << exitCode;
}

TEST_F(Verdict, AnExceptionThatIsNoneOfTheDriversHasEscaped) {
    Told told = Of(2);
    told.end.escaped = true;
    EXPECT_EQ(Issues(told, {}, {a}), Only({Issue::Escaped}));
}

// --- what the register acted on ------------------------------------------------------------------

TEST_F(Verdict, ActionsAreWhatWasAcceptedSinceThenButForFiscalMode) {
    EnterFiscalMode();
    const auto open = [&](std::uint16_t sequence) {
        device_.CloseCommand();
        return device_.Execute(emulator::OpenCashDrawer, sequence, Bytes{});
    };
    EXPECT_TRUE(open(2));
    const std::size_t begin = device_.Journal().size();
    EXPECT_EQ(ActionsSince(device_, 0), (Actions{{emulator::OpenCashDrawer, {}}}));
    device_.RefuseNext(3);
    EXPECT_FALSE(open(3));
    EXPECT_TRUE(ActionsSince(device_, begin).empty());
    EXPECT_TRUE(open(4));
    EXPECT_TRUE(device_.Execute(emulator::ExitFiscalMode, 5, Bytes{}));
    EXPECT_EQ(ActionsSince(device_, begin), (Actions{{emulator::OpenCashDrawer, {}}}));
}

// --- words ---------------------------------------------------------------------------------------

TEST(EndingText, NamesEachRunAndItsIssues) {
    RunEnd missing{0, 0};
    missing.Add(Issue::Missing);
    EXPECT_EQ(EndingText({{2, 0}, missing}), "2, then 0 (a command is missing)");
    missing.Add(Issue::WrongNumber);
    EXPECT_EQ(EndingText({missing, {101, 0}}),
              "0 (a command is missing, wrong receipt number), then 101");
    EXPECT_EQ(EndingText({}), "");
}

TEST(EndingText, HasAWordOfItsOwnForEachIssue) {
    for (std::size_t i = 0; i < issueCount; ++i) {
        RunEnd end{0, 0};
        end.Add(static_cast<Issue>(i));
        const std::string_view word = IssueWord(static_cast<Issue>(i));
        EXPECT_EQ(EndingText({end}), "0 (" + std::string(word) + ")");
        for (std::size_t j = 0; j < i; ++j) EXPECT_NE(word, IssueWord(static_cast<Issue>(j)));
    }
}

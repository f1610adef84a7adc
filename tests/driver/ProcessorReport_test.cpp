// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Reports, drawer, customer display, comments and the copy of the last receipt.

#include <gtest/gtest.h>

#include "Globals.h"
#include "ProcessorInternal.h"
#include "tests/support/ProcessorTest.h"

namespace {

using ReportCommand = ProcessorTest;
using OpenDrawer = ProcessorTest;
using Display = ProcessorTest;
using ShowTotal = ProcessorTest;
using CommentCommand = ProcessorTest;
using ReceiptCopy = ProcessorTest;

Told Reported(const std::string& payload) {
    return {"time-out report", "c5 fiscal : " + payload, "time-out default"};
}

TEST_F(ReportCommand, IsChosenByType) {
    ExpectSent("REPORT: TYPE=Z", Reported("01 00"));
    ExpectSent("REPORT: TYPE=X", Reported("01 cc"));
}

TEST_F(ReportCommand, OfTheCashInTheDrawerHasANumberByModel) {
    for (const Model model : {Model::Ocelot, Model::Serval, Model::Lynx, Model::Puma}) {
        ExpectSent(model, "REPORT: TYPE=X_CASHINDRAWER", Reported("13 cc"));
    }
    ExpectSent(Model::Margay, "REPORT: TYPE=X_CASHINDRAWER", Reported("02 cc"));
}

TEST_F(ReportCommand, IsChosenInAnyCase) {
    ExpectSent("REPORT: TYPE=x", Reported("01 cc"));
    ExpectSent("REPORT: TYPE=z", Reported("01 00"));
    ExpectSent("REPORT: TYPE=x_CashInDrawer", Reported("13 cc"));
    ExpectSent("REPORT: MODE=x; NUMBER=2", Reported("02 cc"));
}

TEST_F(ReportCommand, IsChosenByModeAndNumber) {
    ExpectSent("REPORT: MODE=X; NUMBER=13", Reported("13 cc"));
    ExpectSent("REPORT: MODE=Z; NUMBER=1", Reported("01 00"));
    ExpectSent("REPORT: MODE=Z; NUMBER=99", Reported("99 00"));
}

TEST_F(ReportCommand, RefusesAnotherType) {
    ExpectRefused("REPORT: TYPE=y", "Unsupported TYPE value - Y (line: 1)");
    ExpectRefused("REPORT: TYPE=Z_CashInDrawer",
                  "Unsupported TYPE value - Z_CASHINDRAWER (line: 1)");
    ExpectRefused("REPORT: TYPE=\"\"", "Unsupported TYPE value -   (line: 1)");
}

TEST_F(ReportCommand, RefusesAnotherMode) {
    ExpectRefused("REPORT: MODE=y; NUMBER=1", "Unsupported MODE value - Y (line: 1)");
    ExpectRefused("REPORT: MODE=X_CASHINDRAWER; NUMBER=1",
                  "Unsupported MODE value - X_CASHINDRAWER (line: 1)");
}

TEST_F(ReportCommand, WantsTypeOrMode) {
    ExpectRefused("REPORT", "TYPE or MODE missing (line: 1)");
    ExpectRefused("REPORT: NUMBER=1", "TYPE or MODE missing (line: 1)");
}

TEST_F(ReportCommand, WantsANumberWithAMode) {
    ExpectRefused("REPORT: MODE=X", "NUMBER is missing (line: 1)");
    ExpectRefused("REPORT: MODE=X; NUMBER=a", "Wrong number format (line: 1)");
    for (const char* number : {"0", "100", "1.5", "-1"}) {
        ExpectRefused("REPORT: MODE=X; NUMBER=" + std::string(number),
                      "Incorrect NUMBER value (line: 1)");
    }
}

TEST_F(ReportCommand, ChecksTheModeBeforeTheNumber) {
    ExpectRefused("REPORT: MODE=Y; NUMBER=0", "Unsupported MODE value - Y (line: 1)");
}

TEST_F(ReportCommand, HasNeitherModeNorNumberBesideAType) {
    ExpectRefused("REPORT: TYPE=Z; MODE=X", "Too many parameters (line: 1)");
    ExpectRefused("REPORT: TYPE=Z; NUMBER=1", "Too many parameters (line: 1)");
}

TEST_F(ReportCommand, LeavesItsTimeoutWhenItFails) {
    Ecr().FailCommand(2, {151, "Send error"});
    ExpectFailure("REPORT: TYPE=Z", 151, "Send error",
                  {"b0 : 01", "time-out report", "c5 fiscal : 01 00", "b1 :"});
}

TEST_F(OpenDrawer, TakesTheTimeoutOfATender) {
    ExpectSent("OPEN_DRAWER", {"time-out tender", "bf fiscal :", "time-out default"});
}

TEST_F(OpenDrawer, LeavesItsTimeoutWhenItFails) {
    Ecr().FailCommand(2, {151, "Send error"});
    ExpectFailure("OPEN_DRAWER", 151, "Send error",
                  {"b0 : 01", "time-out tender", "bf fiscal :", "b1 :"});
}

TEST_F(OpenDrawer, IsAllowedInsideAReceipt) {
    Ecr().KeepReceipts();
    EXPECT_EQ(Run("SALE: PLUNR=1\nOPEN_DRAWER\nTENDER"), nullptr);
}

TEST_F(Display, IsSwitchedOnAndOff) {
    ExpectSent("DISPLAY_ON", {"be fiscal : ff ff"});
    ExpectSent("DISPLAY_OFF", {"be fiscal : 00 00"});
}

TEST_F(Display, SendsNothingInTheCheckPass) {
    EXPECT_EQ(CheckPass("DISPLAY_ON\nDISPLAY_OFF"), nullptr);
}

TEST_F(ShowTotal, SwitchesTheDisplayOnAsksForTheTotalWaitsAndSwitchesItOff) {
    for (const char* command : {"SHOW_TOTAL", "SHOW_SUBTOTAL"}) {
        ExpectSent(command, {"be fiscal : ff ff", "bb fiscal :", "sleep 800", "be fiscal : 00 00"});
    }
}

TEST_F(ShowTotal, WaitsForTheSecondsGiven) {
    for (const char* command : {"SHOW_TOTAL: SECONDS=2", "SHOW_SUBTOTAL: SECONDS=2"}) {
        ExpectSent(command,
                   {"be fiscal : ff ff", "bb fiscal :", "sleep 2000", "be fiscal : 00 00"});
    }
}

TEST_F(ShowTotal, NeitherSendsNorWaitsInTheCheckPass) {
    EXPECT_EQ(CheckPass("SHOW_SUBTOTAL: SECONDS=2\nSHOW_TOTAL"), nullptr);
}

TEST_F(ShowTotal, HasNoOtherParameter) {
    ExpectRefused("SHOW_TOTAL: SECONDS=2; TEXT=a", "Too many parameters (line: 1)");
}

TEST_F(CommentCommand, FillsTheLineOfTheModel) {
    struct {
        Model model;
        std::size_t length;
    } const rows[] = {{Model::Ocelot, 35},
                      {Model::Serval, 31},
                      {Model::Lynx, 19},
                      {Model::Puma, 31},
                      {Model::Margay, 19}};
    for (const auto& row : rows) {
        const std::string text(row.length, 'c');
        ExpectSent(row.model, "COMMENT: TEXT=" + text, {"b2 fiscal : " + Hex(text)});
        ExpectSent(row.model, "COMMENT: TEXT=" + text.substr(1),
                   {"b2 fiscal : " + Hex(text.substr(1)) + " 20"});
        ExpectRefused(row.model, "COMMENT: TEXT=c" + text, "TEXT is too long (line: 1)");
    }
}

TEST_F(CommentCommand, KeepsBlanksAndQuotes) {
    ExpectSent("COMMENT: TEXT=\" a \\\"b\\\"\"", {"b2 fiscal : 20 61 20 22 62 22 " + Hex("", 29)});
}

TEST_F(CommentCommand, WantsAText) {
    ExpectRefused("COMMENT", "TEXT is missing (line: 1)");
    ExpectRefused("COMMENT: FOO=1", "TEXT is missing (line: 1)");
}

TEST_F(CommentCommand, OfTwoQuotesIsAnEmptyLine) {
    ExpectSent("COMMENT: TEXT=\"\"", {"b2 fiscal : " + Hex("", 35)});
}

TEST_F(CommentCommand, OfNoTextIsAnEmptyLine) {
    State = STATE_EXECUTE;
    PrintComment("");
    EXPECT_EQ(Ecr().Told(), Told{"b2 fiscal : " + Hex("", 35)});
}

TEST_F(CommentCommand, IsTooLongInBothPasses) {
    State = STATE_EXECUTE;
    const auto failure = FailureOf([] { PrintComment(std::string(36, 'c')); });
    ASSERT_NE(failure, nullptr);
    EXPECT_EQ(failure->Message, "TEXT is too long");
    EXPECT_EQ(Ecr().Told(), Told{});
}

TEST_F(ReceiptCopy, IsATotalOutsideAReceiptWithTheTimeoutOfATender) {
    ExpectSent("LAST_RECEIPT_COPY", {"time-out tender", "bb fiscal :", "time-out default"});
}

TEST_F(ReceiptCopy, LeavesItsTimeoutWhenItFails) {
    Ecr().FailCommand(2, {151, "Send error"});
    ExpectFailure("LAST_RECEIPT_COPY", 151, "Send error",
                  {"b0 : 01", "time-out tender", "bb fiscal :", "b1 :"});
}

}  // namespace

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The frame of the processor: initialising, the two passes, what a receipt must be like before and
// after a file, what happens after a failure, the dispatcher and the limits of the models.

#include "FiscalCommandProcessor.h"

#include <gtest/gtest.h>

#include <set>

#include "Globals.h"
#include "ProcessorInternal.h"
#include "tests/support/ProcessorTest.h"

namespace {

const char sale[] = "SALE: DEPTNR=1; AMOUNT=2.50\n";
const std::string saleTold = "b3 fiscal : 01 " + Hex("", 18) + " 00 10 00 00 00 02 50";
const char totalTold[] = "bb fiscal :";

using Initialize = ProcessorTest;
using CashierNumber = ProcessorTest;
using CheckPassOfAFile = ProcessorTest;
using StartOfAFile = ProcessorTest;
using EndOfAFile = ProcessorTest;
using AfterAFailure = ProcessorTest;
using LineOfAFailure = ProcessorTest;
using Dispatcher = ProcessorTest;
using NumericParameter = ProcessorTest;
using LimitsByModel = ProcessorTest;
using ReportInsideAReceipt = ProcessorTest;

// Initialising

TEST_F(Initialize, RefusesAnUnknownCodePageByItsNameInUpperCase) {
    const auto failure = FailureOf([&] { Configure("CodePage=latin\n"); });
    ASSERT_NE(failure, nullptr);
    EXPECT_EQ(failure->ErrorCode, 3);
    EXPECT_EQ(failure->Message, "INI-file contains unknown codepage : 'LATIN'");
    EXPECT_FALSE(cmdError);
}

TEST_F(Initialize, RefusesAnEmptyCodePage) {
    const auto failure = FailureOf([&] { Configure("CodePage=\n"); });
    ASSERT_NE(failure, nullptr);
    EXPECT_EQ(failure->Message, "INI-file contains unknown codepage : ''");
}

TEST_F(Initialize, TakesTheNameOfACodePageInAnyCase) {
    for (const char* name : {"DOS", "dos", "Rim", "tilde", "TILDE"}) {
        const auto failure = FailureOf([&] { Configure(std::string("CodePage=") + name + "\n"); });
        EXPECT_EQ(failure, nullptr) << name;
    }
}

// The cashier

TEST_F(CashierNumber, IsOneWithoutACashierSystem) {
    Configure("CashierNumber=7\n");
    ASSERT_EQ(Run("TOTAL"), nullptr);
    EXPECT_EQ(Ecr().Told(), (Told{"b0 : 01", totalTold, "b1 :"}));
}

TEST_F(CashierNumber, IsTheConfiguredOneInACashierSystem) {
    Configure("CashierNumber=7\n");
    Ecr().settings.cashierSystemOn = true;
    ASSERT_EQ(Run("TOTAL"), nullptr);
    EXPECT_EQ(Ecr().Told(), (Told{"b0 : 07", totalTold, "b1 :"}));
}

TEST_F(CashierNumber, IsOneInACashierSystemByDefault) {
    Ecr().settings.cashierSystemOn = true;
    ASSERT_EQ(Run("TOTAL"), nullptr);
    EXPECT_EQ(Ecr().Told().front(), "b0 : 01");
}

TEST_F(CashierNumber, IsSentAsItsLowByte) {
    Configure("CashierNumber=300\n");
    Ecr().settings.cashierSystemOn = true;
    ASSERT_EQ(Run("TOTAL"), nullptr);
    EXPECT_EQ(Ecr().Told().front(), "b0 : 2c");
}

// The two passes

TEST_F(CheckPassOfAFile, SendsNothingAndLooksAtNoStatus) {
    Ecr().FailStatusReadsAfter(0, {150, "ECR response lost"});
    EXPECT_EQ(CheckPass("SALE: DEPTNR=1; AMOUNT=1\nCOMMENT: TEXT=a\nTENDER\nTOTAL\nREPORT: TYPE=Z\n"
                        "OPEN_DRAWER\nDISPLAY_ON\nSHOW_TOTAL\nPAUSE\nLAST_RECEIPT_COPY"),
              nullptr);
}

TEST_F(CheckPassOfAFile, FindsAFaultAfterGoodCommands) {
    ExpectRefused(std::string(sale) + "TENDER\nSALE: DEPTNR=0; AMOUNT=1",
                  "Incorrect DEPTNR value (line: 3)");
}

TEST_F(CheckPassOfAFile, LeavesFiscalModeAloneAfterAFault) {
    Ecr().status.inFiscalMode = true;
    ExpectRefused("FOO", "Unknown command : FOO (line: 1)");
    EXPECT_TRUE(Ecr().status.inFiscalMode);
}

TEST_F(CheckPassOfAFile, EndsARunWithAFaultBeforeAnythingIsSent) {
    ExpectFailure(std::string(sale) + "FOO", 1, "Unknown command : FOO (line: 2)", {});
}

TEST_F(CheckPassOfAFile, TakesAnEmptyFile) {
    EXPECT_EQ(Run("\n# nothing to do\n"), nullptr);
    EXPECT_EQ(Ecr().Told(), (Told{"b0 : 01", "b1 :"}));
}

// Before the first command

TEST_F(StartOfAFile, EntersFiscalMode) {
    ASSERT_EQ(Run(sale), nullptr);
    EXPECT_EQ(Ecr().Told(), (Told{"b0 : 01", saleTold, "b1 :"}));
}

TEST_F(StartOfAFile, DoesNotEnterFiscalModeTwice) {
    Ecr().status.inFiscalMode = true;
    ASSERT_EQ(Run(sale), nullptr);
    EXPECT_EQ(Ecr().Told(), (Told{saleTold, "b1 :"}));
}

TEST_F(StartOfAFile, FailsWithTheResultOfTheLastCommand) {
    struct {
        BYTE result;
        int errorCode;
        const char* message;
    } const rows[] = {{1, 201, "Receipt paper end"},
                      {2, 202, "Journal paper end"},
                      {3, 203, "Printer error"},
                      {50, 250, "Fiscal command execution error"},
                      {99, 299, "Other error"}};
    for (const auto& row : rows) {
        Ecr().status.lastCommandResultCode = row.result;
        ExpectFailure(sale, row.errorCode, row.message, {});
        EXPECT_FALSE(cmdError);
    }
}

TEST_F(StartOfAFile, WantsTheKeylockInTheRegPosition) {
    for (const BYTE position : {BYTE{0}, BYTE{1}, BYTE{3}}) {
        Ecr().status.keylockPosition = position;
        ExpectFailure(sale, 104, "Incorrect keylock position. Please set keylock in REG position",
                      {});
    }
}

TEST_F(StartOfAFile, WantsNoReceiptOpen) {
    Ecr().status.receiptInProgress = true;
    ExpectFailure(sale, 105, "Previous receipt not finished", {});
}

TEST_F(StartOfAFile, ThatContinuesAReceiptWantsOneOpen) {
    continueUnfinishedReceipt = true;
    ExpectFailure(sale, 107, "Receipt not started", {});
}

TEST_F(StartOfAFile, ThatContinuesAReceiptDoesNotEnterFiscalMode) {
    continueUnfinishedReceipt = true;
    Ecr().status.receiptInProgress = true;
    Ecr().KeepReceipts();
    ASSERT_EQ(Run("TENDER"), nullptr);
    EXPECT_EQ(Ecr().Told(),
              (Told{"time-out tender", "bc fiscal : 01 00 00 00 00", "time-out default", "b1 :"}));
}

TEST_F(StartOfAFile, LooksAtTheResultBeforeTheKeylock) {
    Ecr().status.lastCommandResultCode = 3;
    Ecr().status.keylockPosition = 1;
    Ecr().status.receiptInProgress = true;
    ExpectFailure(sale, 203, "Printer error", {});
}

TEST_F(StartOfAFile, LooksAtTheKeylockBeforeTheReceipt) {
    Ecr().status.keylockPosition = 1;
    Ecr().status.receiptInProgress = true;
    ExpectFailure(sale, 104, "Incorrect keylock position. Please set keylock in REG position", {});
}

TEST_F(StartOfAFile, LooksAtTheKeylockBeforeTheReceiptToContinue) {
    continueUnfinishedReceipt = true;
    Ecr().status.keylockPosition = 1;
    ExpectFailure(sale, 104, "Incorrect keylock position. Please set keylock in REG position", {});
}

TEST_F(StartOfAFile, PassesOnWhatTheLinkRaises) {
    Ecr().FailStatusReadsAfter(0, {101, "ECR is busy or has incorrect network ID"});
    ExpectFailure(sale, 101, "ECR is busy or has incorrect network ID", {});
}

// After the last command

TEST_F(EndOfAFile, LeavesFiscalMode) {
    ASSERT_EQ(Run("TOTAL"), nullptr);
    EXPECT_EQ(Ecr().Told(), (Told{"b0 : 01", totalTold, "b1 :"}));
    EXPECT_FALSE(receiptNotFinished);
}

TEST_F(EndOfAFile, KeepsFiscalModeWhenConfigured) {
    Configure("KeepEcrBlocked=1\n");
    ASSERT_EQ(Run("TOTAL"), nullptr);
    EXPECT_EQ(Ecr().Told(), (Told{"b0 : 01", totalTold}));
}

TEST_F(EndOfAFile, TakesAnyNumberButZeroForKeeping) {
    Configure("KeepEcrBlocked=-1\n");
    ASSERT_EQ(Run("TOTAL"), nullptr);
    EXPECT_TRUE(Ecr().status.inFiscalMode);
}

TEST_F(EndOfAFile, IsNotConcernedByTheSettingForFailures) {
    Configure("KeepEcrBlockedAfterError=1\n");
    ASSERT_EQ(Run("TOTAL"), nullptr);
    EXPECT_FALSE(Ecr().status.inFiscalMode);
}

TEST_F(EndOfAFile, WantsNoReceiptOpen) {
    Ecr().KeepReceipts();
    ExpectFailure(sale, 106, "Current receipt not finished", {"b0 : 01", saleTold, "b1 :"});
}

TEST_F(EndOfAFile, WantsNoReceiptOpenAlsoWhenFiscalModeIsKept) {
    Configure("KeepEcrBlocked=1\n");
    Ecr().KeepReceipts();
    ExpectFailure(sale, 106, "Current receipt not finished", {"b0 : 01", saleTold, "b1 :"});
}

TEST_F(EndOfAFile, TakesAPaidReceipt) {
    Ecr().KeepReceipts();
    ExpectSent(std::string(sale) + "TENDER",
               {saleTold, "time-out tender", "bc fiscal : 01 00 00 00 00", "time-out default"});
}

TEST_F(EndOfAFile, ThatLeavesAReceiptOpenKeepsFiscalMode) {
    leaveReceiptUnfinished = true;
    Ecr().KeepReceipts();
    ASSERT_EQ(Run(sale), nullptr);
    EXPECT_EQ(Ecr().Told(), (Told{"b0 : 01", saleTold}));
    EXPECT_TRUE(receiptNotFinished);
}

TEST_F(EndOfAFile, ThatLeavesAReceiptOpenWantsOneOpen) {
    leaveReceiptUnfinished = true;
    ExpectFailure("TOTAL", 108, "Receipt already finished", {"b0 : 01", totalTold, "b1 :"});
    EXPECT_FALSE(receiptNotFinished);
}

TEST_F(EndOfAFile, ThatLeavesAReceiptToTheOperatorLeavesFiscalMode) {
    leaveReceiptUnfinished = continueManually = true;
    Ecr().KeepReceipts();
    ASSERT_EQ(Run(sale), nullptr);
    EXPECT_EQ(Ecr().Told(), (Told{"b0 : 01", saleTold, "b1 :"}));
    EXPECT_TRUE(receiptNotFinished);
}

TEST_F(EndOfAFile, ThatLeavesAReceiptToTheOperatorIgnoresTheSettingThatKeepsFiscalMode) {
    Configure("KeepEcrBlocked=1\n");
    leaveReceiptUnfinished = continueManually = true;
    Ecr().KeepReceipts();
    ASSERT_EQ(Run(sale), nullptr);
    EXPECT_FALSE(Ecr().status.inFiscalMode);
}

TEST_F(EndOfAFile, ThatLeavesAReceiptToTheOperatorWantsOneOpen) {
    leaveReceiptUnfinished = continueManually = true;
    ExpectFailure("TOTAL", 108, "Receipt already finished", {"b0 : 01", totalTold, "b1 :"});
}

TEST_F(EndOfAFile, TellsOfAnUnfinishedReceiptOnlyOnceTheRegisterWasReleased) {
    leaveReceiptUnfinished = continueManually = true;
    Ecr().KeepReceipts();
    Ecr().FailCommand(3, {150, "ECR response lost"});
    ExpectFailure(sale, 150, "ECR response lost", {"b0 : 01", saleTold, "b1 :", "b1 :"});
    EXPECT_FALSE(receiptNotFinished);
}

TEST_F(EndOfAFile, ThatContinuesAndLeavesAReceiptOpenSendsOnlyItsCommands) {
    continueUnfinishedReceipt = leaveReceiptUnfinished = true;
    Ecr().status.receiptInProgress = true;
    ASSERT_EQ(Run(sale), nullptr);
    EXPECT_EQ(Ecr().Told(), Told{saleTold});
    EXPECT_TRUE(receiptNotFinished);
}

// After a failure

TEST_F(AfterAFailure, FiscalModeIsLeft) {
    Ecr().FailCommand(2, {150, "ECR response lost"});
    ExpectFailure("TOTAL\nTENDER", 150, "ECR response lost", {"b0 : 01", totalTold, "b1 :"});
}

TEST_F(AfterAFailure, FiscalModeIsKeptWhenConfigured) {
    Configure("KeepEcrBlockedAfterError=1\n");
    Ecr().FailCommand(2, {150, "ECR response lost"});
    ExpectFailure("TOTAL", 150, "ECR response lost", {"b0 : 01", totalTold});
    EXPECT_TRUE(Ecr().status.inFiscalMode);
}

TEST_F(AfterAFailure, AnyNumberButZeroKeepsFiscalMode) {
    Configure("KeepEcrBlockedAfterError=-1\n");
    Ecr().FailCommand(2, {150, "ECR response lost"});
    ExpectFailure("TOTAL", 150, "ECR response lost", {"b0 : 01", totalTold});
}

TEST_F(AfterAFailure, TheSettingForGoodEndsDoesNotCount) {
    Configure("KeepEcrBlocked=1\n");
    Ecr().FailCommand(2, {150, "ECR response lost"});
    ExpectFailure("TOTAL", 150, "ECR response lost", {"b0 : 01", totalTold, "b1 :"});
}

TEST_F(AfterAFailure, FiscalModeIsLeftAlsoFromAnOpenReceipt) {
    Ecr().KeepReceipts();
    Ecr().FailCommand(3, {150, "ECR response lost"});
    ExpectFailure(std::string(sale) + "TOTAL", 150, "ECR response lost",
                  {"b0 : 01", saleTold, totalTold, "b1 :"});
}

TEST_F(AfterAFailure, FiscalModeIsLeftAlsoBeforeTheFirstCommand) {
    Ecr().status.inFiscalMode = true;
    Ecr().status.receiptInProgress = true;
    ExpectFailure(sale, 105, "Previous receipt not finished", {"b1 :"});
}

TEST_F(AfterAFailure, ARegisterOutsideFiscalModeIsLeftAlone) {
    Ecr().FailCommand(1, {150, "ECR response lost"});
    ExpectFailure("TOTAL", 150, "ECR response lost", {"b0 : 01"});
}

TEST_F(AfterAFailure, AStatusThatCannotBeReadIsNotAnotherFailure) {
    Ecr().FailCommand(2, {151, "Send error"});
    Ecr().FailStatusReadsAfter(2, {150, "ECR response lost"});
    ExpectFailure("TOTAL", 151, "Send error", {"b0 : 01", totalTold});
}

TEST_F(AfterAFailure, FiscalModeThatCannotBeLeftIsNotAnotherFailure) {
    Ecr().FailCommand(2, {151, "Send error"});
    Ecr().FailCommand(3, {150, "ECR response lost"});
    ExpectFailure("TOTAL", 151, "Send error", {"b0 : 01", totalTold, "b1 :"});
}

TEST_F(AfterAFailure, OfLeavingFiscalModeItIsTriedOnceMore) {
    Ecr().FailCommand(3, {150, "ECR response lost"});
    ExpectFailure("TOTAL", 150, "ECR response lost", {"b0 : 01", totalTold, "b1 :", "b1 :"});
}

// The line in the message

TEST_F(LineOfAFailure, IsThatOfTheFile) {
    ExpectRefused("# a sale\n\nTOTAL\r\n\n  FOO\nTOTAL", "Unknown command : FOO (line: 5)");
}

TEST_F(LineOfAFailure, FollowsARefusalByTheRegister) {
    Ecr().FailCommand(3, {250, "Fiscal command execution error", true});
    ExpectFailure("DISPLAY_ON\n\nTOTAL", 250, "Fiscal command execution error (line: 3)",
                  {"b0 : 01", "be fiscal : ff ff", totalTold, "b1 :"});
}

TEST_F(LineOfAFailure, DoesNotFollowAFailureOfTheLink) {
    Ecr().FailCommand(2, {150, "ECR response lost"});
    ExpectFailure("TOTAL", 150, "ECR response lost", {"b0 : 01", totalTold, "b1 :"});
}

TEST_F(LineOfAFailure, IsNotOwedToAFaultOfBefore) {
    FiscalCommandFile file(TempDir().Write("commands.txt", "TOTAL"));
    cmdError = true;
    State = STATE_EXECUTE;
    Ecr().FailCommand(2, {150, "ECR response lost"});
    const auto failure = FailureOf([&] { FiscalCommandProcessor_Execute(file); });
    ASSERT_NE(failure, nullptr);
    EXPECT_EQ(failure->Message, "ECR response lost");
    EXPECT_FALSE(cmdError);
}

TEST_F(LineOfAFailure, IsNotThereForEnteringFiscalMode) {
    Ecr().FailCommand(1, {250, "Fiscal command execution error", true});
    ExpectFailure("TOTAL", 250, "Fiscal command execution error", {"b0 : 01"});
}

TEST_F(LineOfAFailure, IsNotThereForLeavingFiscalMode) {
    Ecr().FailCommand(3, {250, "Fiscal command execution error", true});
    ExpectFailure("TOTAL", 250, "Fiscal command execution error",
                  {"b0 : 01", totalTold, "b1 :", "b1 :"});
}

TEST_F(LineOfAFailure, IsThereWhenLeavingFiscalModeAfterwardsBlamesTheFile) {
    Ecr().FailCommand(2, {151, "Send error"});
    Ecr().FailCommand(3, {250, "Fiscal command execution error", true});
    ExpectFailure("TOTAL", 151, "Send error (line: 1)", {"b0 : 01", totalTold, "b1 :"});
}

// A report or a copy inside a receipt

TEST_F(ReportInsideAReceipt, FailsBeforeAnythingIsSent) {
    Ecr().KeepReceipts();
    ExpectFailure(std::string(sale) + "REPORT: TYPE=X", 250,
                  "Fiscal command execution error (line: 2)", {"b0 : 01", saleTold, "b1 :"});
    EXPECT_TRUE(cmdError);
}

TEST_F(ReportInsideAReceipt, FailsForACopyOfTheLastReceiptToo) {
    Ecr().KeepReceipts();
    ExpectFailure(std::string(sale) + "LAST_RECEIPT_COPY", 250,
                  "Fiscal command execution error (line: 2)", {"b0 : 01", saleTold, "b1 :"});
    EXPECT_TRUE(cmdError);
}

TEST_F(ReportInsideAReceipt, IsNoFaultInTheCheckPass) {
    Ecr().status.receiptInProgress = true;
    EXPECT_EQ(CheckPass("REPORT: TYPE=X\nLAST_RECEIPT_COPY"), nullptr);
}

// The dispatcher

TEST_F(Dispatcher, KnowsTwentyFiveCommands) {
    const std::vector<std::string_view> commands = KnownCommands();
    EXPECT_EQ(std::set<std::string_view>(commands.begin(), commands.end()).size(), 25u);
}

TEST_F(Dispatcher, RefusesAnUnknownCommand) {
    ExpectRefused("Sales: DEPTNR=1; AMOUNT=1", "Unknown command : SALES (line: 1)");
    ExpectRefused("SAL", "Unknown command : SAL (line: 1)");
}

TEST_F(Dispatcher, RefusesAParameterThatTheCommandDoesNotUse) {
    ExpectRefused("COMMENT: TEXT=a; FOO=1", "Too many parameters (line: 1)");
}

TEST_F(Dispatcher, RefusesParametersOfCommandsThatHaveNone) {
    for (const char* command : {"TOTAL", "LAST_RECEIPT_COPY", "DISPLAY_ON", "DISPLAY_OFF",
                                "OPEN_DRAWER", "EXIT", "GET_STATUS"}) {
        ExpectRefused(std::string(command) + ": X=1", "Too many parameters (line: 1)");
        EXPECT_EQ(CheckPass(command), nullptr) << command;
    }
}

TEST_F(Dispatcher, TakesACommandInAnyCase) {
    ExpectSent("total", {totalTold});
}

TEST_F(Dispatcher, DoesNothingForGetStatus) {
    ExpectSent("GET_STATUS", {});
    EXPECT_FALSE(exitServerMode);
}

TEST_F(Dispatcher, NotesAnExit) {
    ExpectSent("EXIT", {});
    EXPECT_TRUE(exitServerMode);
}

TEST_F(Dispatcher, SendsTheCommandsInTheOrderOfTheFile) {
    ExpectSent("DISPLAY_ON\nTOTAL\nDISPLAY_OFF\nTOTAL",
               {"be fiscal : ff ff", totalTold, "be fiscal : 00 00", totalTold});
}

// Numbers

TEST_F(NumericParameter, WithoutANameIsAnInternalError) {
    FiscalCommand command("X: Y=1");
    const auto failure = FailureOf([&] { ExtractDecimal(command, "", 0, 9, 0); });
    ASSERT_NE(failure, nullptr);
    EXPECT_EQ(failure->ErrorCode, 99);
    EXPECT_EQ(failure->Message.rfind("Internal error (file: 'src/ProcessorPayload.cpp'", 0), 0u)
        << failure->Message;
}

TEST_F(NumericParameter, IsTakenOutOfTheCommand) {
    FiscalCommand command("X: Y=1.50");
    EXPECT_EQ(std::string(ExtractDecimal(command, "Y", 0, 15, 1)), "1.5");
    EXPECT_FALSE(command.ParameterExists("Y"));
}

TEST_F(NumericParameter, FailsWhenItIsMissingMalformedOrOutOfRange) {
    struct {
        const char* command;
        const char* message;
    } const rows[] = {{"X: Z=1", "Y is missing"},           {"X: Y=1,5", "Wrong number format"},
                      {"X: Y=\"\"", "Wrong number format"}, {"X: Y=1.55", "Incorrect Y value"},
                      {"X: Y=0.1", "Incorrect Y value"},    {"X: Y=10", "Incorrect Y value"}};
    for (const auto& row : rows) {
        FiscalCommand command(row.command);
        cmdError = false;
        const auto failure = FailureOf([&] { ExtractDecimal(command, "Y", 2, 9, 1); });
        ASSERT_NE(failure, nullptr) << row.command;
        EXPECT_EQ(failure->Message, row.message);
        EXPECT_EQ(failure->ErrorCode, 1);
        EXPECT_TRUE(cmdError);
    }
}

TEST_F(NumericParameter, IsBoundByItsDigitsNotByItsValue) {
    EXPECT_TRUE(CheckDecimal(Decimal("999999.99"), 2, 0, 99999999));
    EXPECT_TRUE(CheckDecimal(Decimal("99999999"), 2, 0, 99999999));
    EXPECT_FALSE(CheckDecimal(Decimal("100000000"), 2, 0, 99999999));
    EXPECT_FALSE(CheckDecimal(Decimal("1000000.01"), 2, 0, 99999999));
}

TEST_F(NumericParameter, MayReachBothBoundsAndAllItsDecimals) {
    EXPECT_TRUE(CheckDecimal(Decimal(5, 2), 2, 5, 7));
    EXPECT_TRUE(CheckDecimal(Decimal(7, 2), 2, 5, 7));
    EXPECT_FALSE(CheckDecimal(Decimal(4, 2), 2, 5, 7));
    EXPECT_FALSE(CheckDecimal(Decimal(8, 2), 2, 5, 7));
    EXPECT_FALSE(CheckDecimal(Decimal(5, 3), 2, 5, 7));
}

// The models

TEST_F(LimitsByModel, AreThoseOfTheConnectedOne) {
    struct {
        Model model;
        int deptName, comment, barcode, bitmapWidth, cashReport;
    } const rows[] = {{Model::Ocelot, 18, 35, 36, 432, 13},
                      {Model::Serval, 18, 31, 32, 384, 13},
                      {Model::Lynx, 18, 19, 20, 240, 13},
                      {Model::Puma, 18, 31, 32, 384, 13},
                      {Model::Margay, 20, 19, 20, 240, 2}};
    for (const auto& row : rows) {
        SCOPED_TRACE(NameOf(row.model));
        Ecr().Be(row.model);
        EXPECT_EQ(GetMaxDeptNameLength(), row.deptName);
        EXPECT_EQ(GetMaxCommentLength(), row.comment);
        EXPECT_EQ(GetMaxBarcodeLength(), row.barcode);
        EXPECT_EQ(GetEcrBarcodeBitmapWidth(), row.bitmapWidth);
        EXPECT_EQ(GetEcrBarcodeBitmapHeight(), 100);
        EXPECT_EQ(GetDailyReportNumber(), 1);
        EXPECT_EQ(GetCashInDrawerReportNumber(), row.cashReport);
    }
}

}  // namespace

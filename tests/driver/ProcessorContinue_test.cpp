// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// CONTINUE and CONTINUE_MANUALLY: receipts over several files.

#include <gtest/gtest.h>

#include "Globals.h"
#include "ProcessorInternal.h"
#include "tests/support/ProcessorTest.h"

namespace {

const char notFirstOrLast[] = "CONTINUE is allowed only as first or last fiscal file command";
const char notLast[] = "CONTINUE_MANUALLY is allowed only as last fiscal file command";

const char enterFiscalMode[] = "b0 : 01";
const char exitFiscalMode[] = "b1 :";
const char total[] = "bb fiscal :";

class ContinueTest : public ProcessorTest {
  protected:
    void OpenReceipt() {
        Ecr().status.inFiscalMode = true;
        Ecr().status.receiptInProgress = true;
    }
    void ExpectTold(const std::string& file, const Told& told) {
        const auto failure = Run(file);
        EXPECT_EQ(failure, nullptr) << failure->Message;
        EXPECT_EQ(Ecr().Told(), told);
    }
};

using ContinuePlacement = ContinueTest;
using ContinueFlags = ContinueTest;
using ContinuedReceipt = ContinueTest;
using ReceiptLeftOpen = ContinueTest;
using ReceiptFinishedByHand = ContinueTest;

// Where they may be

TEST_F(ContinuePlacement, FirstAndLastArePossible) {
    EXPECT_EQ(CheckPass("CONTINUE\nTOTAL\nTOTAL"), nullptr);
    EXPECT_EQ(CheckPass("TOTAL\nTOTAL\nCONTINUE"), nullptr);
    EXPECT_EQ(CheckPass("CONTINUE\nTOTAL\nCONTINUE"), nullptr);
}

TEST_F(ContinuePlacement, InTheMiddleFailsInTheCheckPass) {
    ExpectRefused("TOTAL\nCONTINUE\nTOTAL", std::string(notFirstOrLast) + " (line: 2)");
}

TEST_F(ContinuePlacement, ByHandIsPossibleOnlyLast) {
    EXPECT_EQ(CheckPass("TOTAL\nCONTINUE_MANUALLY"), nullptr);
    ExpectRefused("CONTINUE_MANUALLY\nTOTAL", std::string(notLast) + " (line: 1)");
    ExpectRefused("TOTAL\nCONTINUE_MANUALLY\nTOTAL", std::string(notLast) + " (line: 2)");
}

TEST_F(ContinuePlacement, CommentLinesDoNotCount) {
    EXPECT_EQ(CheckPass("# first\n\nCONTINUE\nTOTAL"), nullptr);
    EXPECT_TRUE(continueUnfinishedReceipt);
}

TEST_F(ContinuePlacement, NeitherTakesAParameter) {
    ExpectRefused("CONTINUE: X=1", "Too many parameters (line: 1)");
    ExpectRefused("CONTINUE_MANUALLY: X=1", "Too many parameters (line: 1)");
}

TEST_F(ContinuePlacement, NeitherIsAllowedInServerMode) {
    serverMode = true;
    ExpectRefused("CONTINUE", "CONTINUE is not allowed in server mode (line: 1)");
    ExpectRefused("CONTINUE_MANUALLY", "CONTINUE_MANUALLY is not allowed in server mode (line: 1)");
    EXPECT_FALSE(leaveReceiptUnfinished);
}

// Which flags they set

TEST_F(ContinueFlags, FirstOfSeveralContinues) {
    CheckPass("CONTINUE\nTOTAL");
    EXPECT_TRUE(continueUnfinishedReceipt);
    EXPECT_FALSE(leaveReceiptUnfinished);
    EXPECT_FALSE(continueManually);
}

TEST_F(ContinueFlags, LastOfSeveralLeavesOpen) {
    CheckPass("TOTAL\nCONTINUE");
    EXPECT_FALSE(continueUnfinishedReceipt);
    EXPECT_TRUE(leaveReceiptUnfinished);
    EXPECT_FALSE(continueManually);
}

TEST_F(ContinueFlags, AFileOfContinueAloneSetsBoth) {
    CheckPass("CONTINUE");
    EXPECT_TRUE(continueUnfinishedReceipt);
    EXPECT_TRUE(leaveReceiptUnfinished);
}

TEST_F(ContinueFlags, ByHandLeavesOpenAndByHand) {
    CheckPass("CONTINUE_MANUALLY");
    EXPECT_FALSE(continueUnfinishedReceipt);
    EXPECT_TRUE(leaveReceiptUnfinished);
    EXPECT_TRUE(continueManually);
}

TEST_F(ContinueFlags, AreSetInTheCheckPassAndSurviveIt) {
    EXPECT_EQ(CheckPass("TOTAL\nCONTINUE"), nullptr);
    EXPECT_EQ(CheckPass("TOTAL"), nullptr);
    EXPECT_TRUE(leaveReceiptUnfinished) << "flags are never cleared";
}

// A file that begins with CONTINUE

TEST_F(ContinuedReceipt, NeedsAnOpenReceiptBeforeItsFirstCommand) {
    ExpectFailure("CONTINUE\nTOTAL", 107, "Receipt not started", {});
    EXPECT_EQ(State, STATE_EXECUTE);
}

TEST_F(ContinuedReceipt, DoesNotEnterFiscalModeAgain) {
    OpenReceipt();
    Ecr().On(CMD_TENDER, [](EcrStatus& status) { status.receiptInProgress = false; });
    ExpectTold("CONTINUE\nTENDER", {"time-out tender", "bc fiscal : 01 00 00 00 00",
                                    "time-out default", exitFiscalMode});
    EXPECT_FALSE(receiptNotFinished);
}

TEST_F(ContinuedReceipt, DoesNotEnterFiscalModeEvenWhenItWasLeft) {
    OpenReceipt();
    Ecr().status.inFiscalMode = false;
    ExpectTold("CONTINUE\nTOTAL\nCONTINUE", {total});
}

TEST_F(ContinuedReceipt, MustBeFinishedByAFileThatDoesNotLeaveItOpen) {
    OpenReceipt();
    ExpectFailure("CONTINUE\nTOTAL", 106, "Current receipt not finished", {total, exitFiscalMode});
}

TEST_F(ContinuedReceipt, IsLeftOpenByAFileOfContinueAlone) {
    OpenReceipt();
    ExpectTold("CONTINUE", {});
    EXPECT_TRUE(receiptNotFinished);
}

TEST_F(ContinuedReceipt, OfContinueAloneNeedsAnOpenReceipt) {
    ExpectFailure("CONTINUE", 107, "Receipt not started", {});
}

// A file that ends with CONTINUE

TEST_F(ReceiptLeftOpen, KeepsFiscalMode) {
    Ecr().On(CMD_TOTAL, [](EcrStatus& status) { status.receiptInProgress = true; });
    ExpectTold("TOTAL\nCONTINUE", {enterFiscalMode, total});
    EXPECT_TRUE(receiptNotFinished);
    EXPECT_TRUE(Ecr().status.inFiscalMode);
}

TEST_F(ReceiptLeftOpen, MustBeOpenAtTheEnd) {
    ExpectFailure("TOTAL\nCONTINUE", 108, "Receipt already finished",
                  {enterFiscalMode, total, exitFiscalMode});
    EXPECT_FALSE(receiptNotFinished);
}

TEST_F(ReceiptLeftOpen, MustNotBeOpenAtTheStart) {
    OpenReceipt();
    ExpectFailure("TOTAL\nCONTINUE", 105, "Previous receipt not finished", {exitFiscalMode});
}

// A file that ends with CONTINUE_MANUALLY

TEST_F(ReceiptFinishedByHand, LeavesFiscalModeWithTheReceiptOpen) {
    Ecr().On(CMD_TOTAL, [](EcrStatus& status) { status.receiptInProgress = true; });
    ExpectTold("TOTAL\nCONTINUE_MANUALLY", {enterFiscalMode, total, exitFiscalMode});
    EXPECT_TRUE(receiptNotFinished);
}

TEST_F(ReceiptFinishedByHand, LeavesItEvenWhenConfiguredToStay) {
    Configure("KeepEcrBlocked=1");
    Ecr().On(CMD_TOTAL, [](EcrStatus& status) { status.receiptInProgress = true; });
    ExpectTold("TOTAL\nCONTINUE_MANUALLY", {enterFiscalMode, total, exitFiscalMode});
}

TEST_F(ReceiptFinishedByHand, AloneNeedsAReceiptThatIsOpenAtTheEnd) {
    ExpectFailure("CONTINUE_MANUALLY", 108, "Receipt already finished",
                  {enterFiscalMode, exitFiscalMode});
}

}  // namespace

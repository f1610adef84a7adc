// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The shipped driver from outside. How a run ends for its caller: exit code and result file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <optional>
#include <string>

#include "emulator/Register.h"
#include "tests/outside/Expectations.h"
#include "tests/support/Shop.h"
#include "tests/support/TempDir.h"

namespace fs = std::filesystem;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::Optional;
using testing::StartsWith;
using namespace std::string_literals;

// --- exit code -----------------------------------------------------------------------------------

TEST(ExitCode, IsZeroAfterASale) {
    Shop shop;
    const RunOutcome run = shop.Execute(sale);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.tape, Contains(StartsWith("Apple tart")));
    EXPECT_EQ(shop.Device().Totals().sales, 500);
}

TEST(ExitCode, IsOneWhenTheCommandFileIsWrong) {
    Shop shop;
    EXPECT_EQ(shop.Execute(badSyntax).exitCode, 1);
}

TEST(ExitCode, IsOneWhenTheCheckPassFails) {
    Shop shop;
    EXPECT_EQ(shop.Execute("SALE: DEPTNR=0; AMOUNT=1\n").exitCode, 1);
}

TEST(ExitCode, IsTwoWhenTheConnectionFails) {
    Shop shop;
    EXPECT_EQ(shop.WithoutIni("ComNumber").Execute(sale).exitCode, 2);
}

TEST(ExitCode, Is101WhenAFiscalCommandFails) {
    Shop shop;
    EXPECT_EQ(shop.Execute(unknownArticle).exitCode, 101);
}

TEST(ExitCode, IsZeroForAFileWithoutCommands) {
    Shop shop;
    const RunOutcome run = shop.Execute("# nothing today\n\n");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.result, Optional(std::string("[VOLTIS]\nResultCode=0\nMessage=OK\n"
                                                 "LastReceiptNo=0")));
}

// --- result file ---------------------------------------------------------------------------------

TEST(ResultFile, TellsTheReceiptNumber) {
    Shop shop;
    EXPECT_THAT(shop.Execute(sale).result, Optional(soldResult));
    EXPECT_THAT(shop.Execute(sale).result,
                Optional(std::string("[VOLTIS]\nResultCode=0\nMessage=OK\nLastReceiptNo=2")));
}

TEST(ResultFile, TellsTheReceiptNumberInTheOldFormat) {
    Shop shop;
    shop.Ini("OldResultFileFormat", "1");
    EXPECT_THAT(shop.Execute(sale).result, Optional(std::string("0\nOK\nReceiptNo: 1")));
}

TEST(ResultFile, TellsTheSubtotalOfAReceiptThatWasLeftOpen) {
    Shop shop;
    const RunOutcome run = shop.Execute(openReceipt);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.result,
                Optional(std::string("[VOLTIS]\nResultCode=0\nMessage=Receipt not finished\n"
                                     "CurrentReceiptNo=1\nSubtotal=5.00")));
}

TEST(ResultFile, TellsOfAnOpenReceiptInTheOldFormat) {
    Shop shop;
    shop.Ini("OldResultFileFormat", "1");
    EXPECT_THAT(shop.Execute(openReceipt).result,
                Optional(std::string("0\nOK\nReceipt not finished")));
}

TEST(ResultFile, TellsAFailure) {
    Shop shop;
    LeaveResultCode(shop, emulator::result::ReceiptPaperEnd);
    EXPECT_THAT(shop.Execute(sale).result,
                Optional(std::string("[VOLTIS]\nResultCode=2\nMessage=Receipt paper end\n"
                                     "ErrorCode=201")));
}

TEST(ResultFile, TellsAFailureInTheOldFormat) {
    Shop shop;
    shop.Ini("OldResultFileFormat", "1");
    LeaveResultCode(shop, emulator::result::ReceiptPaperEnd);
    EXPECT_THAT(shop.Execute(sale).result, Optional(std::string("2\nReceipt paper end")));
}

TEST(ResultFile, HasTheNewFormatForEveryOtherNumber) {
    for (const char* number : {"2", "0", "-1", "11", "old"}) {
        Shop shop;
        shop.Ini("OldResultFileFormat", number);
        EXPECT_THAT(shop.Execute(sale).result, Optional(soldResult)) << number;
    }
}

TEST(ResultFile, ReplacesALongerOne) {
    Shop shop;
    const std::string path = shop.Folder().Write("orders.txt", sale);
    shop.Ini("ResultFileName", "answer.txt");
    shop.Folder().Write("answer.txt", std::string(500, 'x'));
    shop.Run({"orders.txt"});
    EXPECT_EQ(ReadWholeFile(shop.Folder().File("answer.txt")), soldResult);
}

TEST(ResultFile, IsNotWrittenWithoutAName) {
    Shop shop;
    const RunOutcome run = shop.WithoutIni("ResultFileName").Execute(sale);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.result, std::nullopt);
    EXPECT_THAT(run.dbgLog, Not(HasSubstr("result file")));
    EXPECT_EQ(std::distance(fs::directory_iterator(shop.Folder().Path()), {}), 1);
}

TEST(ResultFile, ThatCannotBeWrittenIsOnlyLogged) {
    Shop shop;
    fs::create_directories(shop.Folder().File("result.txt/inside"));
    const RunOutcome run = shop.Execute(sale);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.dbgLog, HasSubstr("  Unable to create result file 'result.txt'\n"));
    EXPECT_THAT(run.stdLog, Not(HasSubstr("Unable to create")));
    EXPECT_EQ(shop.Device().Totals().receipts, 1);
}

TEST(ResultFile, ThatCannotBeWrittenLeavesAFailureAsItIs) {
    Shop shop;
    fs::create_directories(shop.Folder().File("result.txt/inside"));
    EXPECT_EQ(shop.Execute(badSyntax).exitCode, 1);
}

TEST(ResultFile, ThatCannotBeWrittenToTheEndIsLoggedWithTheReason) {
    Shop shop;
    fs::create_symlink("/dev/full", shop.Folder().File("result.txt"));
    const RunOutcome run = shop.Execute(sale);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.dbgLog, HasSubstr("  Unable to write result file 'result.txt' - No space left "
                                      "on device\n"));
    EXPECT_THAT(run.stdLog, Not(HasSubstr("Unable to write")));
    EXPECT_EQ(shop.Execute(badSyntax).exitCode, 1);
}

TEST(ResultFile, ThatIsWrittenToTheEndIsNotSpokenOf) {
    Shop shop;
    EXPECT_THAT(shop.Execute(sale).dbgLog, Not(HasSubstr("result file")));
}

// --- NUL bytes -----------------------------------------------------------------------------------

TEST(NulByte, InAParameterNameDoesNotCutTheResultShort) {
    Shop shop;
    const RunOutcome run = shop.Execute("SALE: DEP\0TNR 1\n"s);
    const std::string message = "Missing '=' after parameter DEP\0TNR (file : 'cmd.txt' line : 1)"s;
    EXPECT_THAT(run.result, Optional(FailedResult(1, message, 1)));
    EXPECT_THAT(run.stdLog, HasSubstr("  " + message + "\n"));
    EXPECT_THAT(run.dbgLog, HasSubstr("\tSALE: DEP\0TNR 1\n"s));
}

TEST(NulByte, InAParameterNameDoesNotCutTheOldResultShort) {
    Shop shop;
    const RunOutcome run = shop.Ini("OldResultFileFormat", "1").Execute("SALE: DEP\0TNR 1\n"s);
    EXPECT_THAT(run.result, Optional("1\nMissing '=' after parameter DEP\0TNR (file : 'cmd.txt' "s +
                                     "line : 1)"));
}

TEST(NulByte, InAValueDoesNotCutTheResultShort) {
    Shop shop;
    const RunOutcome run = shop.Execute(
        "SALE: DEPTNR=\0"
        "1 2\n"s);
    EXPECT_THAT(run.result, Optional(FailedResult(1,
                                                  "Missing ';' after 'DEPTNR = \0"
                                                  "1' (file : 'cmd.txt' line : 1)"s,
                                                  1)));
}

TEST(NulByte, InBarcodeDataDoesNotCutTheResultShort) {
    Shop shop;
    const RunOutcome run = shop.Execute(
        "BARCODE: TYPE=EAN; DATA=963\0"
        "8507\n"s);
    EXPECT_THAT(run.result, Optional(FailedResult(1,
                                                  "Bad barcode format: 963\0"
                                                  "8507 (line: 1)"s,
                                                  1)));
    EXPECT_TRUE(run.journal.empty());
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The shipped driver from outside. Where a command file may be, and what its text may look like.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>

#include "tests/outside/Expectations.h"
#include "tests/support/Shop.h"
#include "tests/support/TempDir.h"

namespace fs = std::filesystem;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Optional;
using testing::StartsWith;

// --- paths of the command file -------------------------------------------------------------------

TEST(CommandFile, MayHaveAnAbsolutePath) {
    Shop shop;
    const TempDir pos;
    pos.Write("cmd.txt", sale);
    shop.Sandbox({"--tmpfs", "/home", "--bind", pos.Path(), "/home/pos"});
    const RunOutcome run = shop.Run({"/home/pos/cmd.txt"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(ReadWholeFile(pos.File("result.txt")), soldResult);
    EXPECT_EQ(run.result, std::nullopt);
}

TEST(CommandFile, HasTheResultBesideItWhateverFolderTheNameNames) {
    Shop shop;
    const TempDir pos;
    const TempDir out;
    pos.Write("cmd.txt", sale);
    shop.Sandbox({"--tmpfs", "/home", "--bind", pos.Path(), "/home/pos"});
    shop.Ini("ResultFileName", out.File("res.txt"));
    EXPECT_EQ(shop.Run({"/home/pos/cmd.txt"}).exitCode, 0);
    EXPECT_EQ(ReadWholeFile(pos.File("res.txt")), soldResult);
    EXPECT_TRUE(fs::is_empty(out.Path()));
}

TEST(CommandFile, MayHaveARelativePath) {
    Shop shop;
    fs::create_directory(shop.Folder().File("orders"));
    shop.Folder().Write("orders/cmd.txt", sale);
    const RunOutcome run = shop.Run({"orders/cmd.txt"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.result, std::nullopt);
    EXPECT_EQ(ReadWholeFile(shop.Folder().File("orders/result.txt")), soldResult);
}

TEST(CommandFile, MayBeNamedWithBackslashes) {
    Shop shop;
    fs::create_directory(shop.Folder().File("orders"));
    shop.Folder().Write("orders/cmd.txt", badSyntax);
    shop.Run({"orders\\cmd.txt"});
    EXPECT_EQ(
        ReadWholeFile(shop.Folder().File("orders/result.txt")),
        FailedResult(1, "Missing ':' after fiscal command (file : 'orders/cmd.txt' line : 1)", 1));
}

TEST(CommandFile, ThatIsMissingIsASystemError) {
    Shop shop;
    const RunOutcome run = shop.Run({"cmd.txt"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.result, Optional(FailedResult(
                                1, "Can't open file 'cmd.txt' - No such file or directory", 50)));
    EXPECT_THAT(run.dbgLog, Not(HasSubstr("Input file")));
    EXPECT_EQ(shop.Line().Counters().bytesIn, 0);
}

TEST(CommandFile, InAMissingFolderLeavesNoResult) {
    Shop shop;
    const RunOutcome run = shop.Run({"none/cmd.txt"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.dbgLog, HasSubstr("  Unable to create result file 'none/result.txt'\n"));
}

TEST(CommandFile, ThatIsAFolderIsNotTakenForAnEmptyOne) {
    Shop shop;
    fs::create_directory(shop.Folder().File("orders"));
    const RunOutcome run = shop.Run({"orders"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.result,
                Optional(FailedResult(1, "Can't read file 'orders' - Is a directory", 50)));
    EXPECT_EQ(shop.Line().Counters().bytesIn, 0);
}

TEST(CommandFile, ThatIsANamedPipeIsReadButNotCopiedIntoTheLog) {
    Shop shop;
    const RunOutcome run = shop.StartBy(
                                   "mkfifo pipe; echo 'SALE DEPTNR=1' > pipe & "
                                   "\"$@\"; code=$?; wait; exit $code")
                               .Run({"pipe"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.result, Optional(HasSubstr("Missing ':' after fiscal command (file : 'pipe'")));
    EXPECT_THAT(run.dbgLog, HasSubstr("  Input file (pipe):\n"));
    EXPECT_THAT(run.dbgLog, Not(HasSubstr("DEPTNR")));
}

// --- text of the command file --------------------------------------------------------------------

TEST(CommandText, MayEndItsLinesWithCarriageReturnAndLineFeed) {
    Shop shop;
    const RunOutcome run = shop.Execute("SALE: DEPTNR=1; NAME=Tart; AMOUNT=1.00\r\nTENDER\r\n");
    EXPECT_THAT(run.result, Optional(soldResult));
    EXPECT_THAT(run.tape, Contains(StartsWith("Tart ")));
}

TEST(CommandText, MayHaveCommentsAndBlankLines) {
    Shop shop;
    EXPECT_THAT(
        shop.Execute("# a tart\n\n \t\nSALE: DEPTNR=1; AMOUNT=1.00\n  # paid\n\tTENDER").result,
        Optional(soldResult));
}

TEST(CommandText, WithAMistakeInLineFourNamesLineFour) {
    Shop shop;
    const RunOutcome run =
        shop.Execute("# first\n\nSALE: DEPTNR=1; AMOUNT=1.00\nTENDER MEDIA=CARD\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.result,
                Optional(FailedResult(
                    1, "Missing ':' after fiscal command (file : 'cmd.txt' line : 4)", 1)));
    EXPECT_EQ(shop.Line().Counters().bytesIn, 0);
}

TEST(CommandText, IsCheckedToTheEndBeforeAnythingIsSent) {
    Shop shop;
    const RunOutcome run =
        shop.Execute("SALE: DEPTNR=1; AMOUNT=1.00\nTOTAL\n\nTENDER: MEDIA=VOUCHER\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.result, Optional(FailedResult(1, "Unsupported tender media (line: 4)", 1)));
    EXPECT_THAT(run.tape, IsEmpty());
    EXPECT_THAT(run.journal, IsEmpty());
    EXPECT_EQ(shop.Line().Counters().requests, shop.Line().Counters().statusReads);
    EXPECT_THAT(run.dbgLog, HasSubstr("\tTENDER: MEDIA=VOUCHER\n"));
}

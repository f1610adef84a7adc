// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "FiscalCommandFile.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "Globals.h"
#include "tests/support/Descriptors.h"
#include "tests/support/Failure.h"
#include "tests/support/InternalError.h"
#include "tests/support/TempDir.h"

namespace {

class FiscalCommandFile_Read : public testing::Test {
  protected:
    void SetUp() override { cmdError = false; }
    FiscalCommandFile Read(const std::string& bytes) const {
        return FiscalCommandFile(folder.Write("cmd.txt", bytes));
    }
    /// The bytes must be refused with code 1 and this message, followed by the place.
    void ExpectRefused(const std::string& bytes, const std::string& message, int line) const {
        const auto failure = FailureOf([&] { Read(bytes); });
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->ErrorCode, 1);
        EXPECT_EQ(failure->Message, message + " (file : '" + folder.File("cmd.txt") +
                                        "' line : " + std::to_string(line) + ")");
        EXPECT_TRUE(cmdError);
    }

    const TempDir folder;
};

}  // namespace

TEST_F(FiscalCommandFile_Read, KeepsCommandsInFileOrder) {
    const FiscalCommandFile file = Read("SALE: DEPTNR=1; PRICE=1.00\nTOTAL\nTENDER: CASH=2\n");
    ASSERT_EQ(file.GetCommandCount(), 3);
    EXPECT_EQ(file.GetCommand(0).GetParameter("PRICE"), "1.00");
    EXPECT_EQ(file.GetCommand(1).GetCommand(), "TOTAL");
    EXPECT_EQ(file.GetCommand(2).GetCommand(), "TENDER");
    EXPECT_EQ(file.GetCommandLineNumber(2), 3);
}

TEST_F(FiscalCommandFile_Read, RemembersThePathAsGiven) {
    EXPECT_EQ(Read("EXIT").FileName, folder.File("cmd.txt"));
}

TEST_F(FiscalCommandFile_Read, FindsNoCommandInAnEmptyFile) {
    EXPECT_EQ(Read("").GetCommandCount(), 0);
}

TEST_F(FiscalCommandFile_Read, FindsNoCommandInBlankAndCommentLines) {
    EXPECT_EQ(Read("\n  \t\r\n# SALE: DEPTNR=1\n   #:\n").GetCommandCount(), 0);
}

TEST_F(FiscalCommandFile_Read, TakesAHashAfterTheBeginningForText) {
    EXPECT_EQ(Read("COMMENT: TEXT=#1").GetCommand(0).GetParameter("TEXT"), "#1");
}

TEST_F(FiscalCommandFile_Read, ReadsCrLfLikeLf) {
    const FiscalCommandFile file = Read("SALE: DEPTNR=1\r\n\r\nEXIT\r\n");
    ASSERT_EQ(file.GetCommandCount(), 2);
    EXPECT_EQ(file.GetCommand(0).GetParameter("DEPTNR"), "1");
    EXPECT_EQ(file.GetCommand(1).GetCommand(), "EXIT");
    EXPECT_EQ(file.GetCommandLineNumber(1), 3);
}

TEST_F(FiscalCommandFile_Read, NumbersPhysicalLines) {
    EXPECT_EQ(Read("# comment\nEXIT").GetCommandLineNumber(0), 2);
}

TEST_F(FiscalCommandFile_Read, NamesFileAndLineOfAnError) {
    ExpectRefused("A\nB\nSALE DEPTNR=1\n", "Missing ':' after fiscal command", 3);
}

TEST_F(FiscalCommandFile_Read, CountsBlankAndCommentLinesForAnError) {
    ExpectRefused("\n# one\n \n# two\nEXIT:\n", "Parameters are missing", 5);
}

TEST_F(FiscalCommandFile_Read, RefusesAFileThatIsWrongInItsLastLineOnly) {
    ExpectRefused("SALE: A=1\nSALE: A=\n", "Parameter value is missing", 2);
}

TEST_F(FiscalCommandFile_Read, NamesALongPathWhole) {
    std::string path = folder.Path();
    for (int i = 0; i < 6; ++i) path += "/" + std::string(200, 'd');
    std::filesystem::create_directories(path);
    std::ofstream(path + "/cmd.txt") << "EXIT:";
    const auto failure = FailureOf([&] { const FiscalCommandFile file(path + "/cmd.txt"); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->Message, "Parameters are missing (file : '" + path + "/cmd.txt' line : 1)");
}

TEST_F(FiscalCommandFile_Read, ReadsALineOf1500CharactersAsTwo) {
    // The first piece ends inside the quotes.
    ExpectRefused("COMMENT: TEXT=\"" + std::string(1485, 'x') + "\"\nEXIT\n",
                  "Terminating quote is missing", 1);
    // Here it is complete with its 1023 characters.
    const FiscalCommandFile file =
        Read("A" + std::string(1022, ' ') + std::string(477, 'b') + "\nEXIT\n");
    ASSERT_EQ(file.GetCommandCount(), 3);
    EXPECT_EQ(file.GetCommand(1).GetCommand(), std::string(477, 'B'));
    EXPECT_EQ(file.GetCommandLineNumber(1), 2);
    EXPECT_EQ(file.GetCommandLineNumber(2), 3);
}

TEST_F(FiscalCommandFile_Read, DoesNotLoseWhatFollowsANulByte) {
    using namespace std::string_literals;
    EXPECT_EQ(Read("SALE: A=1\0;B=2\n"s).GetCommand(0).GetParameter("A"), "1\0"s);
    EXPECT_EQ(Read("\0\n"s).GetCommandCount(), 1);
}

TEST_F(FiscalCommandFile_Read, FailsWithTheSystemsTextForAMissingFile) {
    const auto failure = FailureOf([&] { const FiscalCommandFile file(folder.File("absent")); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->ErrorCode, 50);
    EXPECT_EQ(failure->Message,
              "Can't open file '" + folder.File("absent") + "' - No such file or directory");
    EXPECT_FALSE(cmdError);
}

TEST_F(FiscalCommandFile_Read, FailsWithTheSystemsTextForAReadError) {
    const auto failure = FailureOf([&] { const FiscalCommandFile file(folder.Path()); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->ErrorCode, 50);
    EXPECT_EQ(failure->Message, "Can't read file '" + folder.Path() + "' - Is a directory");
    EXPECT_FALSE(cmdError);
}

// Deliberate: the flag alone decides, wherever it was set.
TEST_F(FiscalCommandFile_Read, NamesTheLineOfAReadErrorWhenTheFlagIsSetAlready) {
    cmdError = true;
    const auto failure = FailureOf([&] { const FiscalCommandFile file(folder.Path()); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->ErrorCode, 50);
    EXPECT_EQ(failure->Message, "Can't read file '" + folder.Path() +
                                    "' - Is a directory (file : '" + folder.Path() + "' line : 1)");
}

TEST_F(FiscalCommandFile_Read, DoesNotNameALineOfAFileThatCannotBeOpened) {
    cmdError = true;
    const auto failure = FailureOf([&] { const FiscalCommandFile file(folder.File("absent")); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->Message,
              "Can't open file '" + folder.File("absent") + "' - No such file or directory");
}

TEST_F(FiscalCommandFile_Read, ClosesTheFileInEveryCase) {
    const std::size_t before = OpenDescriptors();
    Read("EXIT\n");
    FailureOf([&] { Read("EXIT:\n"); });
    FailureOf([&] { const FiscalCommandFile file(folder.Path()); });
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(FiscalCommandFile_Read, HandsOutCopies) {
    const FiscalCommandFile file = Read("SALE: DEPTNR=1\n");
    file.GetCommand(0).ExtractParameter("DEPTNR");
    EXPECT_TRUE(file.GetCommand(0).ParameterExists("DEPTNR"));
}

TEST_F(FiscalCommandFile_Read, RefusesAnIndexOutOfRange) {
    const FiscalCommandFile file = Read("EXIT\n");
    for (const int index : {-1, 1}) {
        ExpectInternalError(FailureOf([&] { file.GetCommand(index); }));
        ExpectInternalError(FailureOf([&] { file.GetCommandLineNumber(index); }));
    }
}

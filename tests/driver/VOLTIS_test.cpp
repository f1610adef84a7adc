// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The entry in the test's own process, with the emulated register in place of the channel: what
// cannot be brought about from outside, such as a channel that fails when it is closed.
#include "VOLTIS.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <stdexcept>

#include "CommChannel.h"
#include "DriverException.h"
#include "Globals.h"
#include "IniFile.h"
#include "emulator/Line.h"
#include "tests/support/Failure.h"
#include "tests/support/TempDir.h"

using testing::AllOf;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::Not;

// The entry's main, renamed in its library.
int VoltisMain(int argc, char* argv[]);

namespace {

/// The register that CommChannel_* reaches, and what goes wrong with the channel.
struct Channel {
    emulator::Register device{[] {
        emulator::RegisterConfig config;
        config.model = emulator::FindModel("lynx", 2);
        config.strict = true;
        return config;
    }()};
    emulator::Line line{emulator::WireFamily::Ocelot, device};
    std::deque<std::uint8_t> incoming;
    bool failsToOpen = false;
    bool failsToClose = false;
    bool throwsSomethingElse = false;
    int closings = 0;
};

Channel& TheChannel() {
    static Channel channel;
    return channel;
}

}  // namespace

void CommChannel_Open(CommChannelType) {
    if (TheChannel().throwsSomethingElse) throw std::runtime_error("out of memory");
    if (TheChannel().failsToOpen) Fail(CRC_LAST_FISCAL_CMD_ERROR, "No line");
}

void CommChannel_Close() {
    ++TheChannel().closings;
    if (TheChannel().failsToClose) Fail(CRC_LAST_FISCAL_CMD_ERROR, "The line does not close");
}

void CommChannel_SetReadTimeout(int) {}

bool CommChannel_Write(const BYTE* block, WORD len) {
    const emulator::Bytes reply = TheChannel().line.Feed({block, len});
    TheChannel().incoming.insert(TheChannel().incoming.end(), reply.begin(), reply.end());
    return true;
}

bool CommChannel_Read(BYTE* block, WORD len) {
    std::deque<std::uint8_t>& incoming = TheChannel().incoming;
    if (incoming.size() < len) return false;
    std::copy_n(incoming.begin(), len, block);
    incoming.erase(incoming.begin(), incoming.begin() + len);
    return true;
}

namespace {

std::string CommandLineOf(std::vector<std::string> words) {
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    return GetCommandLine(static_cast<int>(words.size()), argv.data());
}

/// One run by Execute in a folder of its own.
class Execution : public testing::Test {
  protected:
    std::string ResultOf(const std::string& commands) {
        IniFile::SetFile(folder_.Write("voltis.ini", "[VOLTIS]\n" + ini_), false);
        IniFile::SetSection(sectionName, false);
        Execute(folder_.Write("cmd.txt", commands), folder_.File("result.txt"));
        EXPECT_THAT(TheChannel().device.Complaints(), testing::IsEmpty());
        return ReadWholeFile(folder_.File("result.txt"));
    }

    TempDir folder_;
    std::string ini_;
};

constexpr char sale[] = "SALE: DEPTNR=1; AMOUNT=1.00\nTENDER\n";

}  // namespace

// --- exit code -----------------------------------------------------------------------------------

TEST(GetPRC, FollowsFromTheState) {
    const struct {
        DriverState state;
        int code;
    } rows[] = {{STATE_READY, 0}, {STATE_SYNCHECK, 1}, {STATE_EXECUTE, 2}, {STATE_CMDSENT, 101}};
    for (const auto& row : rows) {
        State = row.state;
        EXPECT_EQ(GetPRC(), row.code);
    }
}

TEST(GetPRC, IsZeroBeforeAnything) {
    EXPECT_EQ(GetPRC(), 0);
}

TEST(GetPRC, RefusesAStateThatDoesNotExist) {
    State = static_cast<DriverState>(4);
    const auto failure = FailureOf([] { GetPRC(); });
    State = STATE_READY;
    ASSERT_NE(failure, nullptr);
    EXPECT_EQ(failure->ErrorCode, 99);
    EXPECT_THAT(failure->Message,
                testing::MatchesRegex(R"(Internal error \(file: '.*VOLTIS.cpp' line: [0-9]+\))"));
}

// --- command line --------------------------------------------------------------------------------

TEST(GetCommandLine, QuotesTheProgramAndNothingElse) {
    EXPECT_EQ(CommandLineOf({"/opt/my driver/voltis"}), "\"/opt/my driver/voltis\"");
    EXPECT_EQ(CommandLineOf({"voltis", "a file.txt", "/S", ""}), "\"voltis\" a file.txt /S ");
}

TEST(GetCommandLine, TakesLongLinesWhole) {
    const std::string path(3000, 'x');
    EXPECT_EQ(CommandLineOf({"voltis", path, "%s"}), "\"voltis\" " + path + " %s");
}

TEST(GetCommandLine, DoesWithoutAProgramName) {
    char* none[] = {nullptr};
    EXPECT_EQ(GetCommandLine(0, none), "\"\"");
}

// --- result file ---------------------------------------------------------------------------------

TEST(CreateResultFile, WritesTheTextAsItIs) {
    const TempDir folder;
    const std::string path = folder.Write("result.txt", std::string(100, 'x'));
    CreateResultFile(path, "100%s\n%n\\");
    EXPECT_EQ(ReadWholeFile(path), "100%s\n%n\\");
}

TEST(CreateResultFile, DoesNothingWithoutAName) {
    const TempDir folder;
    std::filesystem::current_path(folder.Path());
    EXPECT_EQ(FailureOf([] { CreateResultFile("", "text"); }), nullptr);
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
}

TEST(CreateResultFile, DoesNotFailWhenTheFileCannotBeCreated) {
    const TempDir folder;
    EXPECT_EQ(FailureOf([&] { CreateResultFile(folder.File("none/result.txt"), "text"); }),
              nullptr);
    EXPECT_EQ(FailureOf([&] { CreateResultFile(folder.Path(), "text"); }), nullptr);
    EXPECT_EQ(State, STATE_READY);
    EXPECT_TRUE(noErrors);
}

// --- one run -------------------------------------------------------------------------------------

TEST_F(Execution, EndsReady) {
    EXPECT_EQ(ResultOf(sale), "[VOLTIS]\nResultCode=0\nMessage=OK\nLastReceiptNo=1");
    EXPECT_EQ(State, STATE_READY);
    EXPECT_TRUE(noErrors);
    EXPECT_EQ(TheChannel().closings, 1);
    EXPECT_TRUE(TheChannel().incoming.empty());
}

TEST_F(Execution, ReadsTheReceiptNumberAfterFiscalModeWasLeft) {
    ResultOf(sale);
    // When the register is looked for, after the last command, and for the result.
    EXPECT_EQ(TheChannel().line.Counters().statusReads, 3);
}

TEST_F(Execution, DisconnectsAfterAnErrorToo) {
    ResultOf("SALE: DEPTNR=0; AMOUNT=1\n");
    EXPECT_EQ(TheChannel().closings, 1);
    EXPECT_FALSE(noErrors);
    EXPECT_EQ(State, STATE_SYNCHECK);
}

TEST_F(Execution, NotesExit) {
    EXPECT_EQ(ResultOf("EXIT\n"), "");
    EXPECT_TRUE(exitServerMode);
    EXPECT_EQ(State, STATE_SYNCHECK);
    EXPECT_TRUE(noErrors);
    EXPECT_EQ(TheChannel().closings, 0);
}

TEST_F(Execution, NotesExitAmongOtherCommands) {
    EXPECT_THAT(ResultOf("EXIT\nTOTAL: A=1\n"), HasSubstr("Too many parameters (line: 2)"));
    EXPECT_TRUE(exitServerMode);
}

TEST_F(Execution, TakesAChannelThatDoesNotCloseForAFailedSale) {
    TheChannel().failsToClose = true;
    EXPECT_EQ(ResultOf(sale),
              "[VOLTIS]\nResultCode=101\nMessage=The line does not close\nErrorCode=50");
    EXPECT_EQ(TheChannel().device.Totals().receipts, 1);
    EXPECT_FALSE(noErrors);
}

TEST_F(Execution, TakesAChannelThatDoesNotCloseForAFailedStatus) {
    TheChannel().failsToClose = true;
    EXPECT_EQ(ResultOf("GET_STATUS\n"),
              "[VOLTIS]\nResultCode=2\nMessage=The line does not close\nErrorCode=50");
}

TEST_F(Execution, TellsTheFirstFailureWhenTheChannelDoesNotCloseAfterIt) {
    TheChannel().failsToClose = true;
    TheChannel().device.SetKeylock(emulator::Keylock::X);
    EXPECT_THAT(ResultOf(sale), AllOf(HasSubstr("ResultCode=2\n"), HasSubstr("ErrorCode=104"),
                                      Not(HasSubstr("does not close"))));
    EXPECT_FALSE(noErrors);
}

TEST_F(Execution, WritesAResultWhenTheChannelNeitherOpensNorCloses) {
    TheChannel().failsToOpen = TheChannel().failsToClose = true;
    EXPECT_EQ(ResultOf(sale), "[VOLTIS]\nResultCode=2\nMessage=No line\nErrorCode=50");
}

TEST_F(Execution, WritesAMessageLongerThanAnyBuffer) {
    const std::string name(1010, 'N');
    EXPECT_EQ(ResultOf("SALE: " + name),
              "[VOLTIS]\nResultCode=1\nMessage=Missing '=' after parameter " + name + " (file : '" +
                  folder_.File("cmd.txt") + "' line : 1)\nErrorCode=1");
}

TEST_F(Execution, LeavesOtherExceptionsToTheEntry) {
    TheChannel().throwsSomethingElse = true;
    EXPECT_THROW(ResultOf(sale), std::runtime_error);
    EXPECT_FALSE(std::filesystem::exists(folder_.File("result.txt")));
}

// --- the whole entry -----------------------------------------------------------------------------

namespace {

void RunEntry(const std::string& commandFile) {
    std::string program = "voltis";
    std::string argument = commandFile;
    char* argv[] = {program.data(), argument.data(), nullptr};
    VoltisMain(2, argv);
}

}  // namespace

TEST(Entry, EndsAnyOtherExceptionAsAnUnexpectedError) {
    std::ofstream("/etc/voltis/voltis.ini")
        << "[VOLTIS]\nStandardLog=1\nDbgErrorLog=1\nResultFileName=result.txt\n";
    const TempDir folder;
    std::filesystem::current_path(folder.Path());
    const std::string commandFile = folder.Write("cmd.txt", sale);
    TheChannel().throwsSomethingElse = true;
    EXPECT_EXIT(RunEntry(commandFile), ExitedWithCode(2), "^$");
    EXPECT_THAT(ReadWholeFile("/var/log/voltis/voltis.log"), HasSubstr("  Unexpected error\n"));
    EXPECT_THAT(ReadWholeFile("/var/log/voltis/dbgerror.log"), HasSubstr("  Unexpected error\n"));
    EXPECT_FALSE(std::filesystem::exists(folder.File("result.txt")));
    EXPECT_FALSE(std::filesystem::exists(folder.File("voltis.started.tmp")));
}

TEST(Entry, LogsASecondFailureOfARunInTheDebugLogOnly) {
    std::ofstream("/etc/voltis/voltis.ini") << "[VOLTIS]\nStandardLog=1\nDbgErrorLog=1\n";
    const TempDir folder;
    std::filesystem::current_path(folder.Path());
    const std::string commandFile = folder.Write("cmd.txt", sale);
    TheChannel().failsToOpen = TheChannel().failsToClose = true;
    EXPECT_EXIT(RunEntry(commandFile), ExitedWithCode(2), "^$");
    EXPECT_THAT(ReadWholeFile("/var/log/voltis/voltis.log"),
                AllOf(HasSubstr("  No line\n"), Not(HasSubstr("does not close"))));
    EXPECT_THAT(ReadWholeFile("/var/log/voltis/dbgerror.log"),
                AllOf(HasSubstr("  No line\n"), HasSubstr("  The line does not close\n")));
}

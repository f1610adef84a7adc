// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The shipped driver from outside. Arguments, usage text, standard output and server mode.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/outside/Expectations.h"
#include "tests/support/Shop.h"
#include "tests/support/TempDir.h"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;
using testing::Optional;
using Words = std::vector<std::string>;

// --- usage ---------------------------------------------------------------------------------------

namespace {

const std::string usageBanner =
    R"(VOLTIS version 2\.5\.0 for Linux  \(Compiled: [A-Z][a-z]{2} [ \d]\d \d{4} \d\d:\d\d:\d\d\)\n)";
const std::string usageRest =
    "\n\nUsage:  VOLTIS.EXE cmdfile [option]\n"
    "\n"
    "  cmdfile - file with fiscal commands\n"
    "\n"
    "Posible options:\n"
    "  /S   - server mode\n"
    "  /S2  - server mode compatible with ValkorCaracalS and Omron RS2810\n";

void ExpectUsage(const RunOutcome& run) {
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(Matches(run.out, usageBanner + Literally(usageRest))) << run.out;
    EXPECT_THAT(run, NothingOfARun());
}

void ExpectWrongCommandLine(const Words& arguments) {
    Shop shop;
    shop.Folder().Write("cmd.txt", sale);
    const RunOutcome run = shop.Run(arguments);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.stdLog, HasSubstr("  " + wrongCommandLine + "\n"));
    EXPECT_THAT(run.dbgLog, HasSubstr("  " + wrongCommandLine + "\n"));
    EXPECT_THAT(run, NothingOfARun());
}

}  // namespace

TEST(Usage, IsShownWithoutArguments) {
    ExpectUsage(Shop().Run({}));
}

TEST(Usage, IsShownForAQuestionMark) {
    ExpectUsage(Shop().Run({"/?"}));
    ExpectUsage(Shop().Run({"-?"}));
}

TEST(Usage, EndsTheRunWhereverItIs) {
    Shop shop;
    shop.Folder().Write("cmd.txt", sale);
    for (const Words& arguments :
         {Words{"/?", "cmd.txt"}, Words{"cmd.txt", "/?"}, Words{"/?", "/X"},
          Words{"/S", "cmd.txt", "/?"}, Words{"/?", "cmd.txt", "cmd.txt"}}) {
        ExpectUsage(shop.Run(arguments));
    }
    EXPECT_EQ(shop.Line().Counters().bytesIn, 0);
}

TEST(Usage, ComesTooLateAfterAMistake) {
    ExpectWrongCommandLine({"/X", "/?"});
    ExpectWrongCommandLine({"cmd.txt", "cmd.txt", "/?"});
}

TEST(Usage, IsNoErrorForTheLogs) {
    Shop shop;
    const RunOutcome run = shop.Ini("DbgErrorLog", "1").Run({"/?"});
    EXPECT_EQ(run.dbgLog, "");
    EXPECT_TRUE(Matches(run.stdLog, StartPattern(" /?"))) << run.stdLog;
}

TEST(Usage, NeedsNoConfiguration) {
    Shop shop;
    ExpectUsage(shop.WithoutIniFile().Run({}));
}

// --- command line --------------------------------------------------------------------------------

TEST(CommandLine, RefusesUnknownOptions) {
    for (const char* option : {"/X", "-X", "/", "-", "/S3", "/SS", "-cmd.txt", "/cmd.txt"}) {
        SCOPED_TRACE(option);
        ExpectWrongCommandLine({"cmd.txt", option});
    }
}

TEST(CommandLine, RefusesTwoCommandFilesEvenTheSame) {
    ExpectWrongCommandLine({"cmd.txt", "other.txt"});
    ExpectWrongCommandLine({"cmd.txt", "cmd.txt"});
}

TEST(CommandLine, RefusesAnOptionAlone) {
    ExpectWrongCommandLine({"/S"});
    ExpectWrongCommandLine({""});
}

TEST(CommandLine, RefusesBeforeItLooksForTheResultFileName) {
    Shop shop;
    EXPECT_THAT(shop.WithoutIni("ResultFileName").Run({"/S"}).stdLog, HasSubstr(wrongCommandLine));
}

TEST(CommandLine, MistakesKeepTheDebugLogOfLevelOne) {
    Shop shop;
    EXPECT_THAT(shop.Ini("DbgErrorLog", "1").Run({"/X"}).dbgLog, HasSubstr(wrongCommandLine));
}

// --- standard streams ----------------------------------------------------------------------------

TEST(StandardOutput, StaysEmptyWhateverComesOfTheRun) {
    Shop shop;
    for (const std::string& commands :
         {sale, openReceipt, badSyntax, std::string("EXIT\n"), std::string("GET_STATUS\n")}) {
        EXPECT_EQ(shop.Execute(commands).out, "") << commands;
    }
}

namespace {

// Standard output becomes a pipe without a reader.
const std::string toNobody =
    "mkfifo nobody; exec 3<>nobody 4>nobody 3<&-; rm nobody; exec \"$@\" >&4 4>&-";

}  // namespace

TEST(StandardOutput, ThatNobodyReadsLeavesTheUsageInOrder) {
    Shop shop;
    const RunOutcome run = shop.StartBy(toNobody).Ini("DbgErrorLog", "1").Run({"/?"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_FALSE(fs::exists(shop.Folder().File(marker)));
    EXPECT_EQ(run.dbgLog, "");
}

TEST(StandardOutput, ThatNobodyReadsLeavesAnotherInstanceItsExitCode) {
    Shop shop;
    fs::create_directories(shop.Folder().File(marker + "/held"));
    EXPECT_EQ(shop.StartBy(toNobody).Execute(sale).exitCode, 2);
}

TEST(StandardOutput, ThatIsClosedDoesNotBecomeALog) {
    for (const char* closed : {">&-", "<&- >&- 2>&-"}) {
        Shop shop;
        const RunOutcome run = shop.StartBy("exec \"$@\" " + std::string(closed)).Run({"/?"});
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_THAT(run.stdLog, Not(HasSubstr("Usage"))) << closed;
        EXPECT_TRUE(Matches(run.dbgLog, StartPattern(" /?"))) << closed << run.dbgLog;
    }
}

namespace {

/// What a run that was started by "$@" and these redirections holds in the place of this standard
/// stream while it reads its command file, a pipe that only then is written to.
std::string StreamDuringARun(int stream, const std::string& redirections) {
    Shop shop;
    shop.StartBy("mkfifo cmd.txt; \"$@\" " + redirections +
                 " & exec 9>cmd.txt; readlink /proc/$!/fd/" + std::to_string(stream) +
                 " >stream; echo EXIT >&9; exec 9>&-; wait $!");
    EXPECT_EQ(shop.Run({"cmd.txt"}).exitCode, 1);
    return ReadWholeFile(shop.Folder().File("stream"));
}

}  // namespace

TEST(StandardStreams, ThatAreClosedLeadNowhereDuringTheRun) {
    EXPECT_EQ(StreamDuringARun(0, "<&-"), "/dev/null\n");
    EXPECT_EQ(StreamDuringARun(1, ">&-"), "/dev/null\n");
    EXPECT_EQ(StreamDuringARun(2, "2>&-"), "/dev/null\n");
    for (const int stream : {0, 1, 2}) {
        EXPECT_EQ(StreamDuringARun(stream, "<&- >&- 2>&-"), "/dev/null\n") << stream;
    }
}

// --- server mode ---------------------------------------------------------------------------------

namespace {

void ExpectServerMode(const Words& arguments, const std::string& name) {
    Shop shop;
    shop.Folder().Write("cmd.txt", badSyntax);
    const RunOutcome run = shop.Run(arguments);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run, NothingOfARun());
    EXPECT_EQ(ReadWholeFile(shop.Folder().File("cmd.txt")), badSyntax);
    std::string words;
    for (const std::string& argument : arguments) words += " " + argument;
    EXPECT_TRUE(Matches(run.dbgLog, StartPattern(words) + timeStamp + name + " started\n" +
                                        timeStamp + name + " finished\n"))
        << run.dbgLog;
    EXPECT_THAT(run.stdLog, Not(HasSubstr("erver mode")));
    EXPECT_EQ(shop.Line().Counters().bytesIn, 0);
}

}  // namespace

TEST(ServerMode, IsOnlyStartedAndFinished) {
    ExpectServerMode({"cmd.txt", "/S"}, "Server mode");
    ExpectServerMode({"-s", "cmd.txt"}, "Server mode");
}

TEST(ServerMode, HasACompatibleVariant) {
    ExpectServerMode({"cmd.txt", "/S2"}, "Old server mode");
    ExpectServerMode({"/s2", "cmd.txt"}, "Old server mode");
}

TEST(ServerMode, IsTheOneOfTheLastOption) {
    ExpectServerMode({"/S", "cmd.txt", "/S2"}, "Old server mode");
    ExpectServerMode({"-S2", "cmd.txt", "-S"}, "Server mode");
}

TEST(ServerMode, NeedsNoCommandFileThatExists) {
    Shop shop;
    EXPECT_EQ(shop.Run({"none/such.txt", "/S"}).exitCode, 0);
}

TEST(ServerMode, NeedsAResultFileName) {
    for (const char* option : {"/S", "/S2"}) {
        Shop shop;
        const RunOutcome run = shop.WithoutIni("ResultFileName").Run({"cmd.txt", option});
        EXPECT_EQ(run.exitCode, 2);
        const std::string message = "  Unable to start server mode. Result file not specified\n";
        EXPECT_THAT(run.stdLog, HasSubstr(message));
        EXPECT_THAT(run.dbgLog, HasSubstr(message));
        EXPECT_THAT(run.dbgLog, Not(HasSubstr("erver mode started")));
    }
}

TEST(ServerMode, NeedsAResultFileNameBeforeACodePage) {
    Shop shop;
    shop.WithoutIni("ResultFileName").Ini("CodePage", "latin");
    EXPECT_THAT(shop.Run({"cmd.txt", "/S"}).stdLog, HasSubstr("Result file not specified"));
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/SiteLogs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <sstream>
#include <string>

#include "companion/runner/PrivateRoot.h"
#include "tests/companion/Till.h"
#include "tests/support/Regex.h"
#include "tests/support/TempDir.h"

using runner::AppendToSiteLogs;
using runner::Profile;
using runner::RunResult;
using testing::AllOf;
using testing::HasSubstr;

namespace {

Profile Levels(int standardLog, int dbgErrorLog) {
    Profile profile;
    profile.standardLog = standardLog;
    profile.dbgErrorLog = dbgErrorLog;
    return profile;
}

RunResult Ended(int exitCode) {
    RunResult run;
    run.exitCode = exitCode;
    run.resultText = "[VOLTIS]\n";
    run.standardLog = "\nT  started\nT  Debug information saved in dbgerror.log\n";
    run.debugLog = "\nT  started\nPC->ECR\n";
    return run;
}

// Both logs, one after the other.
std::string Logs(const TempDir& folder) {
    return ReadWholeFile(folder.File("voltis.log")) + "|" +
           ReadWholeFile(folder.File("dbgerror.log"));
}

std::string LogsAfter(const Profile& profile, const RunResult& run) {
    const TempDir folder;
    EXPECT_EQ(AppendToSiteLogs(profile, run, folder.Path()), "");
    return Logs(folder);
}

const std::string started = "\nT  started\n";
const std::string saved = started + "T  Debug information saved in dbgerror.log\n";
const std::string conversation = "\nT  started\nPC->ECR\n";

}  // namespace

TEST(AppendToSiteLogs, KeepsWhatTheLevelsAskFor) {
    EXPECT_EQ(LogsAfter(Levels(0, 0), Ended(0)), "|");
    EXPECT_EQ(LogsAfter(Levels(0, 0), Ended(101)), "|");
    EXPECT_EQ(LogsAfter(Levels(1, 0), Ended(101)), started + "|");
    EXPECT_EQ(LogsAfter(Levels(1, 1), Ended(0)), started + "|");
    EXPECT_EQ(LogsAfter(Levels(-1, 1), Ended(2)), saved + "|" + conversation);
    EXPECT_EQ(LogsAfter(Levels(0, 1), Ended(101)), "|" + conversation);
    EXPECT_EQ(LogsAfter(Levels(1, 2), Ended(0)), saved + "|" + conversation);
    EXPECT_EQ(LogsAfter(Levels(0, 3), Ended(0)), "|" + conversation);
}

TEST(AppendToSiteLogs, TakesAnExitFileForNoError) {
    RunResult run = Ended(1);
    run.resultText.reset();
    EXPECT_EQ(LogsAfter(Levels(1, 1), run), started + "|");
}

TEST(AppendToSiteLogs, KeepsWhatAKilledDriverLeft) {
    RunResult run = Ended(137);
    run.killedBySignal = 9;
    run.standardLog = started;
    EXPECT_EQ(LogsAfter(Levels(0, 0), run), started + "|" + conversation);
}

TEST(AppendToSiteLogs, AddsNothingToARunInPlace) {
    Profile profile = Levels(1, 2);
    profile.sandbox = false;
    EXPECT_EQ(LogsAfter(profile, Ended(0)), "|");
}

TEST(AppendToSiteLogs, AppendsToWhatIsThere) {
    const TempDir folder;
    folder.Write("voltis.log", "old\n");
    AppendToSiteLogs(Levels(1, 0), Ended(0), folder.Path());
    AppendToSiteLogs(Levels(1, 0), Ended(0), folder.Path());
    EXPECT_EQ(Logs(folder), "old\n" + started + started + "|");
}

TEST(AppendToSiteLogs, WarnsOfEachLogThatCannotBeWritten) {
    const std::string warnings = AppendToSiteLogs(Levels(1, 2), Ended(0), "/nowhere");
    EXPECT_THAT(warnings, AllOf(HasSubstr("the log '/nowhere/voltis.log' lacks this run - No such "
                                          "file or directory\n"),
                                HasSubstr("'/nowhere/dbgerror.log' lacks")));
}

// No file of this process can grow beyond a size.
TEST(AppendToSiteLogs, WarnsOfAFullDisk) {
    const TempDir folder;
    signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit full{started.size() - 1, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    const std::string warning = AppendToSiteLogs(Levels(1, 0), Ended(0), folder.Path());
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_THAT(warning, HasSubstr("No space left on device"));
}

TEST(AppendToSiteLogs, FollowsNoLinkThatSomebodyElseMayHavePutThere) {
    const TempDir folder;
    folder.Write("another", "a file of this account\n");
    std::filesystem::create_symlink("another", folder.File("voltis.log"));
    EXPECT_THAT(AppendToSiteLogs(Levels(1, 0), Ended(0), folder.Path()),
                HasSubstr("/voltis.log' lacks this run - Too many levels of symbolic links"));
    EXPECT_EQ(ReadWholeFile(folder.File("another")), "a file of this account\n");
}

TEST(AppendToSiteLogs, DoesNotMixTheBlocksOfRunsAtTheSameTime) {
    const TempDir folder;
    constexpr int writers = 8;
    constexpr int rounds = 50;
    for (int i = 0; i < writers; ++i) {
        if (fork() != 0) continue;
        RunResult run;
        run.debugLog = std::string(20000, static_cast<char>('a' + i)) + "\n";
        for (int round = 0; round < rounds; ++round)
            AppendToSiteLogs(Levels(0, 2), run, folder.Path());
        _exit(0);
    }
    while (wait(nullptr) > 0) {
    }
    std::istringstream log(ReadWholeFile(folder.File("dbgerror.log")));
    int lines = 0;
    for (std::string line; std::getline(log, line); ++lines)
        ASSERT_EQ(line, std::string(20000, line[0]));
    EXPECT_EQ(lines, writers * rounds);
}

namespace {

std::string WithoutTimes(std::string log) {
    const Regex time(R"(\d\d\.\d\d\.\d{4} [0-9:.]{12}|in +[0-9.]+ ms)");
    for (const Regex::Found& found : time.FindAll(log))
        log.erase(log.find(found[0]), found[0].size());
    return log;
}

// The driver with the site's own configuration writes both logs into the folder.
void RunWithItsOwnLevels(Till& till, const std::string& commands, const TempDir& folder) {
    runner::PrivateRoot root;
    root.place = runner::PlaceOf("/pos/sale.txt", "/");
    root.files = till.Files().Path();
    root.logs = folder.Path();
    root.ini = till.File("voltis.ini");
    root.device = till.Station().server.SlavePath();
    root.driver = VOLTIS_PATH;
    till.Files().Write("sale.txt", commands);
    workbench::Serving serving(till.Station().server);
    runner::RunSandboxed(runner::PlanFor(root), {VOLTIS_PATH, "/pos/sale.txt"});
    serving.Finish();
}

class SiteLevels : public testing::TestWithParam<const char*> {};

}  // namespace

TEST_P(SiteLevels, LeaveWhatTheDriverItselfWouldLeave) {
    for (const char* commands : {oneSale, "SALE\n", "EXIT\n", "GET_STATUS\n"}) {
        Till till;
        till.Configure(GetParam());
        const TempDir site;
        const RunResult run = till.Run(till.Request("/pos/sale.txt", commands));
        AppendToSiteLogs(till.profile, run, site.Path());
        Till other;
        other.Configure(GetParam());
        const TempDir own;
        RunWithItsOwnLevels(other, commands, own);
        EXPECT_EQ(WithoutTimes(Logs(site)), WithoutTimes(Logs(own))) << commands;
    }
}

INSTANTIATE_TEST_SUITE_P(All, SiteLevels,
                         testing::Values("", "StandardLog=1\n", "DbgErrorLog=1\n",
                                         "StandardLog=1\nDbgErrorLog=1\n",
                                         "StandardLog=2\nDbgErrorLog=2\n"));

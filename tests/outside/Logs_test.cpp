// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The shipped driver from outside. What a run leaves in both logs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "tests/outside/Expectations.h"
#include "tests/support/Regex.h"
#include "tests/support/Shop.h"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

struct LogCase {
    int standardLevel;
    int debugLevel;
    bool failure;

    bool KeepsStandard() const { return standardLevel != 0; }
    bool KeepsDebug() const { return debugLevel != 0 && (debugLevel != 1 || failure); }
};

class Logs : public testing::TestWithParam<LogCase> {
  protected:
    RunOutcome RunOnce(Shop& shop) {
        shop.Ini("StandardLog", std::to_string(GetParam().standardLevel));
        shop.Ini("DbgErrorLog", std::to_string(GetParam().debugLevel));
        return shop.Execute(GetParam().failure ? badSyntax : sale);
    }
};

std::vector<LogCase> AllLogCases() {
    std::vector<LogCase> cases;
    for (const int standardLevel : {0, 1, 2}) {
        for (const int debugLevel : {0, 1, 2}) {
            cases.push_back({standardLevel, debugLevel, false});
            cases.push_back({standardLevel, debugLevel, true});
        }
    }
    return cases;
}

void PrintTo(const LogCase& logCase, std::ostream* out) {
    *out << "Standard" << logCase.standardLevel << "Debug" << logCase.debugLevel
         << (logCase.failure ? "Failure" : "Success");
}

INSTANTIATE_TEST_SUITE_P(Levels, Logs, testing::ValuesIn(AllLogCases()),
                         testing::PrintToStringParamName());

TEST_P(Logs, GrowByTheRunOrStayAsTheyWere) {
    Shop shop;
    shop.Logs().Write("voltis.log", "earlier\n");
    shop.Logs().Write("dbgerror.log", "earlier, too\n");
    const RunOutcome run = RunOnce(shop);
    EXPECT_THAT(run.stdLog, StartsWith("earlier\n"));
    EXPECT_THAT(run.dbgLog, StartsWith("earlier, too\n"));
    EXPECT_EQ(run.stdLog != "earlier\n", GetParam().KeepsStandard()) << run.stdLog;
    EXPECT_EQ(run.dbgLog != "earlier, too\n", GetParam().KeepsDebug()) << run.dbgLog;
}

TEST_P(Logs, AreNotThereWhenNothingWasKept) {
    Shop shop;
    RunOnce(shop);
    EXPECT_EQ(fs::exists(shop.Logs().File("voltis.log")), GetParam().KeepsStandard());
    EXPECT_EQ(fs::exists(shop.Logs().File("dbgerror.log")), GetParam().KeepsDebug());
}

TEST_P(Logs, PointFromTheStandardLogToTheDebugLogThatWasKept) {
    Shop shop;
    const std::string pointer = "  Debug information saved in dbgerror.log\n";
    const RunOutcome run = RunOnce(shop);
    const bool both = GetParam().KeepsStandard() && GetParam().KeepsDebug();
    EXPECT_EQ(run.stdLog.ends_with(pointer), both) << run.stdLog;
    EXPECT_THAT(run.dbgLog, Not(HasSubstr(pointer)));
}

TEST(LogText, BeginsWithAnEmptyLineAndTheCommandLine) {
    Shop shop;
    shop.Folder().Write("my sale.txt", sale);
    const RunOutcome run = shop.Run({"my sale.txt"});
    const Regex start("^" + StartPattern(" my sale.txt"));
    EXPECT_TRUE(start.Find(run.stdLog)) << run.stdLog;
    EXPECT_TRUE(start.Find(run.dbgLog)) << run.dbgLog;
}

TEST(LogText, OfASaleIsStartStatisticsAndThePointerInTheStandardLog) {
    Shop shop;
    const RunOutcome run = shop.Execute(sale);
    EXPECT_TRUE(Matches(run.stdLog, StartPattern(" cmd.txt") + timeStamp +
                                        R"(I/O statistics : OUT frames = \d+, IN frames = \d+\n)" +
                                        timeStamp +
                                        R"(Debug information saved in dbgerror\.log\n)"))
        << run.stdLog;
}

TEST(LogText, OfAFailureHoldsItsMessageInBothLogs) {
    Shop shop;
    const RunOutcome run = shop.Execute(badSyntax);
    const std::string line = "  Missing ':' after fiscal command (file : 'cmd.txt' line : 1)\n";
    EXPECT_THAT(run.stdLog, HasSubstr(line));
    EXPECT_THAT(run.dbgLog, HasSubstr(line));
}

TEST(LogText, OfAFailureEndsWithTheClosingOfThePortAndTheStatistics) {
    Shop shop;
    const RunOutcome run = shop.Execute(unknownArticle);
    const Regex end("Closing serial port\n" + timeStamp +
                    R"(I/O statistics : OUT frames = \d+, IN frames = \d+, NAK = 1\n$)");
    EXPECT_TRUE(end.Find(run.dbgLog)) << run.dbgLog;
}

TEST(LogText, HoldsEveryFrameOfTheLine) {
    Shop shop;
    const RunOutcome run = shop.Execute(sale);
    const Regex frame(R"(PC(->|<-)ECR +\d+ bytes in +\d+\.\d ms :( [0-9a-f]{2})+)");
    const std::size_t frames = frame.FindAll(run.dbgLog).size();
    const auto counts = Regex(R"(OUT frames = (\d+), IN frames = (\d+)\n)").Find(run.dbgLog);
    ASSERT_TRUE(counts);
    EXPECT_EQ(frames, std::stoul(counts->at(1)) + std::stoul(counts->at(2)));
    EXPECT_GT(frames, 20U);
}

TEST(LogText, HoldsTheCommandFileAfterAnErrorInIt) {
    Shop shop;
    const RunOutcome run = shop.Execute("# two lines \t\r\n   \n\n  SALE DEPTNR=1  \r\nTOTAL");
    const std::string copy =
        "  Input file (cmd.txt):\n"
        "\t# two lines\n"
        "\t  SALE DEPTNR=1\n"
        "\tTOTAL\n";
    EXPECT_THAT(run.dbgLog, HasSubstr(copy));
    EXPECT_THAT(run.stdLog, Not(HasSubstr("Input file")));
}

TEST(LogText, HoldsNoCommandFileAfterOtherFailures) {
    Shop shop;
    EXPECT_THAT(shop.WithoutIni("ComNumber").Execute(sale).dbgLog, Not(HasSubstr("Input file")));
}

TEST(LogText, OfOneRunFollowsThatOfTheRunBefore) {
    Shop shop;
    const RunOutcome first = shop.Execute(sale);
    const RunOutcome second = shop.Execute(sale);
    EXPECT_THAT(second.stdLog, StartsWith(first.stdLog));
    EXPECT_THAT(second.dbgLog, StartsWith(first.dbgLog));
    EXPECT_GT(second.stdLog.size(), first.stdLog.size());
}

TEST(LogFolder, ThatIsMissingEndsTheRunWithTwo) {
    Shop shop;
    shop.Folder().Write(marker, "");
    const RunOutcome run = shop.Sandbox({"--tmpfs", "/var/log"}).Execute(sale);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run, NothingOfARun());
    EXPECT_TRUE(fs::exists(shop.Folder().File(marker))) << "it is not this run's";
}

TEST(LogFolder, WithADebugLogThatCannotBeOpenedKeepsNoEmptyStandardLog) {
    Shop shop;
    fs::create_directory(shop.Logs().File("dbgerror.log"));
    const RunOutcome run = shop.Execute(sale);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run, NothingOfARun());
    EXPECT_FALSE(fs::exists(shop.Logs().File("voltis.log")));
}

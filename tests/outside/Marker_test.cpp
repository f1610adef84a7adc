// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The shipped driver from outside. The file that marks a running driver.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <string>

#include "emulator/Register.h"
#include "tests/outside/Expectations.h"
#include "tests/support/Shop.h"
#include "tests/support/TempDir.h"

namespace fs = std::filesystem;
using testing::Optional;
using Words = std::vector<std::string>;

TEST(Marker, IsThereDuringTheRunOnly) {
    Shop shop;
    std::atomic<bool> seen = false;
    shop.Line().OnReceive(
        [&, path = shop.Folder().File(marker)](emulator::Bytes&) { seen = fs::exists(path); });
    shop.Execute(sale);
    EXPECT_TRUE(seen);
    EXPECT_FALSE(fs::exists(shop.Folder().File(marker)));
}

TEST(Marker, ThatIsStaleDoesNotBlockTheRun) {
    Shop shop;
    shop.Folder().Write(marker, "left by a power cut");
    EXPECT_THAT(shop.Execute(sale).result, Optional(soldResult));
    EXPECT_FALSE(fs::exists(shop.Folder().File(marker)));
}

TEST(Marker, IsGoneAfterEveryEnd) {
    Shop shop;
    const struct {
        Words arguments;
        int exitCode;
    } ends[] = {{{"bad.txt"}, 1},  {{"exit.txt"}, 1}, {{"none.txt"}, 1}, {{"refused.txt"}, 101},
                {{"open.txt"}, 2}, {{}, 0},           {{"/X"}, 2},       {{"a", "b"}, 2},
                {{"any", "/S"}, 0}};
    shop.Folder().Write("bad.txt", badSyntax);
    shop.Folder().Write("exit.txt", "EXIT\n");
    shop.Folder().Write("refused.txt", unknownArticle);
    shop.Folder().Write("open.txt", sale);
    for (const auto& end : ends) {
        EXPECT_EQ(shop.Run(end.arguments).exitCode, end.exitCode);
        EXPECT_FALSE(fs::exists(shop.Folder().File(marker)));
    }
}

TEST(Marker, ThatCannotBeDeletedMeansAnotherInstance) {
    Shop shop;
    fs::create_directories(shop.Folder().File(marker + "/held"));
    const RunOutcome run = shop.Execute(sale);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, "Another instance of driver is already running");
    EXPECT_THAT(run, NothingOfARun());
    EXPECT_TRUE(fs::exists(shop.Folder().File(marker + "/held")));
}

TEST(Marker, OfAnotherInstanceLeavesTheStartLinesInTheLogsWhateverTheirLevels) {
    Shop shop;
    fs::create_directories(shop.Folder().File(marker + "/held"));
    const RunOutcome run = shop.Ini("StandardLog", "0").Ini("DbgErrorLog", "0").Execute(sale);
    EXPECT_TRUE(Matches(run.stdLog, StartPattern(" cmd.txt"))) << run.stdLog;
    EXPECT_TRUE(Matches(run.dbgLog, StartPattern(" cmd.txt"))) << run.dbgLog;
}

TEST(Marker, OfAnotherInstanceIsLookedForBeforeTheCommandLine) {
    Shop shop;
    fs::create_directories(shop.Folder().File(marker + "/held"));
    EXPECT_EQ(shop.Run({"/?"}).out, "Another instance of driver is already running");
}

TEST(Marker, IsInTheWorkingDirectory) {
    Shop shop;
    fs::create_directories(shop.Folder().File("till"));
    fs::create_directories(shop.Folder().File(marker + "/held"));
    const std::string commandFile = shop.Folder().Write("cmd.txt", sale);
    EXPECT_EQ(shop.WorkIn("till").Run({commandFile}).exitCode, 0);
    EXPECT_EQ(shop.WorkIn("").Run({commandFile}).exitCode, 2);
}

TEST(Marker, ThatCannotBeCreatedDoesNotStopTheRun) {
    Shop shop;
    const TempDir readOnly;
    const std::string commandFile = shop.Folder().Write("cmd.txt", sale);
    shop.WorkIn(readOnly.Path()).Sandbox({"--ro-bind", readOnly.Path(), readOnly.Path()});
    const RunOutcome run = shop.Run({commandFile});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.result, Optional(soldResult));
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl replay` from outside.
#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "tests/companion/Tool.h"
#include "tests/support/TempDir.h"

namespace {

/// The debug log of a run of the shipped driver on a command file.
std::string LogOf(const std::string& file) {
    return Section(Try({"--log", file}).text, "debug log");
}

constexpr char oneTart[] = "SALE: DEPTNR=1; NAME=\"Apple tart\"; AMOUNT=2.50\nTENDER\n";
constexpr char onePie[] = "SALE: DEPTNR=1; NAME=\"Apple pie\"; AMOUNT=2.50\nTENDER\n";

struct voltisctlReplay : testing::Test {
    TempDir shop;
    std::string tart = shop.Write("tart.txt", oneTart);
    std::string pie = shop.Write("pie.txt", onePie);
};

}  // namespace

TEST_F(voltisctlReplay, EndsWithZeroWhenTheCallerSaysTheSame) {
    Tool tool({"replay", shop.Write("log", LogOf(tart))});
    EXPECT_EQ(DriveFile(PtyOf(tool), tart), 0);
    EXPECT_EQ(tool.Wait(), 0);
    EXPECT_TRUE(Holds(tool.Said(), {"run 1 of 1, ", "\nas logged: "}));
}

TEST_F(voltisctlReplay, ShowsTheFirstFrameThatDiffers) {
    Tool tool({"replay", shop.Write("log", LogOf(tart))});
    EXPECT_NE(DriveFile(PtyOf(tool), pie), 0);
    EXPECT_EQ(tool.Wait(), 1);
    EXPECT_TRUE(Holds(tool.Said(), {"differs at frame 8 of 21, line 21 of the log\n",
                                    "  logged  02 00 01 41 70 70 6c 65 20 74 61 72 74 20 20 20\n"
                                    "  came    02 00 01 41 70 70 6c 65 20 70 69 65 20 20 20 20\n"
                                    "                                     ^^ ^^ ^^ ^^\n"}));
}

TEST_F(voltisctlReplay, RepeatsARunThatFailed) {
    const std::string log = shop.Write("log", LogOf(examples + "/refused-command.txt"));
    Tool tool({"replay", log});
    EXPECT_EQ(DriveAt(PtyOf(tool), "refused-command.txt"), 101);
    EXPECT_EQ(tool.Wait(), 0);
}

TEST_F(voltisctlReplay, TakesTheRunThatIsNamedElseTheLast) {
    const std::string log = shop.Write("log", LogOf(tart) + LogOf(pie));
    Tool first({"replay", log, "--run", "1"});
    EXPECT_EQ(DriveFile(PtyOf(first), tart), 0);
    EXPECT_EQ(first.Wait(), 0);
    Tool last({"replay", log});
    EXPECT_EQ(DriveFile(PtyOf(last), pie), 0);
    EXPECT_EQ(last.Wait(), 0);
    const Answer none = RunTool({"replay", log, "--run", "3"});
    EXPECT_EQ(none.exitCode, 2);
    EXPECT_TRUE(Holds(none.text, {"has 2 runs with a conversation"}));
}

TEST_F(voltisctlReplay, EndsWithOneWhenTheCallerStopsEarly) {
    const std::string log = shop.Write("log", LogOf(tart));
    const Answer late = RunTool({"replay", "--timeout", "0.05", log});
    EXPECT_EQ(late.exitCode, 1);
    EXPECT_TRUE(
        Holds(late.text, {"differs: the time was over after 0 frames; due was frame 1 of "}));
    Tool tool({"replay", log});
    PtyOf(tool);
    tool.Signal(SIGTERM);
    EXPECT_EQ(tool.Wait(), 1);
    EXPECT_TRUE(Holds(tool.Said(), {"differs: interrupted after 0 frames"}));
}

TEST_F(voltisctlReplay, EndsWithTwoForALogThatCannotBeUsed) {
    EXPECT_EQ(RunTool({"replay", "/no/such/log"}).exitCode, 2);
    const Answer empty = RunTool({"replay", tart});
    EXPECT_EQ(empty.exitCode, 2);
    EXPECT_TRUE(Holds(empty.text, {"there is no conversation in '" + tart + "'"}));
    const std::string log =
        shop.Write("log",
                   "PC->ECR   5 bytes in    0.1 ms : d9 01 d1 09 4c\nPC<-ECR   4 bytes i\n"
                   "PC->ECR   4 bytes in    0.1 ms : d9 06 df 42\n");
    const Answer damaged = RunTool({"replay", log});
    EXPECT_EQ(damaged.exitCode, 2);
    EXPECT_TRUE(Holds(damaged.text, {log + ":2:1: error: not as the driver writes it\n"
                                           "  PC<-ECR   4 bytes i\n  ^\n"}));
}

TEST_F(voltisctlReplay, SaysWhatThePageShows) {
    const std::string page = ReadWholeFile(examples + "/../docs/emulator.md");
    Tool tool({"replay", shop.Write("log", LogOf(tart))});
    EXPECT_NE(DriveFile(PtyOf(tool), pie), 0);
    EXPECT_EQ(tool.Wait(), 1);
    EXPECT_TRUE(Holds(page, {tool.Said().substr(tool.Said().find("differs at"))}));
}

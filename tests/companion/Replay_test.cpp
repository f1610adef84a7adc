// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A run of a debug log, held again.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "companion/replay/LoggedRun.h"
#include "companion/replay/Replay.h"
#include "tests/emulator/Peer.h"

namespace {

using replay::LoggedRun;
using replay::Replay;
using replay::Step;

std::string ShopLog() {
    std::ifstream in(VOLTIS_SOURCE_DIR "/tests/logs/journal-paper-end.log");
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

constexpr char shortLog[] =
    "22.11.2026 15:14:56.965  VOLTIS v2.5.0 started. Command line : \"/voltis\" sale.txt\n"
    "PC->ECR   2 bytes in    0.0 ms : 01 02\n"
    "PC<-ECR   1 bytes in  250.9 ms : 06\n"
    "PC->ECR   1 bytes in    0.0 ms : 03\n"
    "PC<-ECR   1 bytes in    0.1 ms : (ignored) 15\n"
    "PC->ECR   1 bytes in    0.0 ms : 03\n"
    "PC<-ECR   1 bytes in    0.1 ms : 06\n"
    "PC<-ECR   2 bytes in    0.1 ms : aa bb\n";

// What the caller wrote, said again; the answers, one entry for each frame.
std::vector<std::string> Caller(Replay& far, const LoggedRun& run) {
    std::vector<std::string> answers;
    for (const Step& step : run.steps)
        if (step.fromCaller) answers.push_back(ToHex(far.Feed(step.bytes)));
    return answers;
}

}  // namespace

TEST(LoggedRuns, KeepTheStepsWithTheirLines) {
    const auto runs = replay::ReadRuns(shortLog);
    ASSERT_EQ(runs.size(), 1U);
    EXPECT_EQ(runs[0].started, "22.11.2026 15:14:56.965");
    ASSERT_EQ(runs[0].steps.size(), 6U);
    EXPECT_EQ(runs[0].steps[1], (Step{false, FromHex("06"), std::chrono::milliseconds(250), 3}));
    EXPECT_EQ(runs[0].steps[3].line, 6);
}

TEST(LoggedRuns, AreThoseWithAConversation) {
    const std::string silent = "01.01.2026 00:00:00.000  VOLTIS v2.5.0 started. Command line : x\n";
    EXPECT_EQ(replay::ReadRuns(silent + shortLog + silent + shortLog).size(), 2U);
    EXPECT_TRUE(replay::ReadRuns(silent).empty());
}

TEST(LoggedRuns, ALogThatIsCutEndsBeforeTheCut) {
    std::string log = shortLog;
    log.resize(log.size() - 4);
    const auto runs = replay::ReadRuns(log);
    ASSERT_EQ(runs.size(), 1U);
    EXPECT_TRUE(runs[0].cut);
    EXPECT_EQ(runs[0].steps.size(), 5U);
}

TEST(LoggedRuns, ADamagedLineIsNamed) {
    std::string log = shortLog;
    log.replace(log.find("2 bytes"), 1, "3");
    const auto runs = replay::ReadRuns(log + shortLog);
    ASSERT_EQ(runs.size(), 2U);
    ASSERT_TRUE(runs[0].damage);
    EXPECT_EQ(runs[0].damage->number, 2);
    EXPECT_EQ(runs[0].damage->text, "PC->ECR   3 bytes in    0.0 ms : 01 02");
    EXPECT_FALSE(runs[1].damage);
}

TEST(Replays, AnswerAsTheLogSaysAndElseNothing) {
    const auto runs = replay::ReadRuns(shortLog);
    Replay far(runs[0]);
    EXPECT_THAT(Caller(far, runs[0]), testing::ElementsAre("06", "", "06 aa bb"));
    EXPECT_EQ(far.Now(), Replay::State::AsLogged);
    EXPECT_EQ(far.Report(), "as logged: 3 frames");
}

TEST(Replays, TakeTheirTimeOnlyWhenPaced) {
    const auto runs = replay::ReadRuns(shortLog);
    Replay fast(runs[0]);
    fast.Feed(FromHex("01 02"));
    EXPECT_EQ(fast.Delay(), std::chrono::milliseconds(0));
    Replay paced(runs[0], true);
    paced.Feed(FromHex("01 02"));
    EXPECT_EQ(paced.Delay(), std::chrono::milliseconds(250));
}

TEST(Replays, TakeAFrameInPieces) {
    const auto runs = replay::ReadRuns(shortLog);
    Replay far(runs[0]);
    EXPECT_EQ(ToHex(far.Feed(FromHex("01"))), "");
    EXPECT_FALSE(far.Pending());
    EXPECT_EQ(ToHex(far.Feed(FromHex("02"))), "06");
}

TEST(Replays, ShowAFrameThatDiffersWhenAllOfItHasCome) {
    const auto runs = replay::ReadRuns(shortLog);
    Replay far(runs[0]);
    EXPECT_EQ(ToHex(far.Feed(FromHex("01 03"))), "");
    EXPECT_TRUE(far.Pending());
    EXPECT_EQ(far.Now(), Replay::State::Talking);
    far.Feed(FromHex("04"));
    EXPECT_EQ(ToHex(far.Idle()), "");
    EXPECT_EQ(far.Now(), Replay::State::Differs);
    EXPECT_EQ(far.Report(),
              "differs at frame 1 of 3, line 2 of the log\n"
              "  logged  01 02\n"
              "  came    01 03 04\n"
              "             ^^ ^^\n");
}

TEST(Replays, ACallerThatGoesOnDiffers) {
    const auto runs = replay::ReadRuns(shortLog);
    Replay far(runs[0]);
    Caller(far, runs[0]);
    far.Feed(FromHex("09"));
    far.Idle();
    EXPECT_EQ(far.Now(), Replay::State::Differs);
    EXPECT_THAT(far.Report(), testing::StartsWith("differs: after all 3 frames"));
}

TEST(Replays, ACallerThatClosesEarlyDiffersUnlessItSaidNothing) {
    const auto runs = replay::ReadRuns(shortLog);
    Replay far(runs[0]);
    far.Closed();
    EXPECT_EQ(far.Now(), Replay::State::Talking);
    far.Feed(FromHex("01 02"));
    far.Closed();
    EXPECT_EQ(far.Now(), Replay::State::Differs);
    EXPECT_THAT(far.Report(), testing::StartsWith("differs: the caller closed the line after 1 "
                                                  "frames; due was frame 2 of 3, line 4"));
}

TEST(Replays, AShopsLogIsHeldAgain) {
    const auto runs = replay::ReadRuns(ShopLog());
    ASSERT_EQ(runs.size(), 1U);
    Replay far(runs[0]);
    const auto answers = Caller(far, runs[0]);
    EXPECT_EQ(far.Now(), Replay::State::AsLogged) << far.Report();
    EXPECT_EQ(answers.front(),
              "d9 06 df 42 41 00 06 01 00 10 00 00 12 06 00 00 00 00 00 00 00 42 4e");
    // One was lost, and none is due after the last ACK of a status read.
    EXPECT_THAT(answers, testing::Contains("").Times(3));
}

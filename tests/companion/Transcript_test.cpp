// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The conversation in the text of a debug log.
#include "companion/transcript/Transcript.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using testing::ElementsAre;
using testing::IsEmpty;
using transcript::Block;
using transcript::ReadLog;

namespace {

const std::string stamp = "22.11.2026 05:30:12.345  ";

std::string Statistics(int frames) {
    return stamp + "I/O statistics : OUT frames = " + std::to_string(frames) + ", IN frames = 1\n";
}

}  // namespace

TEST(Transcript, HasTheBlocksInTheirOrder) {
    const auto read =
        ReadLog("\n" + stamp + "VOLTIS v2.5.0 started. Command line : voltis a.txt\n" +
                "PC->ECR   5 bytes in    0.1 ms : d9 01 d1 09 4c\n" +
                "PC<-ECR   4 bytes in    6.3 ms : d9 06 df 42\n");
    EXPECT_THAT(read.blocks, ElementsAre(Block{true, {0xD9, 0x01, 0xD1, 0x09, 0x4C}},
                                         Block{false, {0xD9, 0x06, 0xDF, 0x42}}));
    EXPECT_FALSE(read.damaged);
}

TEST(Transcript, HasWhatTheDriverThrewAway) {
    const auto read = ReadLog("PC<-ECR   1 bytes in    0.1 ms : (ignored) 06\n");
    EXPECT_THAT(read.blocks, ElementsAre(Block{false, {0x06}}));
}

TEST(Transcript, ReadsLongBlocksAndSlowOnes) {
    const std::string bytes = "PC->ECR 120 bytes in  12345 ms :";
    std::string line = bytes;
    for (int i = 0; i < 120; ++i) line += " 2a";
    const auto read = ReadLog(line + "\nPC<-ECR   1 bytes              : 15\n");
    ASSERT_EQ(read.blocks.size(), 2U);
    EXPECT_EQ(read.blocks[0].bytes.size(), 120U);
    EXPECT_FALSE(read.damaged);
}

TEST(Transcript, IsWholeWhenTheDriverCountedAsManyFrames) {
    const std::string block = "PC->ECR   1 bytes in    0.1 ms : 06\n";
    EXPECT_TRUE(ReadLog(block + block + Statistics(2)).Whole());
    EXPECT_FALSE(ReadLog(block + Statistics(2)).Whole()) << "a line was lost";
    EXPECT_FALSE(ReadLog(block).Whole()) << "the run was cut off";
}

TEST(Transcript, TakesNoQuotedTextForTheDriversCount) {
    EXPECT_EQ(ReadLog(stamp + "Bad barcode format: I/O statistics : OUT frames = 0\n").framesSent,
              std::nullopt);
    for (const std::string& before : {std::string("\t"), "\t" + std::string(24, ' ')})
        EXPECT_EQ(ReadLog(before + "I/O statistics : OUT frames = 0\n").framesSent, std::nullopt);
}

// The next run's first line may be lost.
TEST(Transcript, EndsWithTheDriversCount) {
    const std::string block = "PC->ECR   1 bytes in    0.1 ms : 06\n";
    const auto read = ReadLog(block + Statistics(1) + block + "PC->ECR\n" + Statistics(9));
    EXPECT_EQ(read.blocks.size(), 1U);
    EXPECT_TRUE(read.Whole());
}

TEST(Transcript, IsDamagedByALineThatIsCutOrOtherwiseWrong) {
    for (const std::string line :
         {"PC->ECR   2 bytes in    0.1 ms : 06", "PC->ECR   2 bytes in    0.1 ms : 06\n",
          "PC->ECR   1 bytes in    0.1 ms : 0\n", "PC->ECR   1 bytes in    0.1 ms : 0g\n",
          "PC->ECR   1 bytes in    0.1 ms 06\n", "PC->ECR\n", "PC<-ECR  -1 bytes :\n",
          "PC<-ECR 99999999999 bytes : 06\n", "PC->ECR   1 bytes in    0.1 ms : 06 \n"}) {
        const auto read = ReadLog(line + Statistics(1));
        EXPECT_TRUE(read.damaged) << line;
        EXPECT_FALSE(read.Whole()) << line;
    }
}

TEST(Transcript, OfNoLogIsEmptyAndNotWhole) {
    EXPECT_THAT(ReadLog("").blocks, IsEmpty());
    EXPECT_FALSE(ReadLog("").Whole());
}

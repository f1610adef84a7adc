// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What is known of a run from the log that it left.
#include "companion/job/Following.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ECR.h"
#include "ProtocolFormatting.h"
#include "companion/trace/Commands.h"

using testing::ElementsAre;
using verdict::Acted;

namespace {

std::string LineOf(const char* direction, const BUF& frame) {
    std::vector<std::uint8_t> bytes(frame.GetSize());
    frame.CopyTo(bytes.data(), frame.GetSize());
    return direction + std::string(" ") + std::to_string(bytes.size()) +
           " bytes in    0.1 ms : " + trace::Hex(bytes) + "\n";
}

/// A command with all its answers: three frames of the driver.
std::string Done(std::uint8_t command, std::uint16_t sequence) {
    ProtocolFormatter_Ocelot formatter(false);
    const std::string answer = LineOf("PC<-ECR", formatter.BuildResponseFrame(ACK));
    BUF data;
    data.AddWORD(sequence);
    return LineOf("PC->ECR", formatter.BuildDataSendRequestFrame(1, command)) + answer +
           LineOf("PC->ECR", formatter.BuildDataFrame(data)) + answer +
           LineOf("PC->ECR", formatter.BuildEofFrame()) + answer;
}

std::string Counted(int sent) {
    return "22.11.2026 05:30:12.345  I/O statistics : OUT frames = " + std::to_string(sent) +
           ", IN frames = 1\n";
}

const std::vector<plan::Command> twoTotals = {{CMD_TOTAL, 1, {}}, {CMD_TOTAL, 2, {}}};

std::vector<Acted> ActedIn(const std::string& log, job::End end) {
    return job::Follow({}, twoTotals, {}, log, end).Conclude().commands;
}

}  // namespace

TEST(Following, OfAKilledDriverKnowsWhatItsLogHas) {
    EXPECT_THAT(ActedIn(Done(CMD_TOTAL, 1), job::End::Killed), ElementsAre(Acted::Yes, Acted::No));
}

// In a log of several registers the first line of the next run may be lost.
TEST(Following, DoesNotTakeFramesOfTheNextRunForThoseOfADriverThatWasKilled) {
    const std::string log = Done(CMD_TOTAL, 1) + Done(CMD_TOTAL, 2) + Counted(3);
    EXPECT_THAT(ActedIn(log, job::End::Killed), ElementsAre(Acted::Perhaps, Acted::Perhaps));
}

TEST(Following, DoesNotTakeFramesOfTheNextRunForThoseOfOneThatCounted) {
    const std::string log = Done(CMD_TOTAL, 1) + Counted(3) + Done(CMD_TOTAL, 2) + Counted(3);
    EXPECT_THAT(ActedIn(log, job::End::ByItself), ElementsAre(Acted::Yes, Acted::No));
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The link's tests depend on the scripted wire: it must not let anything pass.
#include "tests/support/ScriptedWire.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "CommChannel.h"
#include "tests/support/Failure.h"
#include "tests/support/WireFrames.h"

namespace {

const BYTE abc[] = {0x61, 0x62, 0x63};

bool WriteAbc() {
    return CommChannel_Write(abc, 3);
}

/// The action breaks the conversation, which ends the test.
template <typename Action>
void Breaking(Action action) {
    EXPECT_THROW(action(), std::runtime_error);
}

}  // namespace

TEST(ScriptedWire, FollowsAConversation) {
    BYTE block[3] = {};
    ExpectConversation(R"(
      # a comment
      open serial
      time-out 4000
      PC->ECR: 61 62 63
      PC<-ECR   3 bytes in    1.2 ms : 0a 0b 0c
      PC<-ECR  12 bytes              : 01 02 03 04 05 06 07 08 09 0a 0b 0c
      pause 7
      close)");
    CommChannel_Open(CommChannel_SerialPort);
    CommChannel_SetReadTimeout(4000);
    EXPECT_TRUE(WriteAbc());
    EXPECT_TRUE(CommChannel_Read(block, 3));
    EXPECT_EQ(block[0], 0x0a);
    EXPECT_EQ(block[2], 0x0c);
    BYTE longBlock[12];
    EXPECT_TRUE(CommChannel_Read(longBlock, 12));
    Sleep(7);
    CommChannel_Close();
}

TEST(ScriptedWire, LosesWhatTheScriptLoses) {
    BYTE block[3] = {};
    ExpectConversation(R"(
      PC<-ECR: lost
      PC<-ECR: 01 02
      PC->ECR: fails
      PC->ECR: 61 62 63 fails)");
    EXPECT_FALSE(CommChannel_Read(block, 3));
    EXPECT_FALSE(CommChannel_Read(block, 3));
    EXPECT_FALSE(WriteAbc());
    EXPECT_FALSE(WriteAbc());
}

TEST(ScriptedWire, RaisesWhatTheScriptRaises) {
    ExpectConversation("open ethernet raises 50 No such thing\n PC->ECR: 61 62 63 raises 3 Two");
    const auto first = FailureOf([] { CommChannel_Open(CommChannel_Ethernet); });
    ASSERT_TRUE(first);
    EXPECT_EQ(first->ErrorCode, 50);
    EXPECT_EQ(first->Message, "No such thing");
    EXPECT_TRUE(FailureOf(WriteAbc));
}

TEST(ScriptedWire, ReportsOtherBytes) {
    EXPECT_NONFATAL_FAILURE(
        {
            ExpectConversation("PC->ECR: 61 62 64");
            Breaking(WriteAbc);
        },
        "  expected  PC->ECR: 61 62 64\n  actual    PC->ECR: 61 62 63\n");
}

TEST(ScriptedWire, ReportsASurplusWrite) {
    EXPECT_NONFATAL_FAILURE(
        {
            ExpectConversation("");
            Breaking(WriteAbc);
        },
        "  expected  nothing more\n  actual    PC->ECR: 61 62 63\n");
}

TEST(ScriptedWire, ReportsAReadOutOfTurn) {
    EXPECT_NONFATAL_FAILURE(
        {
            ExpectConversation("PC->ECR: 61 62 63\n PC->ECR: 61");
            WriteAbc();
            BYTE block[3];
            Breaking([&] { CommChannel_Read(block, 3); });
        },
        "            PC->ECR: 61 62 63\n  expected  PC->ECR: 61\n  actual    a read of 3 bytes\n");
}

TEST(ScriptedWire, ReportsAReadOfTooFewBytes) {
    EXPECT_NONFATAL_FAILURE(
        {
            ExpectConversation("PC<-ECR: 01 02 03");
            BYTE block[2];
            Breaking([&] { CommChannel_Read(block, 2); });
        },
        "a read of 2 bytes");
}

TEST(ScriptedWire, ReportsWhatIsMissing) {
    EXPECT_NONFATAL_FAILURE(
        {
            ExpectConversation("PC->ECR: 61 62 63\n PC<-ECR: 01");
            WriteAbc();
            ExpectConversation("");
        },
        "            PC->ECR: 61 62 63\n  missing   PC<-ECR: 01\n");
}

TEST(ScriptedWire, ReportsAnotherTimeOutPauseOrChannel) {
    EXPECT_NONFATAL_FAILURE(
        {
            ExpectConversation("time-out 4000");
            Breaking([] { CommChannel_SetReadTimeout(4001); });
        },
        "time-out 4001");
    EXPECT_NONFATAL_FAILURE(
        {
            ExpectConversation("pause 200");
            Breaking([] { Sleep(201); });
        },
        "a pause of");
    EXPECT_NONFATAL_FAILURE(
        {
            ExpectConversation("open serial");
            Breaking([] { CommChannel_Open(CommChannel_Ethernet); });
        },
        "open ethernet");
}

TEST(ScriptedWire, RefusesAScriptThatItCannotRead) {
    for (const char* line : {"PC->ECR:", "PC->ECR: 6g", "PC->ECR 2 bytes in 1.0 ms : 61",
                             "PC=>ECR: 61", "opne serial", "PC->ECR: 61 loses"}) {
        EXPECT_THROW(ExpectConversation(line), std::invalid_argument) << line;
    }
}

TEST(ScriptedWire, TakesOnlyTheFramesOfALog) {
    ExpectLoggedConversation(R"(

14.03.2026 08:41:12.111  Opening serial port /dev/ttyS0
PC<-ECR   4 bytes in    0.1 ms : (ignored) d9 06 df 42
PC->ECR   3 bytes in    0.1 ms : 61 62 63
SALE: NAME=Milk; PRICE=2.50
14.03.2026 08:41:12.112  Checking for ECR
PC<-ECR   2 bytes in    6.3 ms : 01 02
14.03.2026 08:41:12.113  PC->ECR   3 bytes in    0.1 ms : 61 62 63)");
    CommChannel_Open(CommChannel_SerialPort);
    CommChannel_SetReadTimeout(1);
    EXPECT_TRUE(WriteAbc());
    Sleep(2);
    BYTE block[3];
    EXPECT_FALSE(CommChannel_Read(block, 3));
    EXPECT_TRUE(WriteAbc());
    CommChannel_Close();
}

TEST(WireFrames, AreThoseOfTheOcelotFamily) {
    EXPECT_EQ(InFamily(ProtocolFormatting_Ocelot,
                       "{send b3}|{read d1}|{ack}|{nak}|{bsy}|{data 01 00 01}|{eof}"),
              "d0 01 b3 62 1a|d9 01 d1 09 4c|d9 06 df 42|d9 15 cc 46|d9 0b d2 4a|01 00 01 00 fe|"
              "ff ff 00 02");
}

TEST(WireFrames, AreThoseOfTheMargayFamily) {
    EXPECT_EQ(InFamily(ProtocolFormatting_Margay,
                       "{send bb}|{read d1}|{ack}|{nak}|{bsy}|{data 01 00 01}|{eof}"),
              "02 bb 34 33 03|02 d1 32 44 03|06|15|1b|30 31 30 30 30 31 44 45 0d|44 45 1a");
}

TEST(WireFrames, CanBeSpoiled) {
    EXPECT_EQ(InFamily(ProtocolFormatting_Ocelot, "{garbled}|{bad data 01 00 01}|{bad eof}"),
              "d9 06 df 43|01 00 01 00 ff|ff ff 00 03");
    EXPECT_EQ(InFamily(ProtocolFormatting_Margay, "{garbled}|{bad data 01 00 01}|{bad eof}"),
              "86|30 31 30 30 30 31 44 46 0d|44 45 1b");
}

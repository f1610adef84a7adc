// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "CommChannel.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Linux/ComPort.h"
#include "Linux/UDP.h"
#include "tests/support/Failure.h"
#include "tests/support/InternalError.h"

// The serial port is replaced by one that notes what it is asked to do; the Ethernet transport is
// the real one.

namespace {

std::vector<std::string> asked;
bool serialAnswer = true;

std::string Text(const char* what, DWORD number) {
    return what + std::to_string(number);
}

}  // namespace

void ComPort_Open() {
    asked.push_back("open");
}
void ComPort_Close() {
    asked.push_back("close");
}
void ComPort_SetReadTimeout(DWORD timeoutInMs) {
    asked.push_back(Text("timeout ", timeoutInMs));
}
bool ComPort_ReadBlock(BYTE* block, DWORD dwBytesToRead) {
    asked.push_back(Text("read ", dwBytesToRead));
    block[0] = 0x5A;
    return serialAnswer;
}
bool ComPort_WriteBlock(const BYTE* block, DWORD dwBytesToWrite) {
    asked.push_back(Text("write ", dwBytesToWrite) + " of " + std::to_string(block[0]));
    return serialAnswer;
}

namespace {

using Asked = std::vector<std::string>;

void ExpectNoEthernet(const std::unique_ptr<DriverException>& failure) {
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->ErrorCode, 50);
    EXPECT_EQ(failure->Message, "Ethernet support not implemented");
}

TEST(CommChannel, RoutesEverythingToTheSerialPort) {
    BYTE block[4] = {7, 8, 9, 10};
    CommChannel_Open(CommChannel_SerialPort);
    CommChannel_SetReadTimeout(36000);
    EXPECT_TRUE(CommChannel_Write(block, 4));
    EXPECT_TRUE(CommChannel_Read(block, 3));
    EXPECT_EQ(block[0], 0x5A);
    CommChannel_Close();
    EXPECT_EQ(asked, (Asked{"open", "timeout 36000", "write 4 of 7", "read 3", "close"}));
}

TEST(CommChannel, PassesOnThatAFrameWasLost) {
    BYTE block[4] = {};
    CommChannel_Open(CommChannel_SerialPort);
    serialAnswer = false;
    EXPECT_FALSE(CommChannel_Write(block, 4));
    EXPECT_FALSE(CommChannel_Read(block, 4));
    serialAnswer = true;
}

TEST(CommChannel, EthernetRefusesToOpen) {
    asked.clear();
    ExpectNoEthernet(FailureOf([] { CommChannel_Open(CommChannel_Ethernet); }));
    EXPECT_EQ(asked, Asked{});
}

TEST(CommChannel, StaysWithEthernetAfterItRefused) {
    BYTE block[4] = {};
    FailureOf([] { CommChannel_Open(CommChannel_Ethernet); });
    asked.clear();
    CommChannel_SetReadTimeout(1000);
    EXPECT_FALSE(CommChannel_Write(block, 4));
    EXPECT_FALSE(CommChannel_Read(block, 4));
    CommChannel_Close();
    EXPECT_EQ(asked, Asked{});
}

TEST(CommChannel, AnUnknownChannelOnlyRefusesToReadAndWrite) {
    BYTE block[4] = {};
    asked.clear();
    CommChannel_Open(static_cast<CommChannelType>(2));
    CommChannel_SetReadTimeout(1000);
    CommChannel_Close();
    ExpectInternalError(FailureOf([&] { CommChannel_Read(block, 4); }), "src/CommChannel.cpp");
    ExpectInternalError(FailureOf([&] { CommChannel_Write(block, 4); }), "src/CommChannel.cpp");
    EXPECT_EQ(asked, Asked{});
}

TEST(CommChannel, CanGoBackToTheSerialPort) {
    FailureOf([] { CommChannel_Open(CommChannel_Ethernet); });
    asked.clear();
    CommChannel_Open(CommChannel_SerialPort);
    CommChannel_Close();
    EXPECT_EQ(asked, (Asked{"open", "close"}));
}

TEST(UDP, OpensNothingAndCarriesNothing) {
    char block[4] = {};
    ExpectNoEthernet(FailureOf([] { UDP_Open(); }));
    UDP_SetReceiveTimeout(1000);
    UDP_LogBlock("PC->ECR", nullptr, 0, 0, 0);
    EXPECT_FALSE(UDP_SendBlock(block, 4));
    EXPECT_FALSE(UDP_ReceiveBlock(block, 4));
    UDP_Close();
}

}  // namespace

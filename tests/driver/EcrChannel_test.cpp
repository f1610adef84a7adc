// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Connecting through the real channel, as far as that goes without a register.
#include "DriverException.h"
#include "tests/support/LinkFixture.h"

TEST(ECR_ConnectToEcr, CannotUseTheEthernet) {
    const Configuration configuration("IpAddress=127.0.0.1\nUdpPort=4000\nComNumber=1\n");
    EXPECT_EQ(CodeAndMessage(FailureOf(ConnectToEcr)), "50 Ethernet support not implemented");
}

TEST(ECR_ConnectToEcr, UsesTheSerialPortWithHalfAnEthernetAddress) {
    for (const char* lines : {"IpAddress=127.0.0.1\n", "UdpPort=4000\n"}) {
        const Configuration configuration(lines);
        EXPECT_EQ(CodeAndMessage(FailureOf(ConnectToEcr)), "3 Serial port number is missing");
    }
}

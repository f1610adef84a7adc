// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Debug logs from shops, replayed: the driver must still say what it said there.
#include "tests/support/Bytes.h"
#include "tests/support/LinkFixture.h"
#include "tests/support/ScriptedWire.h"

namespace {

std::string LogOf(const std::string& name) {
    const std::string log = ReadWholeFile(TEST_LOGS_DIR "/" + name);
    EXPECT_NE(log, "") << name;
    return log;
}

/// Department 1, 1.000 times 2.50.
BUF MilkSale() {
    BUF payload = Bytes({1});
    payload.AddString("MILK              ");
    payload.AddBUF(Bytes({0x00, 0x10, 0x00, 0x00, 0x00, 0x02, 0x50}));
    return payload;
}

}  // namespace

// The register took ten seconds to wake up, and its journal ran out of paper at the tender.
TEST(EcrReplay, EndsWithTheErrorOfTheTender) {
    const Configuration configuration("ComNumber=1\n");
    ExpectLoggedConversation(LogOf("journal-paper-end.log"));
    ConnectToEcr();
    SendCommand(CMD_ENTER_FISCAL_MODE, Bytes({1}), false);
    SendCommand(CMD_DEPT_SALE, MilkSale(), true);
    const auto tender = [] { SendCommand(CMD_TENDER, Bytes({1, 0, 0, 0x05, 0x00}), true); };
    EXPECT_EQ(CodeAndMessage(FailureOf(tender)), "202 Journal paper end");
    EXPECT_EQ(std::string(ECR_Status().subtotal), "2.50");
    SendCommand(CMD_EXIT_FISCAL_MODE, BUF(), false);
    DisconnectFromEcr();
    EXPECT_EQ(RecordedLog().back().message,
              "I/O statistics : OUT frames = 18, IN frames = 17, NAK = 1, LOST = 2");
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The shipped driver from outside. The configuration file, as far as it decides how a run ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/outside/Expectations.h"
#include "tests/support/Shop.h"

using testing::HasSubstr;
using testing::Optional;

TEST(Configuration, WithoutAFileEndsAtTheSerialPort) {
    Shop shop;
    const RunOutcome run = shop.WithoutIniFile().Execute(sale);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run, NothingOfARun());
    EXPECT_EQ(run.stdLog + run.dbgLog, "");
}

TEST(Configuration, WithoutASerialPortNumberTellsSo) {
    Shop shop;
    EXPECT_THAT(shop.WithoutIni("ComNumber").Execute(sale).result,
                Optional(FailedResult(2, "Serial port number is missing", 3)));
}

TEST(Configuration, WithASerialPortThatIsNotThereTellsSo) {
    Shop shop;
    EXPECT_THAT(
        shop.Ini("ComNumber", "99").Execute(sale).result,
        Optional(FailedResult(2, "Unable to open serial port - No such file or directory", 50)));
}

TEST(Configuration, WithAnUnknownCodePageEndsBeforeTheFileIsRead) {
    Shop shop;
    const RunOutcome run = shop.Ini("CodePage", "latin").Execute(badSyntax);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run, NothingOfARun());
    EXPECT_THAT(run.stdLog, HasSubstr("  INI-file contains unknown codepage : 'LATIN'\n"));
}

TEST(Configuration, WithUnknownFramesTellsSo) {
    Shop shop;
    EXPECT_THAT(
        shop.Ini("ProtocolFormatting", "2").Execute(sale).result,
        Optional(FailedResult(2, "INI-file contains unknown protocol formatting : '2'", 3)));
}

TEST(Configuration, ForEthernetTellsThatThereIsNone) {
    Shop shop;
    shop.Ini("IpAddress", "127.0.0.1").Ini("UdpPort", "9");
    EXPECT_THAT(shop.Execute(sale).result,
                Optional(FailedResult(2, "Ethernet support not implemented", 50)));
}

TEST(Configuration, ForEthernetNeedsBothKeys) {
    Shop shop;
    EXPECT_THAT(shop.Ini("IpAddress", "127.0.0.1").Execute(sale).result, Optional(soldResult));
}

TEST(Configuration, IsReadAnewInEveryRun) {
    Shop shop;
    EXPECT_THAT(shop.Execute(sale).result, Optional(soldResult));
    shop.Ini("OldResultFileFormat", "1");
    EXPECT_THAT(shop.Execute(sale).result, Optional(std::string("0\nOK\nReceiptNo: 2")));
}

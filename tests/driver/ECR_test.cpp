// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include <limits>

#include "DriverException.h"
#include "tests/support/BothFamilies.h"
#include "tests/support/LinkFixture.h"

namespace {

constexpr char serialPort[] = "ComNumber=1\n";

/// A conversation in Ocelot frames.
void ExpectOcelot(const std::string& script) {
    ExpectConversation(InFamily(ProtocolFormatting_Ocelot, script));
}

const std::string opened = "open serial\n time-out 4000\n";

/// The statistics line that these counts make, and where it went.
RecordedLine StatisticsLine(const Statistics& counts) {
    framesSend = counts.sent;
    framesReceived = counts.received;
    bsyCount = counts.bsy;
    nakCount = counts.nak;
    lostRespCount = counts.lost;
    garbageCount = counts.garbage;
    RecordedLog().clear();
    LogIoStatistics();
    EXPECT_EQ(RecordedLog().size(), 1u);
    return RecordedLog().at(0);
}

}  // namespace

// Connecting.

TEST(ECR_ConnectToEcr, ReadsTheStatusAndAddsTheJournalFlushTime) {
    const Configuration configuration(serialPort);
    ExpectConversation(R"(
      open serial
      time-out 4000
      PC->ECR: d9 01 d1 09 4c
      PC<-ECR: d9 06 df 42
      PC<-ECR: 02 00 04 00 00 71 00 00 00 17 00 00 00 00 00 02 50 32 ee
      PC->ECR: d9 06 df 42
      PC<-ECR: ff ff 00 02
      PC->ECR: d9 06 df 42
      time-out 10000)");
    ConnectToEcr();
    EXPECT_EQ(cmdTimeoutInMs_Default, 10000);
    EXPECT_EQ(cmdTimeoutInMs_Report, 36000);
    EXPECT_EQ(cmdTimeoutInMs_Tender, 36000);
    ExpectEvents({"Checking for ECR", "------ Reading ECR fiscal status ------",
                  "---------------------------------------"});
}

TEST(ECR_ConnectToEcr, AddsTheFlushTimeOfTheModel) {
    const Configuration configuration(serialPort);
    const std::pair<const char*, int> models[] = {{"00", 10000}, {"01", 4000},  {"02", 10000},
                                                  {"03", 10000}, {"04", 10000}, {"05", 4000},
                                                  {"06", 10000}, {"07", 10000}, {"08", 10000}};
    for (const auto& [code, timeOut] : models) {
        ExpectOcelot(opened + StatusReadOf("00 00", code + StatusBlock("00").substr(2)) +
                     "time-out " + std::to_string(timeOut));
        ConnectToEcr();
        EXPECT_EQ(cmdTimeoutInMs_Default, timeOut) << code;
        EXPECT_EQ(cmdTimeoutInMs_Report, timeOut + 26000) << code;
        EXPECT_EQ(cmdTimeoutInMs_Tender, timeOut + 26000) << code;
    }
}

TEST(ECR_ConnectToEcr, LoadsTheConfiguredTimeOuts) {
    const Configuration configuration(
        "CmdTimeout_Default=1000\nCmdTimeout_Report=2000\nCmdTimeout_Tender=3000\n");
    ExpectOcelot("open serial\n time-out 1000" + StatusRead("00 00", "00") + "time-out 7000");
    ConnectToEcr();
    EXPECT_EQ(cmdTimeoutInMs_Default, 7000);
    EXPECT_EQ(cmdTimeoutInMs_Report, 8000);
    EXPECT_EQ(cmdTimeoutInMs_Tender, 9000);
}

TEST(ECR_ConnectToEcr, WrapsATimeOutAtTheEndOfTheRange) {
    const Configuration configuration("CmdTimeout_Default=2147483647\n");
    ExpectOcelot("open serial\n time-out 2147483647" + StatusRead("00 00", "00") +
                 "time-out -2147477649");
    ConnectToEcr();
    EXPECT_EQ(cmdTimeoutInMs_Default, std::numeric_limits<int>::min() + 5999);
}

TEST(ECR_ConnectToEcr, LoadsEveryProtocolSetting) {
    const Configuration configuration(
        "NetworkID=1\nBsyRetryCount=2\nBsySleepTime=3\nNakRetryCount=4\nNakSleepTime=5\n"
        "GarbageRetryCount=6\nGarbageSleepTime=7\nLostResponseRetryCount=8\n");
    ExpectOcelot(opened + StatusRead("00 00", "00") + "time-out 10000");
    ConnectToEcr();
    EXPECT_EQ(ecrNetworkId, 1);
    EXPECT_EQ(bsyRetryCount, 2);
    EXPECT_EQ(bsySleepTime, 3);
    EXPECT_EQ(nakRetryCount, 4);
    EXPECT_EQ(nakSleepTime, 5);
    EXPECT_EQ(garbageRetryCount, 6);
    EXPECT_EQ(garbageSleepTime, 7);
    EXPECT_EQ(lostRespRetryCount, 8);
}

TEST(ECR_InitializeCommProtocol, ReplacesOldValuesByTheDefaults) {
    const Configuration configuration("");
    for (int* setting :
         {&ecrNetworkId, &bsyRetryCount, &bsySleepTime, &nakRetryCount, &nakSleepTime,
          &garbageRetryCount, &garbageSleepTime, &lostRespRetryCount}) {
        *setting = -1;
    }
    InitializeCommProtocol();
    EXPECT_EQ(ecrNetworkId, 1);
    EXPECT_EQ(bsyRetryCount, 10);
    EXPECT_EQ(bsySleepTime, 2000);
    EXPECT_EQ(nakRetryCount, 3);
    EXPECT_EQ(nakSleepTime, 200);
    EXPECT_EQ(garbageRetryCount, 3);
    EXPECT_EQ(garbageSleepTime, 2500);
    EXPECT_EQ(lostRespRetryCount, 3);
}

TEST(ECR_InitializeCommProtocol, LoadsTheNetworkIdThatRequestsCarry) {
    const Configuration configuration("NetworkID=254\n");
    SelectFormatting(ProtocolFormatting_Ocelot, false);
    InitializeCommProtocol();
    ExpectConversation("PC->ECR: d9 fe d1 f6 62\n PC<-ECR: d9 06 df 42");
    SendDataReadRequest(CMD_READ_FISCAL_STATUS);
}

TEST(ECR_ConnectToEcr, ReadsEverythingAnewEachTime) {
    const Configuration configuration(serialPort);
    const std::string lynx = "05" + StatusBlock("02").substr(2);
    ExpectOcelot(opened + StatusRead("00 00", "00") + "time-out 10000");
    ConnectToEcr();
    outFrameSeqNumber = 7;
    ExpectOcelot(opened + StatusReadOf("00 00", lynx) + "time-out 4000");
    ConnectToEcr();
    EXPECT_EQ(ECR_Settings().ecrType, EcrType_ValkorLynxT);
    EXPECT_EQ(ECR_Status().lastCommandResultCode, 2);
    EXPECT_EQ(cmdTimeoutInMs_Report, 30000);
    EXPECT_EQ(outFrameSeqNumber, 7);  // runs on
}

// The channel.

TEST(ECR_ConnectToEcr, TakesTheEthernetWhenAddressAndPortAreThere) {
    const Configuration configuration("IpAddress=no address\nUdpPort=no port\n");
    ExpectConversation("open ethernet raises 50 Ethernet support not implemented");
    EXPECT_EQ(CodeAndMessage(FailureOf(ConnectToEcr)), "50 Ethernet support not implemented");
    ExpectEvents({});
}

TEST(ECR_ConnectToEcr, DoesNotCompareCheckBytesOnTheEthernet) {
    const Configuration configuration("IpAddress=127.0.0.1\nUdpPort=1\n");
    ExpectConversation(InFamily(ProtocolFormatting_Ocelot, R"(
      open ethernet
      time-out 4000
      PC->ECR: {read d1}
      PC<-ECR: d9 06 00 00
      PC<-ECR: {bad data 00 00 04 00 00 10 00 00 00 00 00 00 00 00 00 00 00}
      PC->ECR: {ack}
      PC<-ECR: ff ff 00 00
      PC->ECR: {ack}
      time-out 10000)"));
    ConnectToEcr();
    EXPECT_EQ(garbageCount, 0);
}

TEST(ECR_ConnectToEcr, TakesTheSerialPortWhenEitherIsMissing) {
    for (const char* lines : {"IpAddress=127.0.0.1\n", "UdpPort=1\n",
                              "IpAddress=127.0.0.1\nUdpPort=\n", "IpAddress=\nUdpPort=1\n"}) {
        const Configuration configuration(lines);
        ExpectConversation("open serial raises 3 Serial port number is missing");
        EXPECT_EQ(CodeAndMessage(FailureOf(ConnectToEcr)), "3 Serial port number is missing")
            << lines;
    }
}

TEST(ECR_ConnectToEcr, ComparesCheckBytesOnTheSerialPort) {
    const Configuration configuration("UdpPort=1\nGarbageRetryCount=0\n");
    ExpectOcelot(opened + R"(
      PC->ECR: {read d1}
      PC<-ECR: {ack}
      PC<-ECR: {bad data 00 00 04 00 00 10 00 00 00 00 00 00 00 00 00 00 00}
      pause 2500
      PC->ECR: {nak}
      )" + StatusRead("00 00", "00") +
                 "time-out 10000");
    ConnectToEcr();
    EXPECT_EQ(garbageCount, 1);
}

// The frame family.

TEST(ECR_ConnectToEcr, SpeaksTheOcelotFamilyWhenConfigured) {
    const Configuration configuration("ProtocolFormatting=0\n");
    ExpectOcelot(opened + StatusRead("00 00", "00") + "time-out 10000");
    ConnectToEcr();
}

TEST(ECR_ConnectToEcr, SpeaksTheMargayFamilyWhenConfigured) {
    const Configuration configuration("ProtocolFormatting=1\n");
    ExpectConversation(
        InFamily(ProtocolFormatting_Margay, opened + StatusRead("00 00", "00") + "time-out 10000"));
    ConnectToEcr();
}

TEST(ECR_ConnectToEcr, RefusesAnUnknownFamilyOnceTheChannelIsOpen) {
    for (const char* number : {"2", "-1", "10"}) {
        const Configuration configuration("ProtocolFormatting=" + std::string(number) + "\n");
        ExpectConversation("open serial");
        EXPECT_EQ(
            CodeAndMessage(FailureOf(ConnectToEcr)),
            "3 INI-file contains unknown protocol formatting : '" + std::string(number) + "'");
    }
    ExpectEvents({});
}

// No register.

TEST(ECR_ConnectToEcr, AsksASilentRegisterOnceAndFails) {
    const Configuration configuration("LostResponseRetryCount=5\n");
    ExpectOcelot(opened + "PC->ECR: {read d1}\n PC<-ECR: lost");
    EXPECT_EQ(CodeAndMessage(FailureOf(ConnectToEcr)), "100 ECR is missing or in OFF state");
    EXPECT_EQ(lostRespRetryCount, 5);
    EXPECT_EQ(cmdTimeoutInMs_Default, 4000);
    EXPECT_EQ(Counted(), (Statistics{.sent = 1, .lost = 2}));
    ExpectEvents(
        {"Checking for ECR", "------ Reading ECR fiscal status ------", "ECR response lost"});
}

TEST(ECR_ConnectToEcr, MissesARegisterThatWasThereBefore) {
    const Configuration configuration(serialPort);
    ecrStatusValid = ecrSettingsValid = true;
    ExpectOcelot(opened + "PC->ECR: {read d1}\n PC<-ECR: lost");
    EXPECT_EQ(CodeAndMessage(FailureOf(ConnectToEcr)), "100 ECR is missing or in OFF state");
}

TEST(ECR_ConnectToEcr, FailsWithTheAnswerOfARegisterThatIsThereButBusy) {
    const Configuration configuration(serialPort);
    ExpectOcelot(opened + "PC->ECR: {read d1}\n PC<-ECR: {bsy}\n" +
                 "PC->ECR: {read d1}\n PC<-ECR: {bsy}");
    EXPECT_EQ(CodeAndMessage(FailureOf(ConnectToEcr)),
              "101 ECR is busy or has incorrect network ID");
}

TEST(ECR_ConnectToEcr, ReadsTheStatusAgainWhenTheFirstAnswerWasGarbage) {
    const Configuration configuration("GarbageRetryCount=0\nProtocolFormatting=0\n");
    ExpectOcelot(opened + R"(
      PC->ECR: {read d1}
      PC<-ECR: {nak}
      )" + StatusRead("00 00", "00") +
                 "time-out 10000");
    ConnectToEcr();
    EXPECT_TRUE(ecrStatusValid);
}

TEST(ECR_ConnectToEcr, RefusesAnUnknownModel) {
    const Configuration configuration(serialPort);
    const std::string unknown = StatusReadOf("00 00", "09" + StatusBlock("00").substr(2));
    ExpectOcelot(opened + unknown + unknown);
    EXPECT_EQ(CodeAndMessage(FailureOf(ConnectToEcr)), "103 Unsupported ECR type");
    EXPECT_EQ(cmdTimeoutInMs_Default, 4000);
}

IN_BOTH_FAMILIES(ECR_EcrExists);

TEST_P(ECR_EcrExists, IsTrueWhenTheStatusWasRead) {
    Expect(StatusRead("00 00", "00"));
    EXPECT_TRUE(EcrExists());
    EXPECT_EQ(lostRespRetryCount, 3);
}

TEST_P(ECR_EcrExists, IsTrueForAnyAnswer) {
    garbageRetryCount = 0;
    const std::string badData = R"(
      PC<-ECR: {bad data 00 00 04 00 00 10 00 00 00 00 00 00 00 00 00 00 00}
      pause 2500
      PC->ECR: {nak})";
    for (const std::string& answer :
         {std::string("{bsy}"), std::string("{nak}"), "{ack}" + badData, "{garbled}" + badData}) {
        Expect("PC->ECR: {read d1}\n PC<-ECR: " + answer);
        EXPECT_TRUE(EcrExists()) << answer;
        EXPECT_EQ(lostRespRetryCount, 3);
        EXPECT_FALSE(ecrStatusValid);
    }
}

TEST_P(ECR_EcrExists, IsTrueForAnUnknownModel) {
    Expect(StatusReadOf("00 00", "09" + StatusBlock("00").substr(2)));
    EXPECT_TRUE(EcrExists());
}

TEST_P(ECR_EcrExists, IsFalseAtTheFirstSilence) {
    Expect("PC->ECR: {read d1}\n PC<-ECR: lost");
    EXPECT_FALSE(EcrExists());
    EXPECT_EQ(lostRespRetryCount, 3);
    EXPECT_EQ(lostRespCount, 2);
}

TEST_P(ECR_EcrExists, IsFalseWhenSilenceFollowsAnAnswer) {
    Expect("PC->ECR: {read d1}\n PC<-ECR: {ack}\n PC<-ECR: lost");
    EXPECT_FALSE(EcrExists());
    EXPECT_EQ(lostRespCount, 1);
}

TEST_P(ECR_EcrExists, IsFalseWhenTheStatusCameButAResponseCouldNotBeSent) {
    Expect(R"(
      PC->ECR: {read d1}
      PC<-ECR: {ack}
      PC<-ECR: {data 00 00 04 00 00 10 00 00 00 00 00 00 00 00 00 00 00}
      PC->ECR: {ack}
      PC<-ECR: {eof}
      PC->ECR: {ack} fails)");
    EXPECT_FALSE(EcrExists());
    EXPECT_TRUE(ecrStatusValid);
}

TEST_P(ECR_EcrExists, ComparesTheLossesWithThoseBefore) {
    lostRespCount = 5;
    Expect(StatusRead("00 00", "00"));
    EXPECT_TRUE(EcrExists());
}

TEST_P(ECR_EcrExists, NeedsNoConversationWhileTheStatusIsValid) {
    ecrStatusValid = true;
    Expect("");
    EXPECT_TRUE(EcrExists());
}

TEST_P(ECR_EcrExists, DiscardsAFailureOfTheChannel) {
    Expect("PC->ECR: {read d1}\n PC<-ECR: raises 50 No line");
    EXPECT_TRUE(EcrExists());
    EXPECT_EQ(lostRespRetryCount, 3);
}

// Time-outs.

TEST(ECR_SetCmdTimeout, SetsTheTimeOutOfTheType) {
    cmdTimeoutInMs_Default = 1;
    cmdTimeoutInMs_Tender = 2;
    cmdTimeoutInMs_Report = 3;
    ExpectConversation("time-out 3\n time-out 2\n time-out 1");
    SetCmdTimeout(CmdType_Report);
    SetCmdTimeout(CmdType_Tender);
    SetCmdTimeout(CmdType_Default);
}

TEST(ECR_SetCmdTimeout, ChangesNothingForAnUnknownType) {
    ExpectConversation("");
    SetCmdTimeout(static_cast<CommandType>(3));
}

TEST(ECR_CommandType, HasItsValues) {
    EXPECT_EQ(CmdType_Default, 0);
    EXPECT_EQ(CmdType_Tender, 1);
    EXPECT_EQ(CmdType_Report, 2);
}

TEST(ECR_CommandTimeouts, AreTheDefaultsBeforeAConnect) {
    ExpectConversation("time-out 4000\n time-out 30000\n time-out 30000");
    SetCmdTimeout(CmdType_Default);
    SetCmdTimeout(CmdType_Tender);
    SetCmdTimeout(CmdType_Report);
}

// Disconnecting.

TEST(ECR_DisconnectFromEcr, ClosesThenLogsThenResetsTheStatistics) {
    framesSend = 12;
    framesReceived = 11;
    lostRespCount = 2;
    outFrameSeqNumber = 3;
    ExpectConversation("close");
    DisconnectFromEcr();
    EXPECT_EQ(RecordedLog(),
              (std::vector<RecordedLine>{
                  {ALL_LOGS, "I/O statistics : OUT frames = 12, IN frames = 11, LOST = 2", true}}));
    EXPECT_EQ(Counted(), Statistics{});
    EXPECT_EQ(outFrameSeqNumber, 3);
}

TEST(ECR_DisconnectFromEcr, KeepsTheStatisticsWhenClosingFails) {
    framesSend = 12;
    ExpectConversation("close raises 50 Failed to close serial port - Input/output error");
    EXPECT_EQ(CodeAndMessage(FailureOf(DisconnectFromEcr)),
              "50 Failed to close serial port - Input/output error");
    EXPECT_EQ(framesSend, 12);
    ExpectEvents({});
}

// Statistics.

TEST(ECR_ResetIoStatistics, ClearsAllSixCounters) {
    framesSend = framesReceived = bsyCount = nakCount = lostRespCount = garbageCount = 9;
    ResetIoStatistics();
    EXPECT_EQ(Counted(), Statistics{});
}

TEST(ECR_LogIoStatistics, ShowsOnlyTheFrameCountsOfAnUntroubledRun) {
    EXPECT_EQ(StatisticsLine({}).message, "I/O statistics : OUT frames = 0, IN frames = 0");
    EXPECT_EQ(StatisticsLine({.sent = 30, .received = 28}).message,
              "I/O statistics : OUT frames = 30, IN frames = 28");
}

TEST(ECR_LogIoStatistics, AppendsEachTroubleThatOccurred) {
    const std::string frames = "I/O statistics : OUT frames = 1, IN frames = 2";
    const Statistics none{.sent = 1, .received = 2};
    Statistics counts = none;
    counts.bsy = 1;
    EXPECT_EQ(StatisticsLine(counts).message, frames + ", BSY = 1");
    counts = none;
    counts.nak = 2;
    EXPECT_EQ(StatisticsLine(counts).message, frames + ", NAK = 2");
    counts = none;
    counts.lost = 3;
    EXPECT_EQ(StatisticsLine(counts).message, frames + ", LOST = 3");
    counts = none;
    counts.garbage = 4;
    EXPECT_EQ(StatisticsLine(counts).message, frames + ", GARB = 4");
}

TEST(ECR_LogIoStatistics, ShowsAllTroublesInTheirOrder) {
    EXPECT_EQ(
        StatisticsLine({1, 2, 3, 4, 5, 6}).message,
        "I/O statistics : OUT frames = 1, IN frames = 2, BSY = 3, NAK = 4, LOST = 5, GARB = 6");
}

TEST(ECR_LogIoStatistics, GoesToBothLogs) {
    const RecordedLine line = StatisticsLine({});
    EXPECT_EQ(line.type, ALL_LOGS);
    EXPECT_TRUE(line.addTime);
}

TEST(ECR_LogIoStatistics, GoesToTheDebugLogOnlyInServerMode) {
    serverMode = true;
    const RecordedLine line = StatisticsLine({});
    EXPECT_EQ(line.type, DBG_LOG);
    EXPECT_TRUE(line.addTime);
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "DriverException.h"
#include "tests/support/BothFamilies.h"
#include "tests/support/LinkFixture.h"

namespace {

BUF Payload(const std::string& bytes) {
    return BUF(bytes);
}

BUF BytesOf(DWORD count) {
    BUF bytes;
    bytes.AddBYTE(0x20, static_cast<WORD>(count));
    return bytes;
}

std::string TextOf(const BUF& buf) {
    std::string text;
    for (DWORD i = 0; i < buf.GetSize(); ++i) text += static_cast<char>(buf[i]);
    return text;
}

std::string Times(int count, const std::string& text) {
    std::string result;
    for (int i = 0; i < count; ++i) result += text;
    return result;
}

std::vector<std::string> Repeated(int count, const std::vector<std::string>& lines) {
    std::vector<std::string> result;
    for (int i = 0; i < count; ++i) result.insert(result.end(), lines.begin(), lines.end());
    return result;
}

const std::string readingStatus = "------ Reading ECR fiscal status ------";
const std::string statusRead = "---------------------------------------";

/// A try at TOTAL with sequence number 1 whose data frame gets this answer.
std::string TotalAnsweredBy(const std::string& answer) {
    return "PC->ECR: {send bb}\nPC<-ECR: {ack}\nPC->ECR: {data 01 00}\nPC<-ECR: " + answer + "\n";
}

/// A status that says nothing about the command with sequence number 1.
const std::string statusOfAnother = StatusRead("00 00", "00");

const std::string delivered = TotalAnsweredBy("{ack}") + "PC->ECR: {eof}\nPC<-ECR: {ack}\n";

std::unique_ptr<DriverException> FailureOfTotal(bool fiscalCommand = true) {
    return FailureOf([=] { SendCommand(CMD_TOTAL, BUF(), fiscalCommand); });
}

void ExpectInternalError(const std::unique_ptr<DriverException>& failure) {
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->ErrorCode, 99);
    EXPECT_TRUE(failure->Message.starts_with("Internal error (file: 'src/EcrExchange.cpp' line: "))
        << failure->Message;
}

}  // namespace

// One frame.

IN_BOTH_FAMILIES(ECR_SendFrame);

TEST_P(ECR_SendFrame, WritesTheFrameAndCountsIt) {
    Expect("PC->ECR: 61 62 63");
    EXPECT_EQ(SendFrame(Payload("abc")), ACK);
    EXPECT_EQ(Counted(), Statistics{.sent = 1});
}

TEST_P(ECR_SendFrame, CountsAFailedWriteAsLost) {
    Expect("PC->ECR: 61 62 63 fails");
    EXPECT_EQ(SendFrame(Payload("abc")), LOST_RESP);
    EXPECT_EQ(Counted(), Statistics{.lost = 1});
}

TEST_P(ECR_SendFrame, WritesUpTo256Bytes) {
    Expect("PC->ECR:" + Times(256, " 20"));
    EXPECT_EQ(SendFrame(BytesOf(256)), ACK);
}

TEST_P(ECR_SendFrame, RefusesALongerFrame) {
    Expect("");
    ExpectInternalError(FailureOf([] { SendFrame(BytesOf(257)); }));
    EXPECT_EQ(Counted(), Statistics{});
}

TEST_P(ECR_SendFrame, LetsAFailureOfTheChannelThrough) {
    Expect("PC->ECR: raises 50 Serial port write error - Input/output error");
    EXPECT_EQ(CodeAndMessage(FailureOf([] { SendFrame(Payload("abc")); })),
              "50 Serial port write error - Input/output error");
    EXPECT_EQ(Counted(), Statistics{});
}

IN_BOTH_FAMILIES(ECR_ReadFrame);

TEST_P(ECR_ReadFrame, ReplacesTheFrameByTheBytesRead) {
    Expect("PC<-ECR: 61 62 63");
    BUF frame = Payload("before");
    EXPECT_EQ(ReadFrame(frame, 3), ACK);
    EXPECT_EQ(TextOf(frame), "abc");
    EXPECT_EQ(Counted(), Statistics{.received = 1});
}

TEST_P(ECR_ReadFrame, CountsSilenceAsLostAndLeavesTheFrame) {
    Expect("PC<-ECR: lost");
    BUF frame = Payload("before");
    EXPECT_EQ(ReadFrame(frame, 3), LOST_RESP);
    EXPECT_EQ(TextOf(frame), "before");
    EXPECT_EQ(Counted(), Statistics{.lost = 1});
}

TEST_P(ECR_ReadFrame, TakesTooFewBytesForSilence) {
    Expect("PC<-ECR: 61 62");
    BUF frame = Payload("before");
    EXPECT_EQ(ReadFrame(frame, 3), LOST_RESP);
    EXPECT_EQ(TextOf(frame), "before");
    EXPECT_EQ(Counted(), Statistics{.lost = 1});
}

TEST_P(ECR_ReadFrame, ReadsUpTo256Bytes) {
    Expect("PC<-ECR:" + Times(256, " 20"));
    BUF frame;
    EXPECT_EQ(ReadFrame(frame, 256), ACK);
    EXPECT_EQ(frame.GetSize(), 256u);
}

TEST_P(ECR_ReadFrame, RefusesALongerFrame) {
    Expect("");
    ExpectInternalError(FailureOf([] {
        BUF frame;
        ReadFrame(frame, 257);
    }));
    EXPECT_EQ(Counted(), Statistics{});
}

TEST_P(ECR_ReadFrame, LetsAFailureOfTheChannelThrough) {
    Expect("PC<-ECR: raises 50 Serial port read error - Input/output error");
    BUF frame;
    EXPECT_EQ(CodeAndMessage(FailureOf([&] { ReadFrame(frame, 3); })),
              "50 Serial port read error - Input/output error");
    EXPECT_EQ(Counted(), Statistics{});
}

IN_BOTH_FAMILIES(ECR_ReadAndParseResponseFrame);

TEST_P(ECR_ReadAndParseResponseFrame, TellsTheFiveResultsApart) {
    Expect(R"(
      PC<-ECR: {ack}
      PC<-ECR: {bsy}
      PC<-ECR: {nak}
      PC<-ECR: {garbled}
      PC<-ECR: {code 07}
      PC<-ECR: lost)");
    EXPECT_EQ(ReadAndParseResponseFrame(), ACK);
    EXPECT_EQ(ReadAndParseResponseFrame(), BSY);
    EXPECT_EQ(ReadAndParseResponseFrame(), NAK);
    EXPECT_EQ(ReadAndParseResponseFrame(), GARBAGE);
    EXPECT_EQ(ReadAndParseResponseFrame(), GARBAGE);
    EXPECT_EQ(ReadAndParseResponseFrame(), LOST_RESP);
    EXPECT_EQ(Counted(), (Statistics{.received = 5, .lost = 1}));
}

IN_BOTH_FAMILIES(ECR_SendFrameAndReadResponse);

TEST_P(ECR_SendFrameAndReadResponse, AnswersWhatTheRegisterAnswered) {
    Expect("PC->ECR: 61 62 63\n PC<-ECR: {bsy}");
    EXPECT_EQ(SendFrameAndReadResponse(Payload("abc")), BSY);
    EXPECT_EQ(Counted(), (Statistics{.sent = 1, .received = 1}));
}

TEST_P(ECR_SendFrameAndReadResponse, ReadsNothingAfterAFailedWrite) {
    Expect("PC->ECR: 61 62 63 fails");
    EXPECT_EQ(SendFrameAndReadResponse(Payload("abc")), LOST_RESP);
    EXPECT_EQ(Counted(), Statistics{.lost = 1});
}

// The request.

IN_BOTH_FAMILIES(ECR_SendRequest);

TEST_P(ECR_SendRequest, EndsWithTheFirstAcknowledgement) {
    Expect("PC->ECR: 61 62 63\n PC<-ECR: {ack}");
    SendRequest(Payload("abc"));
    EXPECT_EQ(Counted(), (Statistics{.sent = 1, .received = 1}));
    ExpectEvents({});
}

TEST_P(ECR_SendRequest, GivesASilentRegisterFourTries) {
    Expect(Times(4, "PC->ECR: 61 62 63\n PC<-ECR: lost\n"));
    EXPECT_EQ(CodeAndMessage(FailureOf([] { SendRequest(Payload("abc")); })),
              "150 ECR response lost");
    // Each loss counts where the frame was read and once more where it is repeated.
    EXPECT_EQ(Counted(), (Statistics{.sent = 4, .lost = 8}));
    ExpectEvents(Repeated(4, {"ECR response lost"}));
}

TEST_P(ECR_SendRequest, CountsAFailedWriteTwiceToo) {
    Expect(Times(4, "PC->ECR: 61 62 63 fails\n"));
    EXPECT_EQ(CodeAndMessage(FailureOf([] { SendRequest(Payload("abc")); })),
              "150 ECR response lost");
    EXPECT_EQ(Counted(), Statistics{.lost = 8});
    ExpectEvents(Repeated(4, {"ECR response lost"}));
}

TEST_P(ECR_SendRequest, ForgivesThreeLostAnswers) {
    Expect(Times(3, "PC->ECR: 61 62 63\n PC<-ECR: lost\n") + "PC->ECR: 61 62 63\n PC<-ECR: {ack}");
    SendRequest(Payload("abc"));
    EXPECT_EQ(Counted(), (Statistics{.sent = 4, .received = 1, .lost = 6}));
    ExpectEvents(Repeated(3, {"ECR response lost"}));
}

TEST_P(ECR_SendRequest, KeepsToTheConfiguredLimit) {
    lostRespRetryCount = 0;
    Expect("PC->ECR: 61 62 63\n PC<-ECR: lost");
    EXPECT_EQ(CodeAndMessage(FailureOf([] { SendRequest(Payload("abc")); })),
              "150 ECR response lost");
}

TEST_P(ECR_SendRequest, WithANegativeLimitFailsEvenWhenAnswered) {
    lostRespRetryCount = -1;
    Expect("PC->ECR: 61 62 63\n PC<-ECR: {ack}");
    EXPECT_EQ(CodeAndMessage(FailureOf([] { SendRequest(Payload("abc")); })),
              "150 ECR response lost");
    EXPECT_EQ(Counted(), (Statistics{.sent = 1, .received = 1}));
}

TEST_P(ECR_SendRequest, CountsTheLossesOfEachRequestAnew) {
    const std::string request =
        Times(3, "PC->ECR: 61 62 63\n PC<-ECR: lost\n") + "PC->ECR: 61 62 63\n PC<-ECR: {ack}\n";
    Expect(request + request);
    SendRequest(Payload("abc"));
    SendRequest(Payload("abc"));
    EXPECT_EQ(lostRespCount, 12);
}

TEST_P(ECR_SendRequest, TakesAGarbledReplyForAcceptance) {
    Expect("PC->ECR: 61 62 63\n PC<-ECR: {garbled}");
    SendRequest(Payload("abc"));
    EXPECT_EQ(Counted(), (Statistics{.sent = 1, .received = 1, .garbage = 1}));
    ExpectEvents({"Garbage received"});
}

TEST_P(ECR_SendRequest, TakesAnUnknownCodeForAcceptance) {
    Expect("PC->ECR: 61 62 63\n PC<-ECR: {code 07}");
    SendRequest(Payload("abc"));
    EXPECT_EQ(Counted(), (Statistics{.sent = 1, .received = 1, .garbage = 1}));
    ExpectEvents({"Garbage received"});
}

TEST_P(ECR_SendRequest, GivesUpABusyRegisterAtOnce) {
    EXPECT_EQ(bsyRetryCount, 10);  // loaded and not used
    Expect("PC->ECR: 61 62 63\n PC<-ECR: {bsy}");
    EXPECT_EQ(CodeAndMessage(FailureOf([] { SendRequest(Payload("abc")); })),
              "101 ECR is busy or has incorrect network ID");
    EXPECT_EQ(Counted(), (Statistics{.sent = 1, .received = 1, .bsy = 1}));
    ExpectEvents({"BSY received"});
}

TEST_P(ECR_SendRequest, GivesUpARefusingRegisterAtOnce) {
    EXPECT_EQ(nakRetryCount, 3);
    Expect("PC->ECR: 61 62 63\n PC<-ECR: {nak}");
    EXPECT_EQ(CodeAndMessage(FailureOf([] { SendRequest(Payload("abc")); })),
              "102 ECR refused the request");
    EXPECT_EQ(Counted(), (Statistics{.sent = 1, .received = 1, .nak = 1}));
    ExpectEvents({"NAK received"});
}

TEST_P(ECR_SendRequest, LooksAtTheAnswerAfterALostOne) {
    Expect(R"(
      PC->ECR: 61 62 63
      PC<-ECR: lost
      PC->ECR: 61 62 63
      PC<-ECR: {bsy})");
    EXPECT_EQ(CodeAndMessage(FailureOf([] { SendRequest(Payload("abc")); })),
              "101 ECR is busy or has incorrect network ID");
    ExpectEvents({"ECR response lost", "BSY received"});
}

IN_BOTH_FAMILIES(ECR_Request);

TEST_P(ECR_Request, NamesTheCommandAndItsDirection) {
    Expect("PC->ECR: {send b3}\n PC<-ECR: {ack}\n PC->ECR: {read d1}\n PC<-ECR: {ack}");
    SendDataSendRequest(CMD_DEPT_SALE);
    SendDataReadRequest(CMD_READ_FISCAL_STATUS);
}

TEST(ECR_RequestOfTheOcelotFamily, CarriesTheLowByteOfTheNetworkId) {
    SelectFormatting(ProtocolFormatting_Ocelot, false);
    ecrNetworkId = 0x1FE;
    ExpectConversation(R"(
      PC->ECR: d0 fe b3 9d e2
      PC<-ECR: d9 06 df 42
      PC->ECR: d9 fe d1 f6 62
      PC<-ECR: d9 06 df 42)");
    SendDataSendRequest(CMD_DEPT_SALE);
    SendDataReadRequest(CMD_READ_FISCAL_STATUS);
}

// The whole command.

TEST(ECR_SendCommandOfTheOcelotFamily, IsThreeFramesEachAnswered) {
    SelectFormatting(ProtocolFormatting_Ocelot, false);
    ExpectConversation(R"(
      PC->ECR: d0 01 b0 61 1e
      PC<-ECR: d9 06 df 42
      PC->ECR: 01 00 01 00 fe
      PC<-ECR: d9 06 df 42
      PC->ECR: ff ff 00 02
      PC<-ECR: d9 06 df 42)");
    SendCommand(CMD_ENTER_FISCAL_MODE, Payload("\x01"), false);
    EXPECT_EQ(Counted(), (Statistics{.sent = 3, .received = 3}));
}

TEST(ECR_SendCommandOfTheMargayFamily, IsThreeFramesEachAnswered) {
    SelectFormatting(ProtocolFormatting_Margay, false);
    ExpectConversation(R"(
      PC->ECR: 02 b0 34 45 03
      PC<-ECR: 06
      PC->ECR: 30 31 30 30 30 31 44 45 0d
      PC<-ECR: 06
      PC->ECR: 44 45 1a
      PC<-ECR: 06)");
    SendCommand(CMD_ENTER_FISCAL_MODE, Payload("\x01"), false);
    EXPECT_EQ(Counted(), (Statistics{.sent = 3, .received = 3}));
}

IN_BOTH_FAMILIES(ECR_SendCommand);

TEST_P(ECR_SendCommand, AdvancesTheSequenceNumberAndMakesTheStatusInvalid) {
    Expect(delivered);
    ecrStatusValid = ecrSettingsValid = true;
    SendCommand(CMD_TOTAL, BUF(), true);
    EXPECT_EQ(outFrameSeqNumber, 2);
    EXPECT_FALSE(ecrStatusValid);
    EXPECT_TRUE(ecrSettingsValid);
    EXPECT_EQ(Counted(), (Statistics{.sent = 3, .received = 3}));
    ExpectEvents({});
}

TEST_P(ECR_SendCommand, PutsTheSequenceNumberBeforeTheParametersLowByteFirst) {
    outFrameSeqNumber = 0x1234;
    Expect(R"(
      PC->ECR: {send b2}
      PC<-ECR: {ack}
      PC->ECR: {data 34 12 4f 4b}
      PC<-ECR: {ack}
      PC->ECR: {eof}
      PC<-ECR: {ack})");
    SendCommand(CMD_PRINT_COMMENT, Payload("OK"), true);
    EXPECT_EQ(outFrameSeqNumber, 0x1235);
}

TEST_P(ECR_SendCommand, NumbersTheCommandAfterFFFEhWithOne) {
    outFrameSeqNumber = 0xFFFD;
    Expect(R"(
      PC->ECR: {send bb}
      PC<-ECR: {ack}
      PC->ECR: {data fd ff}
      PC<-ECR: {ack}
      PC->ECR: {eof}
      PC<-ECR: {ack}
      PC->ECR: {send bb}
      PC<-ECR: {ack}
      PC->ECR: {data fe ff}
      PC<-ECR: {ack}
      PC->ECR: {eof}
      PC<-ECR: {ack}
    )" + delivered);
    SendCommand(CMD_TOTAL, BUF(), true);
    EXPECT_EQ(outFrameSeqNumber, 0xFFFE);
    SendCommand(CMD_TOTAL, BUF(), true);
    EXPECT_EQ(outFrameSeqNumber, 1);
    SendCommand(CMD_TOTAL, BUF(), true);
    EXPECT_EQ(outFrameSeqNumber, 2);
}

TEST_P(ECR_SendCommand, SendsTheDataFrameAfterAGarbledReplyToTheRequest) {
    Expect(R"(
      PC->ECR: {send bb}
      PC<-ECR: {garbled}
      PC->ECR: {data 01 00}
      PC<-ECR: {ack}
      PC->ECR: {eof}
      PC<-ECR: {ack})");
    SendCommand(CMD_TOTAL, BUF(), true);
    EXPECT_EQ(Counted(), (Statistics{.sent = 3, .received = 3, .garbage = 1}));
    ExpectEvents({"Garbage received"});
}

TEST_P(ECR_SendCommand, SendsAsMuchAsAFrameHolds) {
    const DWORD most = IsMargay() ? 124 : 252;
    Expect("PC->ECR: {send b2}\n PC<-ECR: {ack}\n PC->ECR: {data 01 00" +
           Times(static_cast<int>(most), " 20") +
           "}\n PC<-ECR: {ack}\n PC->ECR: {eof}\n PC<-ECR: {ack}");
    SendCommand(CMD_PRINT_COMMENT, BytesOf(most), true);
    EXPECT_EQ(outFrameSeqNumber, 2);
}

TEST_P(ECR_SendCommand, RefusesMoreThanAFrameHolds) {
    const DWORD tooMany = IsMargay() ? 125 : 253;
    Expect("PC->ECR: {send b2}\n PC<-ECR: {ack}");
    ExpectInternalError(FailureOf([=] { SendCommand(CMD_PRINT_COMMENT, BytesOf(tooMany), true); }));
    EXPECT_EQ(outFrameSeqNumber, 1);
}

TEST(ECR_SequenceNumbers, StartWithOneOutAndNoneIn) {
    EXPECT_EQ(outFrameSeqNumber, 1);
    EXPECT_EQ(inFrameSeqNumber, 0);
}

// State.

IN_BOTH_FAMILIES(ECR_SendCommandAndState);

TEST_P(ECR_SendCommandAndState, RaisesTheStateForAFiscalCommand) {
    State = STATE_EXECUTE;
    Expect(delivered);
    SendCommand(CMD_TOTAL, BUF(), true);
    EXPECT_EQ(State, STATE_CMDSENT);
}

TEST_P(ECR_SendCommandAndState, LeavesTheStateForAnother) {
    State = STATE_EXECUTE;
    Expect(delivered);
    SendCommand(CMD_TOTAL, BUF(), false);
    EXPECT_EQ(State, STATE_EXECUTE);
}

TEST_P(ECR_SendCommandAndState, LeavesTheStateWhenTheRequestFails) {
    State = STATE_EXECUTE;
    Expect("PC->ECR: {send bb}\n PC<-ECR: {bsy}");
    EXPECT_EQ(CodeAndMessage(FailureOfTotal()), "101 ECR is busy or has incorrect network ID");
    EXPECT_EQ(State, STATE_EXECUTE);
    EXPECT_EQ(outFrameSeqNumber, 1);
}

TEST_P(ECR_SendCommandAndState, RaisesTheStateBeforeTheDataGoOut) {
    State = STATE_EXECUTE;
    Expect("PC->ECR: {send bb}\n PC<-ECR: {ack}\n PC->ECR: {data 01 00} raises 50 No line");
    EXPECT_EQ(CodeAndMessage(FailureOfTotal()), "50 No line");
    EXPECT_EQ(State, STATE_CMDSENT);
}

TEST_P(ECR_SendCommandAndState, KeepsTheStateThatAnEarlierAttemptRaised) {
    State = STATE_EXECUTE;
    Expect(TotalAnsweredBy("lost") + statusOfAnother + "PC->ECR: {send bb}\n PC<-ECR: {nak}");
    EXPECT_EQ(CodeAndMessage(FailureOfTotal()), "102 ECR refused the request");
    EXPECT_EQ(State, STATE_CMDSENT);
    EXPECT_EQ(outFrameSeqNumber, 1);
}

TEST_P(ECR_SendCommandAndState, LeavesTheStateOfAnotherCommandThatFails) {
    State = STATE_EXECUTE;
    nakRetryCount = 0;
    Expect(TotalAnsweredBy("{nak}") + "pause 200" + statusOfAnother);
    EXPECT_EQ(CodeAndMessage(FailureOfTotal(false)), "151 Send error");
    EXPECT_EQ(State, STATE_EXECUTE);
}

// A data frame that is not acknowledged.

IN_BOTH_FAMILIES(ECR_SendCommandRetries);

TEST_P(ECR_SendCommandRetries, RepeatsRequestAndDataAfterNakWithTheSameSequenceNumber) {
    Expect(TotalAnsweredBy("{nak}") + "pause 200" + statusOfAnother + delivered);
    SendCommand(CMD_TOTAL, BUF(), true);
    EXPECT_EQ(outFrameSeqNumber, 2);
    EXPECT_EQ(Counted(), (Statistics{.sent = 2 + 3 + 3, .received = 2 + 3 + 3, .nak = 1}));
    EXPECT_FALSE(ecrStatusValid);
    ExpectEvents({"NAK received", readingStatus, statusRead});
}

TEST_P(ECR_SendCommandRetries, DoNotPauseAfterALostAnswer) {
    Expect(TotalAnsweredBy("lost") + statusOfAnother + delivered);
    SendCommand(CMD_TOTAL, BUF(), true);
    EXPECT_EQ(outFrameSeqNumber, 2);
    EXPECT_EQ(Counted(), (Statistics{.sent = 2 + 3 + 3, .received = 1 + 3 + 3, .lost = 2}));
    ExpectEvents({"ECR response lost", readingStatus, statusRead});
}

TEST_P(ECR_SendCommandRetries, TakeAFailedWriteForALostAnswer) {
    Expect("PC->ECR: {send bb}\n PC<-ECR: {ack}\n PC->ECR: {data 01 00} fails" + statusOfAnother +
           delivered);
    SendCommand(CMD_TOTAL, BUF(), true);
    EXPECT_EQ(Counted(), (Statistics{.sent = 1 + 3 + 3, .received = 1 + 3 + 3, .lost = 2}));
}

TEST_P(ECR_SendCommandRetries, PauseForTheGarbageTimeAfterAGarbledAnswer) {
    Expect(TotalAnsweredBy("{garbled}") + "pause 2500" + statusOfAnother + delivered);
    SendCommand(CMD_TOTAL, BUF(), true);
    EXPECT_EQ(Counted(), (Statistics{.sent = 2 + 3 + 3, .received = 2 + 3 + 3, .garbage = 1}));
    ExpectEvents({"Garbage received", readingStatus, statusRead});
}

TEST_P(ECR_SendCommandRetries, TakeBsyForGarbage) {
    Expect(TotalAnsweredBy("{bsy}") + "pause 2500" + statusOfAnother + delivered);
    SendCommand(CMD_TOTAL, BUF(), true);
    EXPECT_EQ(Counted(), (Statistics{.sent = 2 + 3 + 3, .received = 2 + 3 + 3, .garbage = 1}));
    ExpectEvents({"Garbage received", readingStatus, statusRead});
}

TEST_P(ECR_SendCommandRetries, PassTheConfiguredPausesOnUnchanged) {
    nakSleepTime = 7;
    garbageSleepTime = 11;
    Expect(TotalAnsweredBy("{nak}") + "pause 7" + statusOfAnother + TotalAnsweredBy("{code 07}") +
           "pause 11" + statusOfAnother + delivered);
    SendCommand(CMD_TOTAL, BUF(), true);
}

TEST_P(ECR_SendCommandRetries, EndWithTheFourthNakAndAStatusRead) {
    Expect(Times(4, TotalAnsweredBy("{nak}") + "pause 200" + statusOfAnother));
    EXPECT_EQ(CodeAndMessage(FailureOfTotal()), "151 Send error");
    EXPECT_EQ(outFrameSeqNumber, 1);
    EXPECT_EQ(nakCount, 4);
    EXPECT_FALSE(cmdError);
    ExpectEvents(Repeated(4, {"NAK received", readingStatus, statusRead}));
}

TEST_P(ECR_SendCommandRetries, EndWithTheFourthLostAnswerAndAStatusRead) {
    Expect(Times(4, TotalAnsweredBy("lost") + statusOfAnother));
    EXPECT_EQ(CodeAndMessage(FailureOfTotal()), "151 Send error");
    EXPECT_EQ(outFrameSeqNumber, 1);
    EXPECT_EQ(lostRespCount, 8);
}

TEST_P(ECR_SendCommandRetries, EndWithTheFourthGarbledAnswerAndAStatusRead) {
    Expect(Times(4, TotalAnsweredBy("{garbled}") + "pause 2500" + statusOfAnother));
    EXPECT_EQ(CodeAndMessage(FailureOfTotal()), "151 Send error");
    EXPECT_EQ(outFrameSeqNumber, 1);
    EXPECT_EQ(garbageCount, 4);
}

TEST_P(ECR_SendCommandRetries, CountEachKindOfTroubleByItself) {
    Expect(Times(3, TotalAnsweredBy("{nak}") + "pause 200" + statusOfAnother +
                        TotalAnsweredBy("lost") + statusOfAnother + TotalAnsweredBy("{garbled}") +
                        "pause 2500" + statusOfAnother) +
           delivered);
    SendCommand(CMD_TOTAL, BUF(), true);
    EXPECT_EQ(outFrameSeqNumber, 2);
    EXPECT_EQ(
        Counted(),
        (Statistics{
            .sent = 9 * 5 + 3, .received = 9 * 5 - 3 + 3, .nak = 3, .lost = 6, .garbage = 3}));
}

TEST_P(ECR_SendCommandRetries, StartAnewWithEveryCommand) {
    const std::string threeNaks =
        Times(3, TotalAnsweredBy("{nak}") + "pause 200" + statusOfAnother);
    Expect(threeNaks + delivered + threeNaks + delivered);
    SendCommand(CMD_TOTAL, BUF(), true);
    outFrameSeqNumber = 1;
    SendCommand(CMD_TOTAL, BUF(), true);
    EXPECT_EQ(nakCount, 6);
}

TEST_P(ECR_SendCommandRetries, KeepToTheLimitOfEachKind) {
    nakRetryCount = 0;
    Expect(TotalAnsweredBy("{nak}") + "pause 200" + statusOfAnother);
    EXPECT_EQ(CodeAndMessage(FailureOfTotal()), "151 Send error");

    nakRetryCount = 3;
    garbageRetryCount = 1;
    Expect(Times(2, TotalAnsweredBy("{garbled}") + "pause 2500" + statusOfAnother));
    EXPECT_EQ(CodeAndMessage(FailureOfTotal()), "151 Send error");

    garbageRetryCount = 3;
    lostRespRetryCount = 2;
    Expect(Times(3, TotalAnsweredBy("lost") + statusOfAnother));
    EXPECT_EQ(CodeAndMessage(FailureOfTotal()), "151 Send error");
}

TEST_P(ECR_SendCommandRetries, TakeANegativeLimitForNoRetry) {
    nakRetryCount = garbageRetryCount = -5;
    Expect(delivered);
    SendCommand(CMD_TOTAL, BUF(), true);
    outFrameSeqNumber = 1;
    Expect(TotalAnsweredBy("lost") + statusOfAnother);
    EXPECT_EQ(CodeAndMessage(FailureOfTotal()), "151 Send error");
}

TEST_P(ECR_SendCommandRetries, EndWithAFailureOfTheStatusRead) {
    Expect(TotalAnsweredBy("{nak}") + "pause 200\n PC->ECR: {read d1}\n PC<-ECR: {bsy}");
    ecrStatusValid = true;
    EXPECT_EQ(CodeAndMessage(FailureOfTotal()), "101 ECR is busy or has incorrect network ID");
    EXPECT_FALSE(ecrStatusValid);
    EXPECT_EQ(outFrameSeqNumber, 1);
}

IN_BOTH_FAMILIES(ECR_SendCommandOnABrokenPort);

TEST_P(ECR_SendCommandOnABrokenPort, LeavesTheStatusToBeReadAnewWhenTheDataFrameCannotBeWritten) {
    ecrStatusValid = true;
    Expect(R"(
      PC->ECR: {send bb}
      PC<-ECR: {ack}
      PC->ECR: {data 01 00} raises 50 Serial port write error)");
    EXPECT_EQ(CodeAndMessage(FailureOfTotal()), "50 Serial port write error");
    EXPECT_FALSE(ecrStatusValid);
    EXPECT_EQ(State, STATE_CMDSENT);
}

TEST_P(ECR_SendCommandOnABrokenPort, LeavesTheStatusToBeReadAnewWhenTheAnswerCannotBeRead) {
    ecrStatusValid = true;
    Expect(TotalAnsweredBy("raises 50 Serial port read error"));
    EXPECT_EQ(CodeAndMessage(FailureOfTotal()), "50 Serial port read error");
    EXPECT_FALSE(ecrStatusValid);
    EXPECT_EQ(State, STATE_CMDSENT);
}

TEST_P(ECR_SendCommandOnABrokenPort, KeepsTheStatusWhenTheRequestCannotBeWritten) {
    ecrStatusValid = true;
    Expect("PC->ECR: {send bb} raises 50 Serial port write error");
    EXPECT_EQ(CodeAndMessage(FailureOfTotal()), "50 Serial port write error");
    EXPECT_TRUE(ecrStatusValid);
}

// What the status says about a data frame that was not acknowledged.

IN_BOTH_FAMILIES(ECR_SendCommandAndStatus);

TEST_P(ECR_SendCommandAndStatus, EndsWithTheRegistersErrorForThisCommand) {
    State = STATE_EXECUTE;
    Expect(TotalAnsweredBy("{nak}") + "pause 200" + StatusRead("01 00", "03"));
    EXPECT_EQ(CodeAndMessage(FailureOfTotal()), "203 Printer error");
    EXPECT_EQ(State, STATE_CMDSENT);
    EXPECT_FALSE(cmdError);
    EXPECT_EQ(outFrameSeqNumber, 1);
    EXPECT_EQ(inFrameSeqNumber, 1);
    EXPECT_TRUE(ecrStatusValid);
}

TEST_P(ECR_SendCommandAndStatus, BlamesTheCommandFileForResultCode50) {
    Expect(TotalAnsweredBy("{nak}") + "pause 200" + StatusRead("01 00", "ff"));
    EXPECT_EQ(CodeAndMessage(FailureOfTotal()), "250 Fiscal command execution error");
    EXPECT_TRUE(cmdError);
}

TEST_P(ECR_SendCommandAndStatus, TakesTheTextOfTheCode) {
    for (const auto& [code, failure] :
         {std::pair("01", "201 Receipt paper end"), std::pair("02", "202 Journal paper end"),
          std::pair("49", "249 Other error"), std::pair("99", "299 Other error")}) {
        Expect(TotalAnsweredBy("lost") + StatusRead("01 00", code));
        EXPECT_EQ(CodeAndMessage(FailureOfTotal()), failure);
    }
    EXPECT_FALSE(cmdError);
}

TEST_P(ECR_SendCommandAndStatus, PrefersTheRegistersErrorToSendError) {
    Expect(Times(3, TotalAnsweredBy("{nak}") + "pause 200" + statusOfAnother) +
           TotalAnsweredBy("{nak}") + "pause 200" + StatusRead("01 00", "02"));
    EXPECT_EQ(CodeAndMessage(FailureOfTotal()), "202 Journal paper end");
}

TEST_P(ECR_SendCommandAndStatus, ComparesBothBytesOfTheSequenceNumber) {
    outFrameSeqNumber = 0x0201;
    Expect(R"(
      PC->ECR: {send bb}
      PC<-ECR: {ack}
      PC->ECR: {data 01 02}
      PC<-ECR: lost)" +
           StatusRead("01 02", "02"));
    EXPECT_EQ(CodeAndMessage(FailureOfTotal()), "202 Journal paper end");
    EXPECT_EQ(inFrameSeqNumber, 0x0201);
}

TEST_P(ECR_SendCommandAndStatus, RepeatsWhenTheCodeBelongsToAnotherCommand) {
    Expect(TotalAnsweredBy("lost") + StatusRead("02 00", "03") + TotalAnsweredBy("lost") +
           StatusRead("00 00", "ff") + TotalAnsweredBy("lost") + StatusRead("01 01", "03") +
           delivered);
    SendCommand(CMD_TOTAL, BUF(), true);
    EXPECT_FALSE(cmdError);
}

TEST_P(ECR_SendCommandAndStatus, RepeatsWhenThisCommandHasNoError) {
    Expect(TotalAnsweredBy("lost") + StatusRead("01 00", "00") + delivered);
    SendCommand(CMD_TOTAL, BUF(), true);
    EXPECT_EQ(outFrameSeqNumber, 2);
}

TEST_P(ECR_SendCommandAndStatus, ReadsTheStatusEvenWhenItWasValid) {
    ecrStatusValid = true;
    ecrStatus.lastCommandResultCode = 3;
    inFrameSeqNumber = 1;
    Expect(TotalAnsweredBy("lost") + statusOfAnother + delivered);
    SendCommand(CMD_TOTAL, BUF(), true);
}

// The end-of-file frame of a command.

IN_BOTH_FAMILIES(ECR_SendEof);

TEST_P(ECR_SendEof, EndsTheCommandWhenAcknowledged) {
    Expect("PC->ECR: {send bb}\n PC<-ECR: {ack}\n PC->ECR: {eof}\n PC<-ECR: {ack}");
    SendDataSendRequest(CMD_TOTAL);
    SendEof();
    ExpectEvents({});
}

TEST_P(ECR_SendEof, FailsAtTheFirstLostAnswer) {
    Expect(TotalAnsweredBy("{ack}") + "PC->ECR: {eof}\n PC<-ECR: lost");
    EXPECT_EQ(CodeAndMessage(FailureOfTotal()), "150 ECR response lost");
    EXPECT_EQ(outFrameSeqNumber, 1);
    // No caller counts this one again.
    EXPECT_EQ(Counted(), (Statistics{.sent = 3, .received = 2, .lost = 1}));
    ExpectEvents({});
}

TEST_P(ECR_SendEof, FailsAtTheFirstFailedWrite) {
    Expect(TotalAnsweredBy("{ack}") + "PC->ECR: {eof} fails");
    EXPECT_EQ(CodeAndMessage(FailureOfTotal()), "150 ECR response lost");
    EXPECT_EQ(Counted(), (Statistics{.sent = 2, .received = 2, .lost = 1}));
}

TEST_P(ECR_SendEof, FailsWithTheStatusToBeReadAnew) {
    for (const char* end : {"PC->ECR: {eof}\n PC<-ECR: lost", "PC->ECR: {eof} fails"}) {
        ecrStatusValid = true;
        Expect(TotalAnsweredBy("{ack}") + end);
        EXPECT_TRUE(FailureOfTotal());
        EXPECT_FALSE(ecrStatusValid);
    }
}

TEST_P(ECR_SendEof, TakesAnyOtherAnswerForTheEndOfTheCommand) {
    for (const char* answer : {"{nak}", "{bsy}", "{garbled}", "{code 07}"}) {
        outFrameSeqNumber = 1;
        ecrStatusValid = true;
        RecordedLog().clear();
        Expect(TotalAnsweredBy("{ack}") + "PC->ECR: {eof}\n PC<-ECR: " + answer);
        SendCommand(CMD_TOTAL, BUF(), true);
        EXPECT_EQ(outFrameSeqNumber, 2);
        EXPECT_FALSE(ecrStatusValid);
        ExpectEvents({"Comunication error"});
    }
    EXPECT_EQ(Counted(), (Statistics{.sent = 12, .received = 12}));
}

// Answers of the driver.

IN_BOTH_FAMILIES(ECR_SendResponse);

TEST_P(ECR_SendResponse, AnswersAckOrNak) {
    Expect("PC->ECR: {ack}\n PC->ECR: {nak}\n PC->ECR: {ack} fails");
    EXPECT_EQ(SendResponse(ACK), ACK);
    EXPECT_EQ(SendResponse(NAK), ACK);
    EXPECT_EQ(SendResponse(ACK), LOST_RESP);
    EXPECT_EQ(Counted(), (Statistics{.sent = 2, .lost = 1}));
}

IN_BOTH_FAMILIES(ECR_ProcessResultAndSendResponse);

TEST_P(ECR_ProcessResultAndSendResponse, AcknowledgesAGoodFrame) {
    Expect("PC->ECR: {ack}");
    ProcessResultAndSendResponse(ACK);
    EXPECT_EQ(Counted(), Statistics{.sent = 1});
    ExpectEvents({});
}

TEST_P(ECR_ProcessResultAndSendResponse, PausesAndThenRefusesGarbage) {
    Expect("pause 2500\n PC->ECR: {nak}");
    ProcessResultAndSendResponse(GARBAGE);
    EXPECT_EQ(Counted(), (Statistics{.sent = 1, .garbage = 1}));
    ExpectEvents({"Garbage recieved"});
}

TEST_P(ECR_ProcessResultAndSendResponse, RefusesAnyOtherResultAtOnce) {
    Expect("PC->ECR: {nak}");
    ProcessResultAndSendResponse(BSY);
    EXPECT_EQ(Counted(), Statistics{.sent = 1});
    ExpectEvents({});
}

TEST_P(ECR_ProcessResultAndSendResponse, AnswersNothingToSilence) {
    Expect("");
    EXPECT_EQ(CodeAndMessage(FailureOf([] { ProcessResultAndSendResponse(LOST_RESP); })),
              "150 ECR response lost");
    EXPECT_EQ(Counted(), Statistics{});
    ExpectEvents({});
}

TEST_P(ECR_ProcessResultAndSendResponse, DoesNotMindAResponseThatCannotBeSent) {
    Expect("PC->ECR: {ack} fails");
    ProcessResultAndSendResponse(ACK);
    EXPECT_EQ(Counted(), Statistics{.lost = 1});
}

// Data of the register.

IN_BOTH_FAMILIES(ECR_ReadData);

TEST_P(ECR_ReadData, ReturnsTheSequenceNumberAndTheBareData) {
    Expect("PC<-ECR: {data 34 12 61 62 63}\n PC->ECR: {ack}");
    BUF data = Payload("before");
    EXPECT_EQ(ReadData(data, 3), 0x1234);
    EXPECT_EQ(TextOf(data), "abc");
    EXPECT_EQ(Counted(), (Statistics{.sent = 1, .received = 1}));
}

TEST_P(ECR_ReadData, AsksForABadFrameAgainAfterAPause) {
    Expect(R"(
      PC<-ECR: {bad data 01 00 61 62 63}
      pause 2500
      PC->ECR: {nak}
      PC<-ECR: {data 01 00 61 62 63}
      PC->ECR: {ack})");
    BUF data;
    EXPECT_EQ(ReadData(data, 3), 1);
    EXPECT_EQ(TextOf(data), "abc");
    EXPECT_EQ(Counted(), (Statistics{.sent = 2, .received = 2, .garbage = 1}));
    ExpectEvents({"Garbage recieved"});
}

TEST_P(ECR_ReadData, FailsWithTheFourthBadFrame) {
    Expect(Times(4, "PC<-ECR: {bad data 01 00 61 62 63}\n pause 2500\n PC->ECR: {nak}\n"));
    BUF data;
    EXPECT_EQ(CodeAndMessage(FailureOf([&] { ReadData(data, 3); })),
              "152 ECR is sending garbage all the time");
    EXPECT_EQ(Counted(), (Statistics{.sent = 4, .received = 4, .garbage = 4}));
    ExpectEvents(Repeated(4, {"Garbage recieved"}));
}

TEST_P(ECR_ReadData, ForgivesThreeBadFrames) {
    Expect(Times(3, "PC<-ECR: {bad data 01 00 61}\n pause 2500\n PC->ECR: {nak}\n") +
           "PC<-ECR: {data 01 00 61}\n PC->ECR: {ack}");
    BUF data;
    EXPECT_EQ(ReadData(data, 1), 1);
}

TEST_P(ECR_ReadData, KeepsToTheConfiguredLimitAndPause) {
    garbageRetryCount = 0;
    garbageSleepTime = 5;
    Expect("PC<-ECR: {bad data 01 00 61}\n pause 5\n PC->ECR: {nak}");
    BUF data;
    EXPECT_EQ(CodeAndMessage(FailureOf([&] { ReadData(data, 1); })),
              "152 ECR is sending garbage all the time");
}

TEST_P(ECR_ReadData, TakesANegativeLimitForNoRetry) {
    garbageRetryCount = -1;
    Expect(R"(
      PC<-ECR: {data 01 00 61}
      PC->ECR: {ack}
      PC<-ECR: {bad data 01 00 61}
      pause 2500
      PC->ECR: {nak})");
    BUF data;
    EXPECT_EQ(ReadData(data, 1), 1);
    EXPECT_EQ(CodeAndMessage(FailureOf([&] { ReadData(data, 1); })),
              "152 ECR is sending garbage all the time");
}

TEST_P(ECR_ReadData, FailsAtTheFirstLostFrame) {
    Expect("PC<-ECR: lost");
    BUF data;
    EXPECT_EQ(CodeAndMessage(FailureOf([&] { ReadData(data, 3); })), "150 ECR response lost");
    EXPECT_EQ(Counted(), Statistics{.lost = 1});
    ExpectEvents({});
}

TEST_P(ECR_ReadData, FailsAtAFrameThatIsCutShort) {
    Expect("PC<-ECR: 61 62");
    BUF data;
    EXPECT_EQ(CodeAndMessage(FailureOf([&] { ReadData(data, 3); })), "150 ECR response lost");
    EXPECT_EQ(Counted(), Statistics{.lost = 1});
}

TEST_P(ECR_ReadData, DoesNotMindAResponseThatCannotBeSent) {
    Expect("PC<-ECR: {data 01 00 61}\n PC->ECR: {ack} fails");
    BUF data;
    EXPECT_EQ(ReadData(data, 1), 1);
    EXPECT_EQ(Counted(), (Statistics{.received = 1, .lost = 1}));
}

TEST_P(ECR_ReadData, ReadsAsMuchAsAFrameHolds) {
    const WORD most = IsMargay() ? 124 : 252;
    Expect("PC<-ECR: {data 01 00" + Times(most, " 61") + "}\n PC->ECR: {ack}");
    BUF data;
    EXPECT_EQ(ReadData(data, most), 1);
    EXPECT_EQ(TextOf(data), std::string(most, 'a'));
}

TEST_P(ECR_ReadData, RefusesMoreThanAFrameHolds) {
    const WORD tooMany = IsMargay() ? 125 : 253;
    Expect("");
    BUF data;
    ExpectInternalError(FailureOf([&] { ReadData(data, tooMany); }));
}

IN_BOTH_FAMILIES(ECR_ReadAndParseDataFrame);

TEST_P(ECR_ReadAndParseDataFrame, LeavesTheDataOfABadOrLostFrame) {
    Expect("PC<-ECR: {bad data 61 62}\n PC<-ECR: lost\n PC<-ECR: {data 61 62}");
    BUF data = Payload("before");
    EXPECT_EQ(ReadAndParseDataFrame(data, 2), GARBAGE);
    EXPECT_EQ(ReadAndParseDataFrame(data, 2), LOST_RESP);
    EXPECT_EQ(TextOf(data), "before");
    EXPECT_EQ(ReadAndParseDataFrame(data, 2), ACK);
    EXPECT_EQ(TextOf(data), "ab");
}

// The end-of-file frame of the register.

IN_BOTH_FAMILIES(ECR_ReadEof);

TEST_P(ECR_ReadEof, AcknowledgesAGoodFrame) {
    Expect("PC<-ECR: {eof}\n PC->ECR: {ack}");
    ReadEof();
    EXPECT_EQ(Counted(), (Statistics{.sent = 1, .received = 1}));
    ExpectEvents({});
}

TEST_P(ECR_ReadEof, AsksForABadFrameAgainAfterAPause) {
    Expect("PC<-ECR: {bad eof}\n pause 2500\n PC->ECR: {nak}\n PC<-ECR: {eof}\n PC->ECR: {ack}");
    ReadEof();
    EXPECT_EQ(Counted(), (Statistics{.sent = 2, .received = 2, .garbage = 1}));
    ExpectEvents({"Garbage recieved"});
}

TEST_P(ECR_ReadEof, FailsWithTheFourthBadFrame) {
    Expect(Times(4, "PC<-ECR: {bad eof}\n pause 2500\n PC->ECR: {nak}\n"));
    EXPECT_EQ(CodeAndMessage(FailureOf(ReadEof)), "152 ECR is sending garbage all the time");
    EXPECT_EQ(Counted(), (Statistics{.sent = 4, .received = 4, .garbage = 4}));
}

TEST_P(ECR_ReadEof, KeepsToTheConfiguredLimit) {
    garbageRetryCount = 1;
    Expect(Times(2, "PC<-ECR: {bad eof}\n pause 2500\n PC->ECR: {nak}\n"));
    EXPECT_EQ(CodeAndMessage(FailureOf(ReadEof)), "152 ECR is sending garbage all the time");
}

TEST_P(ECR_ReadEof, FailsAtTheFirstLostFrame) {
    Expect("PC<-ECR: lost");
    EXPECT_EQ(CodeAndMessage(FailureOf(ReadEof)), "150 ECR response lost");
    EXPECT_EQ(Counted(), Statistics{.lost = 1});
    ExpectEvents({});
}

IN_BOTH_FAMILIES(ECR_ReadAndParseEofFrame);

TEST_P(ECR_ReadAndParseEofFrame, TellsTheThreeResultsApart) {
    Expect("PC<-ECR: {eof}\n PC<-ECR: {bad eof}\n PC<-ECR: lost");
    EXPECT_EQ(ReadAndParseEofFrame(), ACK);
    EXPECT_EQ(ReadAndParseEofFrame(), GARBAGE);
    EXPECT_EQ(ReadAndParseEofFrame(), LOST_RESP);
}

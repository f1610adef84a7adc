// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The emulated register's side of the exchange: which frame gets which answer in which state.
#include <gtest/gtest.h>

#include "emulator/Line.h"
#include "tests/emulator/Peer.h"

using namespace emulator;

namespace {

RegisterConfig ConfigFor(const char* model, std::uint8_t version = 2) {
    RegisterConfig config;
    config.model = FindModel(model, version);
    return config;
}

const Bytes comment = Ascii("GOOD DAY") + Bytes(27, ' ');

// One register on one line, spoken to in either family.
class EachFamily : public testing::TestWithParam<WireFamily> {
  protected:
    Register device{ConfigFor("ocelot")};
    Line line{GetParam(), device};
    Peer peer{line, GetParam()};

    void SetUp() override { ASSERT_TRUE(peer.Do(EnterFiscalMode, {1})); }
    std::size_t Printed() { return device.Paper().Pending().size(); }
};

INSTANTIATE_TEST_SUITE_P(Line, EachFamily, testing::Values(WireFamily::Ocelot, WireFamily::Margay),
                         [](const auto& each) {
                             return each.param == WireFamily::Ocelot ? "Ocelot" : "Margay";
                         });

class OcelotLine : public testing::Test {
  protected:
    Register device{ConfigFor("ocelot")};
    Line line{WireFamily::Ocelot, device};
    Peer peer{line, WireFamily::Ocelot};
};

class MargayLine : public testing::Test {
  protected:
    Register device{ConfigFor("margay")};
    Line line{WireFamily::Margay, device};
    Peer peer{line, WireFamily::Margay};
};

}  // namespace

// --- a command -----------------------------------------------------------------------------------

TEST_P(EachFamily, AcknowledgesRequestDataAndEndOfFile) {
    EXPECT_EQ(line.Feed(peer.RequestFrame(PrintComment)), peer.Ack());
    EXPECT_EQ(line.Feed(peer.DataFrame(2, comment)), peer.Ack());
    EXPECT_EQ(line.Feed(peer.EofFrame()), peer.Ack());
}

TEST_P(EachFamily, ActsWhenTheDataFrameArrives) {
    peer.Say(peer.RequestFrame(PrintComment));
    EXPECT_EQ(Printed(), 0U);
    peer.Say(peer.DataFrame(2, comment));
    EXPECT_EQ(Printed(), 1U);
    peer.Close();
    EXPECT_EQ(Printed(), 1U);
}

TEST_P(EachFamily, TakesAFrameThatArrivesByteByByte) {
    const auto trickle = [&](const Bytes& frame) {
        Bytes reply;
        for (std::size_t i = 0; i < frame.size(); ++i) {
            EXPECT_TRUE(reply.empty());
            reply = line.Feed(View(frame).subspan(i, 1));
        }
        return reply;
    };
    EXPECT_EQ(trickle(peer.RequestFrame(DeptSale)), peer.Ack());
    EXPECT_EQ(trickle(peer.DataFrame(2, saleOf250)), peer.Ack());
    EXPECT_EQ(trickle(peer.EofFrame()), peer.Ack());
    EXPECT_EQ(device.Subtotal(), 250);
}

TEST_P(EachFamily, AnswersARefusedCommandByNakAndNamesItInTheStatus) {
    EXPECT_FALSE(peer.Send(Tender, 0x1234, FromHex("01 00 00 00 00")));
    const Bytes status = peer.ReadStatus();
    EXPECT_EQ(ToHex({status.begin(), status.begin() + 5}), "34 12 04 00 ff");
    EXPECT_FALSE(device.Journal().back().accepted);
    EXPECT_EQ(device.Journal().back().result, 50);
}

TEST_P(EachFamily, NamesTheLastDataFrameInTheStatusWhenItWasAccepted) {
    peer.Send(PrintComment, 0xFFFE, comment);
    const Bytes status = peer.ReadStatus();
    EXPECT_EQ(ToHex({status.begin(), status.begin() + 5}), "fe ff 04 00 00");
}

// --- the same frame again ------------------------------------------------------------------------

TEST_P(EachFamily, AcknowledgesARepeatedDataFrameWithoutActingAgain) {
    EXPECT_TRUE(peer.Send(DeptSale, 2, saleOf250));
    EXPECT_TRUE(peer.Send(DeptSale, 2, saleOf250));
    EXPECT_TRUE(peer.Send(DeptSale, 2, saleOf250));
    peer.Close();
    EXPECT_EQ(device.Subtotal(), 250);
    EXPECT_EQ(device.Journal().size(), 2U);  // entering fiscal mode and one sale
    EXPECT_EQ(line.Counters().repeats, 2);
}

TEST_P(EachFamily, AStatusReadInBetweenDoesNotEndTheCommand) {
    EXPECT_TRUE(peer.Send(DeptSale, 2, saleOf250));
    const Bytes status = peer.ReadStatus();
    EXPECT_EQ(status[0], 2);
    EXPECT_TRUE(peer.Send(DeptSale, 2, saleOf250));
    EXPECT_EQ(device.Subtotal(), 250);
}

TEST_P(EachFamily, AnAnsweredStatusReadLeavesTheEndOfFileOfTheCommandToCome) {
    EXPECT_TRUE(peer.Send(DeptSale, 2, saleOf250));
    peer.ReadStatus();
    EXPECT_TRUE(peer.Send(DeptSale, 2, saleOf250));
    peer.Close();
    EXPECT_TRUE(peer.Send(DeptSale, 2, saleOf250));
    EXPECT_EQ(device.Subtotal(), 500);
}

TEST_P(EachFamily, TheSameFrameAfterItsEndOfFileIsANewCommand) {
    EXPECT_TRUE(peer.Send(DeptSale, 2, saleOf250));
    peer.Close();
    EXPECT_TRUE(peer.Send(DeptSale, 2, saleOf250));
    peer.Close();
    EXPECT_EQ(device.Subtotal(), 500);
}

TEST_P(EachFamily, AnotherPayloadUnderTheSameNumberIsANewCommand) {
    EXPECT_TRUE(peer.Send(DeptSale, 2, saleOf250));
    Bytes other = saleOf250;
    other.back() = 0x60;
    EXPECT_TRUE(peer.Send(DeptSale, 2, other));
    EXPECT_EQ(device.Subtotal(), 510);
}

TEST_P(EachFamily, AnotherCommandUnderTheSameNumberIsANewCommand) {
    EXPECT_TRUE(peer.Send(DeptSale, 2, saleOf250));
    EXPECT_TRUE(peer.Send(DeptReturn, 2, saleOf250));
    EXPECT_EQ(device.Subtotal(), 0);
    EXPECT_EQ(device.Journal().size(), 3U);
}

TEST_P(EachFamily, AnotherNumberIsANewCommand) {
    EXPECT_TRUE(peer.Send(DeptSale, 2, saleOf250));
    EXPECT_TRUE(peer.Send(DeptSale, 3, saleOf250));
    EXPECT_EQ(device.Subtotal(), 500);
}

TEST_P(EachFamily, TheSameFrameAfterARefusedCommandIsANewCommand) {
    EXPECT_TRUE(peer.Send(DeptSale, 2, saleOf250));
    EXPECT_FALSE(peer.Send(ReceivedOnAccount, 3, FromHex("01 00 00 01 00")));
    EXPECT_TRUE(peer.Send(DeptSale, 2, saleOf250));
    EXPECT_EQ(device.Subtotal(), 500);
}

TEST_P(EachFamily, ARepeatedRefusalIsRefusedAgain) {
    const Bytes tender = FromHex("01 00 00 00 00");
    EXPECT_FALSE(peer.Send(Tender, 2, tender));
    EXPECT_FALSE(peer.Send(Tender, 2, tender));
    EXPECT_EQ(device.Journal().size(), 3U);
    EXPECT_EQ(device.LastResult(), 50);
}

TEST_P(EachFamily, LeavingFiscalModeMayReuseTheNumberOfARefusedCommand) {
    EXPECT_FALSE(peer.Send(Tender, 2, FromHex("01 00 00 00 00")));
    EXPECT_TRUE(peer.Send(ExitFiscalMode, 2, {}));
    EXPECT_FALSE(device.InFiscalMode());
    EXPECT_EQ(device.LastResult(), 0);
}

// --- a status read -------------------------------------------------------------------------------

TEST_P(EachFamily, SendsTheStatusRightAfterAcknowledgingItsRequest) {
    const Bytes reply = line.Feed(peer.RequestFrame(ReadFiscalStatus));
    const Bytes block = device.StatusBlock();
    EXPECT_EQ(reply, peer.Ack() + peer.DataFrame(1, block));
}

TEST_P(EachFamily, RepeatsTheStatusFrameOnNak) {
    const Bytes reply = line.Feed(peer.RequestFrame(ReadFiscalStatus));
    const Bytes frame(reply.begin() + static_cast<std::ptrdiff_t>(peer.Ack().size()), reply.end());
    EXPECT_EQ(line.Feed(peer.Nak()), frame);
    EXPECT_EQ(line.Feed(peer.Nak()), frame);
    EXPECT_EQ(frame, peer.DataFrame(1, device.StatusBlock()));
    EXPECT_EQ(line.Feed(peer.Ack()), peer.EofFrame());
}

TEST_P(EachFamily, RepeatsItsEndOfFileFrameOnNak) {
    line.Feed(peer.RequestFrame(ReadFiscalStatus));
    const Bytes eof = line.Feed(peer.Ack());
    EXPECT_FALSE(eof.empty());
    EXPECT_EQ(line.Feed(peer.Nak()), eof);
    EXPECT_TRUE(line.Feed(peer.Ack()).empty());
}

TEST_P(EachFamily, TakesAnUnreadableAnswerForAnAcknowledgement) {
    line.Feed(peer.RequestFrame(ReadFiscalStatus));
    const Bytes eof = peer.Say(FromHex("77"));
    EXPECT_EQ(eof.size(), GetParam() == WireFamily::Margay ? 3U : 4U);
    EXPECT_TRUE(peer.Say(FromHex("77")).empty());
    EXPECT_TRUE(peer.Do(PrintComment, comment));
}

TEST_P(EachFamily, TheLastAnswerOfAStatusReadAndTheNextRequestMayComeTogether) {
    line.Feed(peer.RequestFrame(ReadFiscalStatus));
    line.Feed(peer.Ack());
    EXPECT_EQ(line.Feed(peer.Ack() + peer.RequestFrame(PrintComment)), peer.Ack());
    EXPECT_EQ(line.Feed(peer.DataFrame(2, comment)), peer.Ack());
}

TEST_P(EachFamily, AnUnreadableLastAnswerDoesNotHideTheNextRequest) {
    line.Feed(peer.RequestFrame(ReadFiscalStatus));
    line.Feed(peer.Ack());
    EXPECT_EQ(line.Feed(FromHex("77 77 77") + peer.RequestFrame(PrintComment)), peer.Ack());
}

// --- frames that can not be read -----------------------------------------------------------------

TEST_P(EachFamily, MeetsAnUnreadableRequestWithSilence) {
    Bytes bad = peer.RequestFrame(PrintComment);
    bad[1] ^= 1;
    EXPECT_TRUE(peer.Say(bad).empty());
    EXPECT_EQ(line.Counters().unreadable, 1);
    EXPECT_TRUE(peer.Do(PrintComment, comment));
}

TEST_P(EachFamily, WaitsForTheRestOfARequestUntilTheGap) {
    const Bytes good = peer.RequestFrame(PrintComment);
    EXPECT_TRUE(line.Feed(View(good).first(3)).empty());
    EXPECT_TRUE(line.Pending());
    EXPECT_EQ(line.Feed(View(good).subspan(3)), peer.Ack());
    EXPECT_FALSE(line.Pending());

    EXPECT_TRUE(line.Feed(View(good).first(3)).empty());
    EXPECT_EQ(line.Idle(), peer.Nak());  // the data frame was awaited, and something came
    EXPECT_FALSE(line.Pending());
}

TEST_P(EachFamily, IdleWithoutBytesSaysNothing) {
    EXPECT_TRUE(line.Idle().empty());
    peer.Say(peer.RequestFrame(PrintComment));
    EXPECT_TRUE(line.Idle().empty());
    EXPECT_EQ(line.Counters().unreadable, 0);
}

TEST_P(EachFamily, AnswersADataFrameWithAWrongCheckByteByNakOnceTheLineIsQuiet) {
    peer.Say(peer.RequestFrame(DeptSale));
    for (std::size_t i = 0; i < peer.DataFrame(2, saleOf250).size(); ++i) {
        Bytes bad = peer.DataFrame(2, saleOf250);
        bad[i] ^= 0x01;
        EXPECT_TRUE(line.Feed(bad).empty()) << i;
        EXPECT_EQ(line.Idle(), peer.Nak()) << i;
    }
    EXPECT_EQ(device.Journal().size(), 1U);
    EXPECT_EQ(device.LastSequence(), 1);
    EXPECT_EQ(peer.Say(peer.DataFrame(2, saleOf250)), peer.Ack());
}

TEST_P(EachFamily, AnswersATruncatedDataFrameByNak) {
    const Bytes good = peer.DataFrame(2, saleOf250);
    for (std::size_t size = 1; size < good.size(); ++size) {
        peer.Say(peer.RequestFrame(DeptSale));
        EXPECT_EQ(peer.Say(Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size))),
                  peer.Nak())
            << size;
    }
    EXPECT_FALSE(device.ReceiptInProgress());
}

TEST_P(EachFamily, AnswersADataFrameOfAnotherSizeByNak) {
    peer.Say(peer.RequestFrame(AmountDiscount));
    EXPECT_EQ(peer.Say(peer.DataFrame(2, FromHex("00 00 00 01 00"))), peer.Nak());
    EXPECT_EQ(peer.Say(peer.DataFrame(2, FromHex("00 01 00"))), peer.Nak());
    EXPECT_EQ(device.LastSequence(), 1);
}

TEST_P(EachFamily, AnswersAnUnreadableEndOfFileByNakAndKeepsTheCommandOpen) {
    EXPECT_TRUE(peer.Send(DeptSale, 2, saleOf250));
    Bytes bad = peer.EofFrame();
    bad.back() ^= 0x04;
    EXPECT_EQ(peer.Say(bad), peer.Nak());
    EXPECT_TRUE(peer.Send(DeptSale, 2, saleOf250));
    EXPECT_EQ(device.Subtotal(), 250);
}

TEST_P(EachFamily, TakesAGoodEndOfFileAfterAnUnreadableOne) {
    EXPECT_TRUE(peer.Send(DeptSale, 2, saleOf250));
    EXPECT_EQ(peer.Say(FromHex("77")), peer.Nak());
    peer.Close();
    EXPECT_TRUE(peer.Send(DeptSale, 2, saleOf250));
    EXPECT_EQ(device.Subtotal(), 500);
}

TEST_P(EachFamily, MeetsAnEndOfFileFrameOutsideItsPlaceWithSilence) {
    EXPECT_TRUE(peer.Say(peer.EofFrame()).empty());
    for (std::uint8_t command : {ExitFiscalMode, AmountDiscount, PrintComment}) {
        peer.Say(peer.RequestFrame(command));
        EXPECT_TRUE(peer.Say(peer.EofFrame()).empty());
    }
    EXPECT_TRUE(device.InFiscalMode());
    EXPECT_EQ(device.Journal().size(), 1U);
}

TEST_P(EachFamily, DropsWhatFollowsAFrameThatItAnswersInTheSameCall) {
    EXPECT_EQ(line.Feed(peer.RequestFrame(PrintComment) + FromHex("77 78")), peer.Ack());
    EXPECT_FALSE(line.Pending());
    EXPECT_EQ(line.Feed(peer.DataFrame(2, comment)), peer.Ack());
}

TEST_P(EachFamily, NoiseInFrontOfARequestDoesNotHideIt) {
    EXPECT_EQ(line.Feed(FromHex("00 77") + peer.RequestFrame(PrintComment)), peer.Ack());
}

TEST_P(EachFamily, NoiseInFrontOfADataFrameSpoilsIt) {
    peer.Say(peer.RequestFrame(PrintComment));
    EXPECT_EQ(peer.Say(FromHex("77") + peer.DataFrame(2, comment)), peer.Nak());
    EXPECT_EQ(Printed(), 0U);
}

TEST_F(OcelotLine, NoiseInFrontOfARequestHidesItWhileADataFrameIsAwaited) {
    peer.Say(peer.RequestFrame(PrintComment));
    EXPECT_EQ(peer.Say(FromHex("77") + peer.RequestFrame(ReadFiscalStatus)), peer.Nak());
}

TEST_P(EachFamily, SurvivesAnEndlessBurst) {
    const Bytes noise(100000, 0x55);
    EXPECT_TRUE(line.Feed(noise).empty());
    EXPECT_TRUE(line.Idle().empty());
    EXPECT_TRUE(peer.Do(PrintComment, comment));
}

// --- a new start ---------------------------------------------------------------------------------

TEST_P(EachFamily, TakesANewRequestInEveryState) {
    const Bytes status = peer.Ack() + peer.DataFrame(1, device.StatusBlock());
    for (std::uint8_t awaited : {EnterFiscalMode, ExitFiscalMode, PrintComment, PercentDiscount}) {
        peer.Say(peer.RequestFrame(awaited));  // the data frame is awaited
        EXPECT_EQ(peer.Say(peer.RequestFrame(ReadFiscalStatus)), status);
        EXPECT_EQ(peer.Say(peer.RequestFrame(ReadFiscalStatus)), status);  // an answer is
        EXPECT_FALSE(peer.Say(peer.Ack()).empty());
        EXPECT_EQ(peer.Say(peer.RequestFrame(ReadFiscalStatus)), status);  // the last answer is
    }
    EXPECT_TRUE(peer.Send(PrintComment, 2, comment));  // the end-of-file frame is
    EXPECT_EQ(peer.Say(peer.RequestFrame(PrintComment)), peer.Ack());
}

TEST_P(EachFamily, TakesARepeatedRequestForEveryCommand) {
    for (int code = 0xB0; code <= 0xD5; ++code) {
        const auto command = static_cast<std::uint8_t>(code);
        if (PayloadSize(device.GetModel(), command) == kNotACommand) continue;
        EXPECT_EQ(peer.Say(peer.RequestFrame(command)), peer.Ack()) << code;
        EXPECT_EQ(peer.Say(peer.RequestFrame(command)), peer.Ack()) << code;
    }
    EXPECT_EQ(device.Journal().size(), 1U);
}

// --- which requests are accepted -----------------------------------------------------------------

TEST_P(EachFamily, AnswersARequestForAnUnknownCommandByNak) {
    for (int code = 0; code < 256; ++code) {
        const auto command = static_cast<std::uint8_t>(code);
        const bool known =
            command == ReadFiscalStatus || PayloadSize(device.GetModel(), command) != kNotACommand;
        const Bytes reply = peer.Say(peer.RequestFrame(command));
        EXPECT_EQ(reply == peer.Nak(), !known) << code;
    }
}

TEST_P(EachFamily, AnswersEveryRequestByBusyWhileBusy) {
    device.SetBusy(true);
    EXPECT_EQ(peer.Say(peer.RequestFrame(PrintComment)), peer.Busy());
    EXPECT_EQ(peer.Say(peer.RequestFrame(ReadFiscalStatus)), peer.Busy());
    device.SetBusy(false);
    EXPECT_TRUE(peer.Do(PrintComment, comment));
    EXPECT_EQ(line.Counters().busies, 2);
}

TEST_P(EachFamily, IsDeafAndSilentWhileSwitchedOff) {
    device.PowerOff();
    EXPECT_TRUE(peer.Say(peer.RequestFrame(ReadFiscalStatus)).empty());
    device.PowerOn();
    EXPECT_FALSE(peer.Say(peer.RequestFrame(ReadFiscalStatus)).empty());
}

TEST_P(EachFamily, ForgetsTheLineButNotTheReceiptWhenPowerFails) {
    EXPECT_TRUE(peer.Send(DeptSale, 2, saleOf250));
    peer.Say(peer.RequestFrame(PrintComment));
    line.Feed(FromHex("77"));
    device.PowerOff();
    device.PowerOn();
    EXPECT_TRUE(peer.Say(peer.DataFrame(3, comment)).empty());  // no request came before it
    EXPECT_TRUE(device.ReceiptInProgress());
    EXPECT_TRUE(device.InFiscalMode());
    EXPECT_TRUE(
        peer.Send(DeptSale, 2, saleOf250));  // still the command without its end-of-file frame
    EXPECT_EQ(device.Subtotal(), 250);
}

TEST_P(EachFamily, CountsWhatCameAndWhatWasAnswered) {
    peer.Do(PrintComment, comment);
    peer.Say(peer.RequestFrame(DeptSale));
    peer.Say(FromHex("77"));
    peer.ReadStatus();
    const LineCounters& counters = line.Counters();
    EXPECT_EQ(counters.requests, 4);
    EXPECT_EQ(counters.statusReads, 1);
    EXPECT_EQ(counters.dataFrames, 2);
    EXPECT_EQ(counters.endOfFiles, 2);
    EXPECT_EQ(counters.answers, 2);
    EXPECT_EQ(counters.unreadable, 1);
    EXPECT_EQ(counters.acks, 8);
    EXPECT_EQ(counters.naks, 1);
    EXPECT_EQ(counters.repeats, 0);
}

TEST_P(EachFamily, FiltersSeeAndMayChangeTheTraffic) {
    Bytes seen;
    line.OnReceive([&](Bytes& chunk) { seen = chunk; });
    line.OnSend([](Bytes& reply) { reply.pop_back(); });
    const Bytes request = peer.RequestFrame(PrintComment);
    const Bytes reply = line.Feed(request);
    EXPECT_EQ(seen, request);
    EXPECT_EQ(reply.size(), peer.Ack().size() - 1);
    line.OnReceive([](Bytes& chunk) { chunk.clear(); });
    EXPECT_TRUE(peer.Say(request).empty());
    EXPECT_FALSE(line.Pending());
}

// --- Ocelot only ---------------------------------------------------------------------------------

TEST_F(OcelotLine, SpeaksTheWorkedBytes) {
    EXPECT_EQ(ToHex(line.Feed(FromHex("d0 01 b0 61 1e"))), "d9 06 df 42");
    EXPECT_EQ(ToHex(line.Feed(FromHex("01 00 01 00 fe"))), "d9 06 df 42");
    EXPECT_EQ(ToHex(line.Feed(FromHex("ff ff 00 02"))), "d9 06 df 42");
    // Sequence number 1, code 4, result 0, flags 30h (REG, fiscal mode), no receipt yet.
    EXPECT_EQ(ToHex(line.Feed(FromHex("d9 01 d1 09 4c"))),
              "d9 06 df 42 01 00 04 00 00 30 00 00 00 00 00 00 00 00 00 00 00 35 96");
    EXPECT_EQ(ToHex(line.Feed(FromHex("d9 06 df 42"))), "ff ff 00 02");
    EXPECT_TRUE(line.Feed(FromHex("d9 06 df 42")).empty());
}

TEST_F(OcelotLine, AnswersARequestForAnotherNetworkIdByBusy) {
    Peer stranger(line, WireFamily::Ocelot, 2);
    EXPECT_EQ(stranger.Say(stranger.RequestFrame(ReadFiscalStatus)), stranger.Busy());
    EXPECT_EQ(line.Counters().requests, 0);

    Line second(WireFamily::Ocelot, device, 2);
    EXPECT_NE(second.Feed(stranger.RequestFrame(ReadFiscalStatus)), stranger.Busy());
}

TEST_F(OcelotLine, AnswersARequestInTheWrongDirectionByNak) {
    EXPECT_EQ(peer.Say(MakeWire(WireFamily::Ocelot)->BuildData(FromHex("d9 01 b3"))), peer.Nak());
    EXPECT_EQ(peer.Say(MakeWire(WireFamily::Ocelot)->BuildData(FromHex("d0 01 d1"))), peer.Nak());
}

TEST_F(OcelotLine, TakesARequestInPlaceOfALongerDataFrameOnlyAfterTheGap) {
    peer.Say(peer.RequestFrame(PrintComment));
    EXPECT_TRUE(line.Feed(peer.RequestFrame(ReadFiscalStatus)).empty());
    EXPECT_TRUE(line.Pending());
    EXPECT_EQ(line.Idle().size(), 4U + 19);
}

TEST_F(OcelotLine, TakesARequestInPlaceOfAShortDataFrameAtOnce) {
    for (std::uint8_t awaited : {EnterFiscalMode, ExitFiscalMode}) {
        peer.Say(peer.RequestFrame(awaited));
        EXPECT_EQ(line.Feed(peer.RequestFrame(ReadFiscalStatus)).size(), 4U + 19);
    }
}

TEST_F(OcelotLine, ADataFrameMayBeginWithTheBytesOfARequest) {
    ASSERT_TRUE(peer.Do(EnterFiscalMode, {1}));
    peer.Say(peer.RequestFrame(PrintComment));
    // Sequence number 01d0h and a text that begins with b2h and the two check bytes.
    const Bytes request = peer.RequestFrame(PrintComment);
    Bytes text(35, ' ');
    std::copy(request.begin() + 2, request.end(), text.begin());
    EXPECT_EQ(peer.Say(peer.DataFrame(0x01D0, text)), peer.Ack());
    EXPECT_EQ(device.Journal().back().payload, text);
}

TEST_F(OcelotLine, EntersFiscalModeUnderANumberThatOnlyLooksLikeARequest) {
    peer.Say(peer.RequestFrame(EnterFiscalMode));
    EXPECT_EQ(peer.Say(peer.DataFrame(0x01D0, {1})), peer.Ack());
    EXPECT_TRUE(device.InFiscalMode());
    peer.Say(peer.RequestFrame(EnterFiscalMode));
    EXPECT_EQ(peer.Say(peer.DataFrame(0x05D0, {PrintComment})), peer.Ack());  // network ID 5
    EXPECT_EQ(device.LastSequence(), 0x05D0);
}

TEST_F(OcelotLine, TakesFiveBytesThatCouldBeBothForTheRequest) {
    peer.Say(peer.RequestFrame(EnterFiscalMode));
    EXPECT_EQ(peer.DataFrame(0x01D0, {PrintComment}), peer.RequestFrame(PrintComment));
    EXPECT_EQ(line.Feed(peer.RequestFrame(PrintComment)), peer.Ack());
    EXPECT_FALSE(device.InFiscalMode());
}

TEST_F(OcelotLine, TakesNoDataFrameUnderANumberThatIsNeverUsed) {
    peer.Say(peer.RequestFrame(EnterFiscalMode));
    EXPECT_EQ(peer.Say(peer.DataFrame(0, {1})), peer.Nak());
    EXPECT_EQ(peer.Say(peer.DataFrame(0xFFFF, {1})), peer.Nak());
    EXPECT_FALSE(device.InFiscalMode());
}

// --- Margay only ---------------------------------------------------------------------------------

TEST_F(MargayLine, SpeaksTheWorkedBytes) {
    EXPECT_EQ(ToHex(line.Feed(FromHex("02 b0 34 45 03"))), "06");
    // 0100 01: the letters sum up to 122h, 200 - 122 = de
    EXPECT_EQ(ToHex(line.Feed(Ascii("010001DE\r"))), "06");
    EXPECT_EQ(ToHex(line.Feed(Ascii("DE\x1a"))), "06");
    const Bytes status = line.Feed(FromHex("02 d1 32 44 03"));
    EXPECT_EQ(std::string(status.begin(), status.end()),
              "\x06"
              "0100080000300000000000000000000000"
              "94\r");
    EXPECT_EQ(line.Feed(FromHex("06")), Ascii("94\x1a"));
    EXPECT_TRUE(line.Feed(FromHex("06")).empty());
}

TEST_F(MargayLine, AnswersAnEndOfFileFrameWithAWrongTotalByNak) {
    EXPECT_TRUE(peer.Send(EnterFiscalMode, 1, {1}));
    EXPECT_EQ(peer.Say(Ascii("DD\x1a")), peer.Nak());
    EXPECT_EQ(peer.Say(Ascii("DE\x1a")), peer.Ack());
}

TEST_F(MargayLine, HearsEveryNetworkId) {
    Line other(WireFamily::Margay, device, 9);
    EXPECT_EQ(other.Feed(peer.RequestFrame(EnterFiscalMode)), peer.Ack());
}

TEST_F(MargayLine, TakesARequestInPlaceOfADataFrameAtOnce) {
    peer.Say(peer.RequestFrame(PrintComment));
    EXPECT_EQ(line.Feed(peer.RequestFrame(ReadFiscalStatus)).size(), 1U + 37);
}

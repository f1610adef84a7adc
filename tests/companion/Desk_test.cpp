// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What an emulated register is given from outside: faults, a program, a memory.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "companion/desk/FaultText.h"
#include "companion/desk/Faults.h"
#include "companion/desk/Files.h"
#include "companion/desk/Json.h"
#include "companion/desk/Program.h"
#include "companion/desk/Record.h"
#include "companion/desk/State.h"
#include "emulator/Line.h"
#include "tests/emulator/Peer.h"
#include "tests/support/TempDir.h"

namespace {

using desk::Fault;
using emulator::FrameKind;
using namespace std::chrono_literals;

using Action = Fault::Action;
using Moment = Fault::Moment;

// "3:9 message" of each mistake.
template <typename Reading>
std::vector<std::string> MistakesOf(Reading read) {
    std::vector<std::string> all;
    try {
        read();
    } catch (const desk::Mistakes& mistakes) {
        for (const desk::Mistake& mistake : mistakes.All())
            all.push_back(std::to_string(mistake.line) + ":" + std::to_string(mistake.column) +
                          " " + mistake.message);
    }
    return all;
}

std::string MistakeIn(const std::string& fault) {
    const auto all = MistakesOf([&] { desk::ReadFault(fault); });
    return all.empty() ? "none" : all.front();
}

Fault FaultOf(const std::string& text) {
    return desk::ReadFault(text).value();
}

}  // namespace

// --- the language of faults
// ------------------------------------------------------------------------

TEST(FaultText, HasAPlaceAndAnAction) {
    const Fault fault = FaultOf("at data 3 nak");
    EXPECT_EQ(fault.action, Action::Nak);
    EXPECT_EQ(fault.moment, Moment::At);
    EXPECT_EQ(fault.frame, FrameKind::Data);
    EXPECT_EQ(fault.first, 3);
    EXPECT_EQ(fault.last, 3);
}

TEST(FaultText, TheActionMayComeFirst) {
    Fault turned = FaultOf("nak at data 3");
    turned.text = "at data 3 nak";
    EXPECT_EQ(turned, FaultOf("at data 3 nak"));
}

TEST(FaultText, WithoutANumberItIsTheNextFrame) {
    EXPECT_EQ(FaultOf("at status corrupt").first, 1);
    EXPECT_EQ(FaultOf("at status corrupt").last, 1);
}

TEST(FaultText, ARangeAndEachAreManyFrames) {
    EXPECT_EQ(FaultOf("at response 2-5 lose").first, 2);
    EXPECT_EQ(FaultOf("at response 2-5 lose").last, 5);
    EXPECT_EQ(FaultOf("at response each lose").last, Fault::each);
    EXPECT_EQ(FaultOf("busy 2").last, 2);
    EXPECT_EQ(FaultOf("busy 2 at request 4").last, 5);
}

TEST(FaultText, WithoutAPlaceEachActionHasItsUsualOne) {
    EXPECT_EQ(FaultOf("late 5s").frame, FrameKind::Response);
    EXPECT_EQ(FaultOf("nak").frame, FrameKind::Data);
    EXPECT_EQ(FaultOf("busy").frame, FrameKind::Request);
    EXPECT_EQ(FaultOf("paper out").moment, Moment::Now);
    EXPECT_EQ(FaultOf("power off for 2s").moment, Moment::Now);
    EXPECT_EQ(FaultOf("busy for 2s").moment, Moment::Now);
}

TEST(FaultText, ReadsTimesInThreeUnits) {
    EXPECT_EQ(FaultOf("late 250ms").late, 250ms);
    EXPECT_EQ(FaultOf("late 5s").late, 5s);
    EXPECT_EQ(FaultOf("power off at eof 4 for 1min").recovery, 1min);
}

TEST(FaultText, PaperGoesByLines) {
    const Fault fault = FaultOf("paper out after 5 lines");
    EXPECT_EQ(fault.moment, Moment::AfterLines);
    EXPECT_EQ(fault.last, 5);
}

TEST(FaultText, EmptyLinesAndCommentsAreNoFaults) {
    EXPECT_EQ(desk::ReadFault(" \t\r"), std::nullopt);
    EXPECT_EQ(desk::ReadFault("# at data 3 nak"), std::nullopt);
    EXPECT_EQ(FaultOf("  at \t data  3 nak\r").text, "at data 3 nak");
}

TEST(FaultText, EveryMistakeHasItsPlace) {
    const std::map<std::string, std::string> places = {
        {"dance",
         "1:1 there is no such fault: lose, corrupt, cut, nak, busy, refuse, late, "
         "paper out, power off"},
        {"at dat 3 nak",
         "1:4 a kind of frame is expected: request, data, eof, answer, response, "
         "status, status-eof"},
        {"at data 0 nak", "1:9 a number from 1 to 1000000 is expected"},
        {"at data 3x nak", "1:9 a number from 1 to 1000000 is expected"},
        {"at data 5-3 nak", "1:9 a range as 3-5 is expected"},
        {"at data 3",
         "1:10 a fault is expected: lose, corrupt, cut, nak, busy, refuse, late, "
         "paper out, power off"},
        {"at answer nak", "1:1 nak happens to one of: request, data, eof"},
        {"busy at data 2", "1:6 busy happens to one of: request"},
        {"late 5", "1:6 a time from 1ms to 60min is expected, as 250ms, 5s or 1min"},
        {"late 61min", "1:6 a time from 1ms to 60min is expected, as 250ms, 5s or 1min"},
        {"late 99999999999999999999s",
         "1:6 a time from 1ms to 60min is expected, as 250ms, 5s or 1min"},
        {"late", "1:5 a time from 1ms to 60min is expected, as 250ms, 5s or 1min"},
        {"paper in", "1:7 'out' is expected"},
        {"paper out after 5", "1:18 'lines' is expected"},
        {"lose after 5 lines", "1:6 only paper out goes by lines"},
        {"lose after data 2", "1:6 only paper out and power off come after a frame"},
        {"power off after status",
         "1:11 'after' goes with what the register gets: request, data, eof, answer"},
        {"at data 1 nak for 3s", "1:15 'for' belongs to busy, paper out and power off"},
        {"busy 2 for 3s", "1:8 busy has a number or a time"},
        {"busy 2 at request 1-2", "1:8 busy has a number or a range"},
        {"at data 1 nak nak", "1:15 nothing more is expected here"},
        {"at data 1 nak at data 2", "1:15 a fault has one place"},
        {"refuse 100", "1:8 a number from 1 to 99 is expected"},
    };
    for (const auto& row : places) EXPECT_EQ(MistakeIn(row.first), row.second) << row.first;
}

TEST(FaultText, OfAFileAllMistakesAreTold) {
    EXPECT_THAT(MistakesOf([] { desk::ReadFaults("nak\n\nat x nak\nlate 5s\n  dance"); }),
                testing::ElementsAre(testing::StartsWith("3:4 "), testing::StartsWith("5:3 ")));
    EXPECT_EQ(desk::ReadFaults("# two\nnak\nlate 5s\n").size(), 2U);
}

// --- what they do
// ----------------------------------------------------------------------------------

namespace {

struct FaultyLine : testing::Test {
    emulator::RegisterConfig Config() {
        emulator::RegisterConfig config;
        config.model = emulator::FindModel("ocelot", 2);
        return config;
    }
    void Order(const std::string& fault) { faults.Add(FaultOf(fault)); }
    std::string Say(const emulator::Bytes& frame) { return ToHex(peer.Say(frame)); }
    std::string Ask() { return Say(peer.RequestFrame(emulator::PrintComment)); }
    void Enter() { ASSERT_TRUE(peer.Do(emulator::EnterFiscalMode, {1})); }
    std::string SayComment(std::uint16_t number) { return Say(peer.DataFrame(number, comment)); }
    std::string AskStatus() { return Say(peer.RequestFrame(emulator::ReadFiscalStatus)); }
    // "data lost" of each frame that it is told of from now on.
    void Listen() {
        faults.OnFrame([this](FrameKind kind, emulator::View, emulator::Fate fate) {
            constexpr const char* kinds[] = {"request",    "data",     "eof",    "answer",
                                             "unreadable", "response", "status", "status-eof"};
            constexpr const char* words[] = {"passed", "lost", "corrupted", "cut", "nak", "busy"};
            fates.push_back(std::string(kinds[static_cast<int>(kind)]) + " " +
                            words[static_cast<int>(fate)]);
        });
    }

    std::vector<std::string> fates, told;
    emulator::Register device{Config()};
    emulator::Line line{emulator::WireFamily::Ocelot, device};
    Peer peer{line, emulator::WireFamily::Ocelot};
    std::chrono::milliseconds waited{0};
    std::function<void()> later;
    desk::Faults faults{device, [this](std::chrono::milliseconds wait, std::function<void()> act) {
                            waited = wait;
                            later = std::move(act);
                        }};
    const emulator::Bytes comment = Ascii("GOOD DAY") + emulator::Bytes(27, ' ');
    const std::string ack = ToHex(peer.Ack()), nak = ToHex(peer.Nak()), busy = ToHex(peer.Busy());

    FaultyLine() {
        line.Attach(&faults);
        faults.OnFault([this](const std::string& text) { told.push_back(text); });
        device.Paper().OnLine([this](const std::string&) { faults.LinePrinted(); });
    }
};

}  // namespace

TEST_F(FaultyLine, ALostResponseIsSilenceAfterTheRegisterHasActed) {
    Enter();
    Order("at response 2 lose");
    EXPECT_EQ(Ask(), ack);
    EXPECT_EQ(Say(peer.DataFrame(2, comment)), "");
    EXPECT_EQ(device.Paper().Pending().size(), 1U);
    EXPECT_EQ(Say(peer.EofFrame()), ack);
}

TEST_F(FaultyLine, ALostDataFrameIsNotActedOnAndStillAwaited) {
    Enter();
    Order("at data lose");
    EXPECT_EQ(Ask(), ack);
    EXPECT_EQ(Say(peer.DataFrame(2, comment)), "");
    EXPECT_EQ(device.Paper().Pending().size(), 0U);
    EXPECT_EQ(Say(peer.DataFrame(2, comment)), ack);
}

TEST_F(FaultyLine, ANakOfADataFrameActsOnNothing) {
    Enter();
    Order("at data 2 nak");
    ASSERT_TRUE(peer.Do(emulator::PrintComment, comment));
    EXPECT_EQ(Ask(), ack);
    EXPECT_EQ(Say(peer.DataFrame(9, comment)), nak);
    EXPECT_EQ(device.Paper().Pending().size(), 1U);
    EXPECT_EQ(device.LastResult(), emulator::result::Ok);
}

TEST_F(FaultyLine, ARefusalIsOneOfTheRegister) {
    Enter();
    Order("at data refuse 3");
    EXPECT_FALSE(peer.Send(emulator::PrintComment, 2, comment));
    EXPECT_EQ(device.LastResult(), emulator::result::PrinterError);
    EXPECT_TRUE(peer.Do(emulator::PrintComment, comment));
}

TEST_F(FaultyLine, ARefusalOfARepetitionIsNotForTheNextCommand) {
    Enter();
    EXPECT_TRUE(peer.Send(emulator::PrintComment, 2, comment));
    Order("refuse");
    EXPECT_TRUE(peer.Send(emulator::PrintComment, 2, comment));
    EXPECT_THAT(told, testing::IsEmpty());
    EXPECT_THAT(faults.NeverHappened(), testing::ElementsAre("refuse"));
    peer.Close();
    EXPECT_TRUE(peer.Send(emulator::PrintComment, 3, comment));
}

TEST_F(FaultyLine, ACorruptedFrameToTheRegisterCannotBeRead) {
    Enter();
    Order("at data corrupt");
    EXPECT_EQ(Ask(), ack);
    EXPECT_EQ(Say(peer.DataFrame(2, comment)), nak);
    EXPECT_EQ(line.Counters().unreadable, 1);
}

TEST_F(FaultyLine, ACutFrameArrivesByHalf) {
    Order("at request cut");
    EXPECT_EQ(Ask(), "");
    EXPECT_EQ(line.Counters().unreadable, 1);
    Order("at response cut");
    EXPECT_EQ(Ask(), ack.substr(0, 5));
}

TEST_F(FaultyLine, ACorruptedStatusLeavesTheAcknowledgementAlone) {
    Order("at status corrupt");
    const emulator::Bytes spoilt = peer.Say(peer.RequestFrame(emulator::ReadFiscalStatus));
    const emulator::Bytes good = peer.Say(peer.Nak());
    ASSERT_EQ(spoilt.size(), good.size() + 4);
    EXPECT_EQ(ToHex({spoilt.begin(), spoilt.begin() + 4}), ack);
    EXPECT_EQ(spoilt.back() ^ 1, good.back());
}

TEST_F(FaultyLine, BusyIsForThatManyRequests) {
    Order("busy 2");
    EXPECT_EQ(Ask(), busy);
    EXPECT_EQ(Ask(), busy);
    EXPECT_EQ(Ask(), ack);
    EXPECT_TRUE(faults.Waiting().empty());
}

TEST_F(FaultyLine, BusyForATimeEndsWithIt) {
    Order("busy for 3s");
    EXPECT_EQ(Ask(), busy);
    EXPECT_EQ(waited, 3s);
    later();
    EXPECT_EQ(Ask(), ack);
}

TEST_F(FaultyLine, LateTellsHowLateOnce) {
    Order("late 5s");
    Ask();
    EXPECT_EQ(line.Delay(), 5s);
    Ask();
    EXPECT_EQ(line.Delay(), 0s);
}

TEST_F(FaultyLine, PowerThatFailsAtAFrameLosesIt) {
    Enter();
    Order("power off at data 1 for 3s");
    EXPECT_EQ(Ask(), ack);
    EXPECT_EQ(Say(peer.DataFrame(2, comment)), "");
    EXPECT_EQ(Ask(), "");
    EXPECT_EQ(device.Paper().Pending().size(), 0U);
    EXPECT_EQ(waited, 3s);
    later();
    EXPECT_EQ(Ask(), ack);
}

TEST_F(FaultyLine, PowerThatFailsAfterAFrameLosesItsAnswer) {
    Enter();
    Order("power off after data 1");
    EXPECT_EQ(Ask(), ack);
    EXPECT_EQ(Say(peer.DataFrame(2, comment)), "");
    EXPECT_EQ(device.Paper().Pending().size(), 1U);
    EXPECT_FALSE(device.Powered());
}

TEST_F(FaultyLine, AFrameThatPowerFailsAtIsToldAsLost) {
    for (const char* frame : {"request", "response"}) {
        fates.clear();
        Listen();
        Order("power off at " + std::string(frame) + " for 1s");
        EXPECT_EQ(Ask(), "");
        EXPECT_EQ(fates.back(), std::string(frame) + " lost");
        later();
    }
    EXPECT_THAT(fates, testing::ElementsAre("request passed", "response lost"));
}

TEST_F(FaultyLine, PowerThatFailsAtTheStatusLeavesItsAcknowledgement) {
    Listen();
    Order("power off at status");
    EXPECT_EQ(AskStatus(), ack);
    EXPECT_THAT(fates, testing::ElementsAre("request passed", "response passed", "status lost"));
}

TEST_F(FaultyLine, AnAnswerThatPowerCutsOffIsNeitherToldNorCounted) {
    Enter();
    for (const char* after : {"request", "data", "eof"}) {
        fates.clear();
        Listen();
        faults.Clear();
        Order("power off after " + std::string(after) + " for 1s");
        const std::string frames[] = {Ask(), SayComment(peer.sequence_++), Say(peer.EofFrame())};
        EXPECT_THAT(frames, testing::Contains("")) << after;
        EXPECT_EQ(fates.back(), std::string(after) + " passed");
        later();
        Order("at response 1 lose");
        EXPECT_EQ(Ask(), "") << after;
    }
}

TEST_F(FaultyLine, PowerThatFailsAfterTheRequestOfAStatusSendsNoStatus) {
    Listen();
    Order("power off after request for 1s");
    Order("at response corrupt");
    Order("at status corrupt");
    EXPECT_EQ(AskStatus(), "");
    EXPECT_THAT(fates, testing::ElementsAre("request passed"));
    later();
    EXPECT_NE(AskStatus(), "");
    EXPECT_THAT(fates, testing::ElementsAre("request passed", "request passed",
                                            "response corrupted", "status corrupted"));
}

TEST_F(FaultyLine, PowerThatFailsAfterAnEndOfFileLeavesACommandThatIsClosed) {
    Enter();
    EXPECT_TRUE(peer.Send(emulator::PrintComment, 2, comment));
    Order("power off after eof for 1s");
    EXPECT_EQ(Say(peer.EofFrame()), "");
    later();
    EXPECT_FALSE(device.Open());
}

TEST_F(FaultyLine, PowerThatFailsAfterAnAnswerLosesTheFrameThatFollows) {
    Order("power off after answer for 1s");
    AskStatus();
    EXPECT_EQ(Say(peer.Ack()), "");
    EXPECT_FALSE(device.Powered());
    later();
    AskStatus();
    EXPECT_EQ(Say(peer.Ack()), ToHex(FromHex("ff ff 00 02")));
}

TEST_F(FaultyLine, ALostAnswerLeavesTheRegisterWaitingForIt) {
    Order("at answer 2 lose");
    AskStatus();
    EXPECT_EQ(Say(peer.Ack()), ToHex(FromHex("ff ff 00 02")));
    EXPECT_EQ(Say(peer.Ack()), "");
    EXPECT_EQ(Say(peer.Nak()), ToHex(FromHex("ff ff 00 02")));
}

TEST_F(FaultyLine, ASpoiltAnswerIsTakenForAnAcknowledgement) {
    Order("at answer corrupt");
    AskStatus();
    EXPECT_EQ(Say(peer.Nak()), ToHex(FromHex("ff ff 00 02")));
}

TEST_F(FaultyLine, TheEndOfFileOfAStatusCanBeSpoiltAndAskedForAgain) {
    Order("at status-eof corrupt");
    AskStatus();
    EXPECT_EQ(Say(peer.Ack()), ToHex(FromHex("ff ff 00 03")));
    EXPECT_EQ(Say(peer.Nak()), ToHex(FromHex("ff ff 00 02")));
}

TEST_F(FaultyLine, AnAnswerThatIsNeverSentIsToldAsLost) {
    Listen();
    line.Feed(peer.RequestFrame(emulator::PrintComment));
    EXPECT_THAT(fates, testing::ElementsAre("request passed"));
    line.Unsent();
    EXPECT_THAT(fates, testing::ElementsAre("request passed", "response lost"));
}

TEST_F(FaultyLine, NewPaperComesAfterTheTime) {
    Enter();
    Order("paper out for 2s");
    EXPECT_EQ(waited, 2s);
    EXPECT_FALSE(peer.Do(emulator::PrintComment, comment));
    later();
    EXPECT_TRUE(peer.Do(emulator::PrintComment, comment));
}

// --- several at one frame ------------------------------------------------------------------------

TEST_F(FaultyLine, OfSeveralAtOneFrameTheFirstOrderedDecides) {
    Order("at request nak");
    Order("at request busy");
    EXPECT_EQ(Ask(), nak);
    EXPECT_EQ(Ask(), ack);
}

TEST_F(FaultyLine, ARefusalOfAFrameThatIsLostIsNotForALaterOne) {
    for (const char* first : {"at data lose", "at data nak", "at data corrupt"}) {
        faults.Clear();
        device.PowerOff();
        device.PowerOn();
        Enter();
        Order(first);
        Order("at data refuse");
        EXPECT_EQ(Ask(), ack);
        EXPECT_NE(SayComment(7), ack);
        EXPECT_THAT(faults.NeverHappened(), testing::ElementsAre("at data refuse")) << first;
        EXPECT_TRUE(faults.Waiting().empty());
        EXPECT_EQ(SayComment(7), ack) << first;
        peer.Close();
    }
}

TEST_F(FaultyLine, ARefusalThatWasOrderedFirstLetsTheFrameArrive) {
    Enter();
    Order("at data refuse 3");
    Order("at data lose");
    Order("power off at data");
    EXPECT_FALSE(peer.Send(emulator::PrintComment, 2, comment));
    EXPECT_EQ(device.LastResult(), emulator::result::PrinterError);
    EXPECT_TRUE(peer.Do(emulator::PrintComment, comment));
    EXPECT_TRUE(device.Powered());
    EXPECT_THAT(faults.NeverHappened(), testing::ElementsAre("at data lose", "power off at data"));
}

TEST_F(FaultyLine, ADelayOfAnAnswerThatIsLostIsNotForALaterOne) {
    Order("at request late 5s");
    Order("at request lose");
    EXPECT_EQ(Ask(), "");
    EXPECT_EQ(Ask(), ack);
    EXPECT_EQ(line.Delay(), 0s);
    Order("at response late 5s");
    Order("at response lose");
    EXPECT_EQ(Ask(), "");
    EXPECT_EQ(Ask(), ack);
    EXPECT_EQ(line.Delay(), 0s);
}

TEST_F(FaultyLine, ADelayWithoutAnAnswerNeverHappened) {
    Enter();
    Order("at data late 2s");
    Order("at data lose");
    EXPECT_EQ(Ask(), ack);
    EXPECT_EQ(SayComment(2), "");
    EXPECT_THAT(told, testing::ElementsAre("at data lose"));
    EXPECT_THAT(faults.NeverHappened(), testing::ElementsAre("at data late 2s"));
    EXPECT_TRUE(faults.Waiting().empty());
    EXPECT_EQ(Say({1, 2, 3}), nak);  // which is not the answer to that frame
    EXPECT_EQ(line.Delay(), 0s);
    EXPECT_THAT(told, testing::ElementsAre("at data lose"));
}

TEST_F(FaultyLine, ADelayOfTheAnswerToASpoiltFrameHappens) {
    Enter();
    Order("at data late 2s");
    Order("at data corrupt");
    EXPECT_EQ(Ask(), ack);
    EXPECT_EQ(SayComment(2), nak);
    EXPECT_EQ(line.Delay(), 2s);
    EXPECT_THAT(told, testing::ElementsAre("at data corrupt", "at data late 2s"));
    EXPECT_TRUE(faults.NeverHappened().empty());
}

TEST_F(FaultyLine, ADelayHasHappenedOnceAnAnswerWasLate) {
    Order("at response 1-2 late 2s");
    Order("at response lose");
    EXPECT_EQ(Ask(), "");
    EXPECT_THAT(faults.NeverHappened(), testing::ElementsAre("at response 1-2 late 2s"));
    EXPECT_EQ(Ask(), ack);
    EXPECT_EQ(line.Delay(), 2s);
    EXPECT_TRUE(faults.NeverHappened().empty());
}

TEST_F(FaultyLine, OneThatHasHappenedToOneOfItsFramesHasHappened) {
    Order("at request 1-3 busy");
    Order("at eof each nak");
    Order("at response each late 1s");
    EXPECT_EQ(Ask(), busy);
    EXPECT_THAT(faults.NeverHappened(), testing::ElementsAre("at eof each nak"));
    EXPECT_EQ(faults.Waiting().size(), 3U);
}

TEST_F(FaultyLine, PaperEndsAfterThatManyLines) {
    Enter();
    Order("paper out after 2 lines");
    EXPECT_TRUE(peer.Do(emulator::PrintComment, comment));
    EXPECT_TRUE(peer.Do(emulator::PrintComment, comment));
    EXPECT_FALSE(peer.Do(emulator::PrintComment, comment));
    EXPECT_EQ(device.LastResult(), emulator::result::ReceiptPaperEnd);
}

TEST_F(FaultyLine, NumbersCountFromTheOrder) {
    Ask();
    Order("at request 2 busy");
    EXPECT_EQ(Ask(), ack);
    EXPECT_EQ(Ask(), busy);
}

TEST_F(FaultyLine, TellsWhatHappensAndWhatStillWaits) {
    Order("at request 2 busy");
    Order("at eof each nak");
    EXPECT_THAT(faults.Waiting(), testing::ElementsAre("at request 2 busy", "at eof each nak"));
    Ask();
    Ask();
    EXPECT_THAT(told, testing::ElementsAre("at request 2 busy"));
    EXPECT_THAT(faults.Waiting(), testing::ElementsAre("at eof each nak"));
    faults.Clear();
    EXPECT_TRUE(faults.Waiting().empty());
}

TEST_F(FaultyLine, ShowsEachFrameWithItsFate) {
    std::vector<std::string> seen;
    faults.OnFrame([&](FrameKind kind, emulator::View frame, emulator::Fate fate) {
        seen.push_back(std::to_string(static_cast<int>(kind)) + " " +
                       std::to_string(static_cast<int>(fate)) + " " +
                       ToHex({frame.begin(), frame.end()}));
    });
    Order("busy");
    Ask();
    EXPECT_THAT(seen, testing::ElementsAre("0 5 d0 01 b2 63 1a", "5 0 " + busy));
}

TEST_F(FaultyLine, InMargayFramesTheyMeanTheSame) {
    emulator::Line letters{emulator::WireFamily::Margay, device};
    letters.Attach(&faults);
    Peer other(letters, emulator::WireFamily::Margay);
    Order("busy");
    Order("at response 2 corrupt");
    EXPECT_EQ(ToHex(other.Say(other.RequestFrame(emulator::PrintComment))), "1b");
    EXPECT_EQ(ToHex(other.Say(other.RequestFrame(emulator::PrintComment))), "07");
}

// --- JSON with places
// --------------------------------------------------------------------------------

TEST(DeskJson, EveryMistakeHasItsPlace) {
    const std::map<std::string, std::string> places = {
        {"", "1:1 a value is expected"},
        {"{\n  \"a\": 1,\n  b\n}", "3:3 a name in quotes is expected"},
        {"[1 2]", "1:4 ',' or ']' is expected"},
        {"{\"a\" 1}", "1:6 ':' is expected"},
        {"[01]", "1:3 a number does not begin with 0"},
        {"[1.]", "1:4 a digit is expected"},
        {"\"ab", "1:1 the text has no end"},
        {"[\"a\\x\"]", "1:5 no such escape"},
        {"\"\\ud800\"", "1:8 half a character"},
        {"\"\xff\"", "1:2 not UTF-8"},
        {"{} x", "1:4 nothing more is expected here"},
        {"nul", "1:1 a value is expected"},
        {std::string(40, '['), "1:18 too many brackets within each other"},
    };
    for (const auto& row : places)
        EXPECT_THAT(MistakesOf([&] { desk::ParseJson(row.first); }),
                    testing::ElementsAre(row.second))
            << row.first;
}

TEST(DeskJson, QuotesSoThatItReadsTheSame) {
    const std::string text = "a\"b\\c\n\xc4\x80\xf0\x9f\x98\x80";
    EXPECT_EQ(desk::ParseJson(desk::JsonQuoted(text)).text, text);
    EXPECT_EQ(desk::ParseJson("\"\\u0100\\ud83d\\ude00\"").text, "\xc4\x80\xf0\x9f\x98\x80");
    EXPECT_EQ(desk::JsonQuoted("\xff"), "\"\xef\xbf\xbd\"");
}

// --- a program
// ----------------------------------------------------------------------------------------

namespace {

emulator::RegisterConfig ProgrammedWith(const std::string& program, const char* model = "ocelot") {
    emulator::RegisterConfig config;
    config.model = emulator::FindModel(model, 2);
    return desk::Programmed(config, program);
}

constexpr char bakery[] = R"({
  "header": ["BAKERY", "MAIN STREET 1"],
  "departments": [{"number": 1, "name": "BREAD"}, {"number": 7}],
  "plus": [{"number": 4711, "name": "RYE", "price": 1.45, "department": 1}],
  "cashiers": [{"number": 3, "name": "ANNA"}]
})";

}  // namespace

TEST(DeskProgram, TakesThePlaceOfWhatARegisterHas) {
    const emulator::RegisterConfig config = ProgrammedWith(bakery);
    EXPECT_THAT(config.header, testing::ElementsAre("BAKERY", "MAIN STREET 1"));
    ASSERT_EQ(config.plus.size(), 1U);
    EXPECT_EQ(config.plus[0].price, 145);
    EXPECT_EQ(config.departmentNames.at(1), "BREAD");
    EXPECT_EQ(config.cashiers.at(3), "ANNA");
}

TEST(DeskProgram, WhatItLeavesOutStaysAsItWas) {
    EXPECT_EQ(ProgrammedWith("{}").plus.size(), emulator::RegisterConfig::DefaultPlus().size());
    EXPECT_EQ(ProgrammedWith("{}").header, emulator::RegisterConfig().header);
    EXPECT_EQ(ProgrammedWith(R"({"departments": [{"number": 2}]})").plus.size(), 2U);
}

TEST(DeskProgram, ChangesWhatTheRegisterAcceptsAndPrints) {
    emulator::Register device(ProgrammedWith(bakery));
    emulator::Line line(emulator::WireFamily::Ocelot, device);
    Peer peer(line, emulator::WireFamily::Ocelot);
    EXPECT_FALSE(peer.Do(emulator::EnterFiscalMode, {1}));
    ASSERT_TRUE(peer.Do(emulator::EnterFiscalMode, {3}));
    emulator::Bytes goods = saleOf250;
    EXPECT_TRUE(peer.Do(emulator::DeptSale, goods));
    goods[0] = 2;
    EXPECT_FALSE(peer.Do(emulator::DeptSale, goods));
    EXPECT_TRUE(peer.Do(emulator::Tender, FromHex("01 00 00 00 00")));
    EXPECT_THAT(device.Paper().Text(),
                testing::AllOf(testing::HasSubstr("MAIN STREET 1"), testing::HasSubstr("BREAD "),
                               testing::HasSubstr("CASHIER 03 ANNA")));
}

TEST(DeskProgram, EveryMistakeHasItsPlace) {
    const std::map<std::string, std::string> places = {
        {"[]", "1:1 an object is expected"},
        {R"({"plu": []})", "1:2 there is no \"plu\" here"},
        {R"({"plus": [], "plus": []})", "1:14 \"plus\" comes twice"},
        {R"({"header": "A"})", "1:12 an array is expected"},
        {R"({"header": [1]})", "1:13 a text in quotes is expected"},
        {R"({"header": ["a\u000ab"]})", "1:13 a text has no control characters"},
        {R"({"header": ["\u0416"]})", "1:13 the register lacks one of these letters"},
        {R"({"header": ["123456789012345678901"]})", "1:13 longer than 20 characters"},
        {R"({"departments": []})", "1:17 at least one is expected"},
        {R"({"$schema": 5})", "1:13 a text in quotes is expected"},
        {R"({"departments": [{"number": 1.5}]})", "1:29 a whole number from 1 to 99 is expected"},
        {R"({"departments": [{"number": 1e1}]})", "1:29 a whole number from 1 to 99 is expected"},
        {R"({"departments": [{"number": 100}]})", "1:29 a whole number from 1 to 99 is expected"},
        {R"({"cashiers": [{"number": 1}, {"number": 1}]})", "1:41 number 1 comes twice"},
        {R"({"plus": [{"number": 1, "name": "A", "price": 1}]})", "1:11 \"department\" is missing"},
        {R"({"plus": [{"number": 1, "name": "A", "price": 1.234, "department": 1}]})",
         "1:47 an amount from 0.00 to 999999.99 is expected"},
        {R"({"plus": [{"number": 1, "name": "A", "price": -1, "department": 1}]})",
         "1:47 an amount from 0.00 to 999999.99 is expected"},
        {R"({"plus": [{"number": 1, "name": "A", "price": 1, "department": 5}],
  "departments": [{"number": 1}]})",
         "1:64 there is no department 5"},
    };
    for (const auto& row : places)
        EXPECT_THAT(MistakesOf([&] { ProgrammedWith(row.first, "lynx"); }),
                    testing::ElementsAre(row.second))
            << row.first;
}

TEST(DeskProgram, PricesMayHaveNoOneOrTwoDecimals) {
    const auto price = [](const std::string& text) {
        return ProgrammedWith(R"({"plus": [{"number": 1, "name": "A", "price": )" + text +
                              R"(, "department": 1}]})")
            .plus[0]
            .price;
    };
    EXPECT_EQ(price("2"), 200);
    EXPECT_EQ(price("2.5"), 250);
    EXPECT_EQ(price("0.05"), 5);
    EXPECT_EQ(price("0"), 0);
    EXPECT_EQ(price("1.100"), 110);
    EXPECT_EQ(price("100.000"), 10000);
}

TEST(DeskProgram, AWholeNumberMayHaveDecimalsThatSayNothing) {
    const auto config = ProgrammedWith(R"({"departments": [{"number": 1.0}, {"number": 20.00}]})");
    EXPECT_TRUE(config.departmentNames.contains(1));
    EXPECT_TRUE(config.departmentNames.contains(20));
}

// --- a memory
// -----------------------------------------------------------------------------------------

namespace {

struct Remembering : testing::Test {
    static emulator::RegisterConfig Config(emulator::Habits habits = {}) {
        emulator::RegisterConfig config;
        config.model = emulator::FindModel("ocelot", 2);
        config.habits = habits;
        return config;
    }
    // A receipt of the past, a Z report, an open receipt, and a command without its end.
    void Work() {
        ASSERT_TRUE(peer.Do(emulator::EnterFiscalMode, {1}));
        ASSERT_TRUE(peer.Do(emulator::DeptSale, saleOf250));
        ASSERT_TRUE(peer.Do(emulator::Barcode, emulator::Bytes(54, 0x55) + FromHex("64 00") +
                                                   Ascii("4711") + emulator::Bytes(32, ' ')));
        ASSERT_TRUE(peer.Do(emulator::TenderForeign, FromHex("02 01 00 00 10 00")));
        ASSERT_TRUE(peer.Do(emulator::Report, FromHex("01 00")));
        ASSERT_TRUE(peer.Do(emulator::ShowInfo, FromHex("ff ff")));
        ASSERT_TRUE(peer.Do(emulator::DeptReturn, saleOf250));
        ASSERT_TRUE(peer.Send(emulator::DeptSale, peer.sequence_, saleOf250));
    }
    std::string Text() { return desk::StateText(device.GetModel(), device.Remember()); }

    emulator::Register device{Config()};
    emulator::Line line{emulator::WireFamily::Ocelot, device};
    Peer peer{line, emulator::WireFamily::Ocelot};
};

}  // namespace

TEST_F(Remembering, AllOfItComesBack) {
    Work();
    const emulator::RegisterMemory memory = desk::ReadState(device.GetModel(), Text());
    EXPECT_EQ(memory, device.Remember());
    emulator::Register other(Config());
    other.Recall(memory);
    EXPECT_EQ(other.Remember(), device.Remember());
    EXPECT_EQ(other.StatusBlock(), device.StatusBlock());
    EXPECT_EQ(other.ClosedDays(), device.ClosedDays());
    EXPECT_EQ(other.ZReports(), 1);
}

TEST_F(Remembering, ARegisterGoesOnWhereTheOtherWas) {
    Work();
    emulator::Register other(Config());
    other.Recall(device.Remember());
    emulator::Line otherLine(emulator::WireFamily::Ocelot, other);
    Peer otherPeer(otherLine, emulator::WireFamily::Ocelot);
    EXPECT_TRUE(otherPeer.Send(emulator::DeptSale, peer.sequence_, saleOf250));
    EXPECT_EQ(otherLine.Counters().repeats, 1);
    otherPeer.Close();
    EXPECT_TRUE(otherPeer.Do(emulator::Tender, FromHex("01 00 00 00 00")));
    EXPECT_EQ(other.ReceiptNumber(), 2U);
}

TEST_F(Remembering, ARestartIsAPowerFailureForTheHabitThatForgets) {
    Work();
    emulator::Habits habits;
    habits.Add(emulator::Habit::ForgetsWithoutPower);
    emulator::Register other(Config(habits));
    other.Recall(device.Remember());
    EXPECT_FALSE(other.Open());
}

TEST_F(Remembering, AForeignOrDamagedTextIsRefusedWithItsPlace) {
    const auto mistake = [&](const std::string& text) {
        const auto all = MistakesOf([&] { desk::ReadState(device.GetModel(), text); });
        return all.empty() ? "none" : all.front();
    };
    const auto changed = [&](const std::string& from, const std::string& to) {
        std::string text = Text();
        EXPECT_NE(text.find(from), std::string::npos) << from;
        return text.replace(text.find(from), from.size(), to);
    };
    EXPECT_EQ(mistake("{\"jobs\": []}"), "1:1 not the state of an emulated register");
    EXPECT_EQ(mistake("ResultCode=0"), "1:1 a value is expected");
    EXPECT_EQ(mistake(Text().substr(0, Text().find("\"fiscalMode") + 4)),
              "7:3 the text has no end");
    EXPECT_EQ(mistake(changed("\"version\": 1", "\"version\": 2")),
              "3:14 written by another version; this one reads version 1");
    EXPECT_EQ(mistake(changed("\"ocelot\"", "\"puma\"")),
              "4:12 the state of a puma protocol 2, not of a ocelot protocol 2");
    EXPECT_EQ(mistake(changed("\"REG\"", "\"HERE\"")), "6:10 Z, OFF, REG or X is expected");
    EXPECT_EQ(mistake(changed("\"cashier\": 0", "\"cashier\": 256")),
              "8:14 a whole number from 0 to 255 is expected");
    EXPECT_EQ(mistake(changed("\"cashier\"", "\"kassier\"")), "8:3 there is no \"kassier\" here");
}

TEST_F(Remembering, TheFileIsWrittenOnlyWhenSomethingChanged) {
    const TempDir folder;
    {
        desk::StateFile file(folder.File("state"));
        file.Save(device);
        EXPECT_EQ(desk::ReadIfAny(folder.File("state")), Text());
        std::filesystem::remove(folder.File("state"));
        file.Save(device);
        EXPECT_EQ(desk::ReadIfAny(folder.File("state")), std::nullopt);
        Work();
        file.Save(device);
    }
    emulator::Register other(Config());
    desk::StateFile(folder.File("state")).Load(other);
    EXPECT_EQ(other.Remember(), device.Remember());
}

TEST_F(Remembering, AFileBelongsToOneRegisterAtATime) {
    const TempDir folder;
    folder.Write("state", "");
    std::filesystem::create_symlink("state", folder.File("link"));
    {
        const desk::StateFile file(folder.File("state"));
        EXPECT_THROW(desk::StateFile(folder.File("state")), std::runtime_error);
        EXPECT_THROW(desk::StateFile(folder.File("link")), std::runtime_error);
        const desk::StateFile another(folder.File("another"));
    }
    EXPECT_NO_THROW(desk::StateFile(folder.File("link")));
    EXPECT_FALSE(std::filesystem::exists(folder.File("state.lock")));
}

TEST_F(Remembering, WhatAKilledProgramLeftIsInNobodysWay) {
    const TempDir folder;
    folder.Write("state.lock", "");
    folder.Write("state.new", "half of");
    desk::StateFile file(folder.File("state"));
    file.Load(device);
    EXPECT_FALSE(std::filesystem::exists(folder.File("state.new")));
    folder.Write("state.new", "half of");
    file.Save(device);
    EXPECT_FALSE(std::filesystem::exists(folder.File("state.new")));
    EXPECT_EQ(ReadWholeFile(folder.File("state")), Text());
}

TEST_F(Remembering, AFileThatCannotBeReplacedStaysAndNothingElseIsLeft) {
    const TempDir folder;
    std::filesystem::create_directories(folder.File("state/in the way"));
    EXPECT_THROW(desk::ReplaceFile(folder.File("state"), "new"), std::runtime_error);
    EXPECT_TRUE(std::filesystem::is_directory(folder.File("state/in the way")));
    const auto entries = std::filesystem::directory_iterator(folder.Path());
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
}

TEST(DeskFiles, ALinkStaysALinkToTheNewFile) {
    const TempDir folder;
    folder.Write("real", "old");
    std::filesystem::create_symlink("real", folder.File("link"));
    desk::ReplaceFile(folder.File("link"), "new");
    EXPECT_TRUE(std::filesystem::is_symlink(folder.File("link")));
    EXPECT_EQ(desk::ReadIfAny(folder.File("real")), "new");
}

TEST(DeskFiles, AFolderAndADeviceAreNoFiles) {
    EXPECT_THROW(desk::ReadIfAny("/dev/zero"), std::runtime_error);
    EXPECT_THROW(desk::ReadIfAny("/"), std::runtime_error);
}

TEST(DeskFiles, AStreamIsReadUpToItsEndAndIsNotEndless) {
    const TempDir folder;
    std::array<int, 2> pipe{};
    ASSERT_EQ(pipe2(pipe.data(), O_CLOEXEC), 0);
    ASSERT_EQ(write(pipe[1], "late 5s\n", 8), 8);
    close(pipe[1]);
    EXPECT_EQ(desk::ReadStreamIfAny("/proc/self/fd/" + std::to_string(pipe[0])), "late 5s\n");
    close(pipe[0]);
    EXPECT_EQ(desk::ReadStreamIfAny(folder.Write("file", "x")), "x");
    EXPECT_EQ(desk::ReadStreamIfAny(folder.File("none")), std::nullopt);
    EXPECT_THROW(desk::ReadStreamIfAny("/dev/zero"), std::runtime_error);
    EXPECT_THROW(desk::ReadStreamIfAny("/"), std::runtime_error);
}

// --- a journal -----------------------------------------------------------------------------------

namespace {

// No file may become longer than this.
class FileLimit {
  public:
    explicit FileLimit(std::size_t bytes) : handler_(signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        rlimit limit = before_;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileLimit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        signal(SIGXFSZ, handler_);
    }
    FileLimit(const FileLimit&) = delete;
    FileLimit& operator=(const FileLimit&) = delete;

  private:
    rlimit before_{};
    void (*handler_)(int);
};

emulator::RegisterConfig OcelotConfig() {
    emulator::RegisterConfig config;
    config.model = emulator::FindModel("ocelot", 2);
    return config;
}

}  // namespace

TEST(DeskRecord, ALineThatTheDiskHasNoRoomForIsTakenBack) {
    const TempDir folder;
    desk::Record record(folder.File("journal"));
    record.Typed("status");
    const std::string whole = ReadWholeFile(folder.File("journal"));
    {
        const FileLimit full(whole.size() + 20);
        EXPECT_THROW(record.Typed("finish"), std::runtime_error);
    }
    EXPECT_EQ(ReadWholeFile(folder.File("journal")), whole);
    record.Typed("finish");
    EXPECT_THAT(ReadWholeFile(folder.File("journal")), testing::StartsWith(whole + "{\"time\""));
}

TEST(DeskRecord, AfterHalfALineANewOneIsBegun) {
    const TempDir folder;
    const std::string half = "{\"time\": \"2026";
    desk::Record record(folder.Write("journal", half));
    EXPECT_TRUE(record.AfterHalfALine());
    record.Start(OcelotConfig(), emulator::WireFamily::Ocelot);
    const std::string text = ReadWholeFile(folder.File("journal"));
    EXPECT_THAT(text, testing::StartsWith(half + "\n{\"time\""));
    EXPECT_EQ(std::ranges::count(text, '\n'), 2);
    EXPECT_FALSE(desk::Record(folder.File("journal")).AfterHalfALine());
    EXPECT_FALSE(desk::Record(folder.File("new")).AfterHalfALine());
}

// --- the page ------------------------------------------------------------------------------------

namespace {

/// The first block in fences after these words of docs/emulator.md.
std::string BlockAfter(const std::string& words) {
    const std::string page =
        desk::ReadIfAny(VOLTIS_SOURCE_DIR "/docs/emulator.md").value_or("there is no page");
    const std::size_t fence = page.find("\n```", page.find(words));
    EXPECT_NE(fence, std::string::npos) << words;
    const std::size_t begin = page.find('\n', fence + 1) + 1;
    return page.substr(begin, page.find("```\n", begin) - begin);
}

}  // namespace

TEST(DeskPage, ShowsFaultsThatCanBeOrdered) {
    EXPECT_EQ(desk::ReadFaults(BlockAfter("One fault a line")).size(), 7U);
    EXPECT_NE(BlockAfter("A line that is wrong").find(MistakeIn("power off at dat 3").substr(5)),
              std::string::npos);
}

TEST(DeskPage, ShowsAProgramThatARegisterTakes) {
    const emulator::RegisterConfig config = ProgrammedWith(BlockAfter("`--program FILE` is JSON"));
    EXPECT_EQ(config.header.size(), 2U);
    EXPECT_EQ(config.plus.size(), 1U);
}

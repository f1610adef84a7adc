// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The line and the register between the driver's calls, without the driver.
#include "tests/explore/Conversation.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/emulator/Peer.h"

using namespace explore;
using emulator::Bytes;
using emulator::WireFamily;

namespace {

constexpr std::uint8_t unknownCommand = 0x10;  // its request is answered by NAK
constexpr std::uint8_t drawer = emulator::OpenCashDrawer;
constexpr FaultSet race = {Fault::None, Fault::Drained};

/// In fiscal mode, so that a command can follow at once.
class Talking : public testing::TestWithParam<WireFamily> {
  public:
    Talking()
        : scenario_(ParseScenario(FamilyWord(GetParam()), "again", "default")),
          wire_(emulator::MakeWire(GetParam())),
          unused_(scenario_.Register()),
          unusedLine_(GetParam(), unused_),
          frames_(unusedLine_, GetParam()),
          talk_(scenario_, expected_) {}

    // --- frames of the driver ------------------------------------------------------------------

    Bytes Request(std::uint8_t command = drawer) const { return frames_.RequestFrame(command); }
    Bytes Unknown() const { return Request(unknownCommand); }
    Bytes Status() const { return Request(emulator::ReadFiscalStatus); }
    Bytes Data(std::uint16_t sequence = 1, std::uint8_t command = drawer) const {
        const Bytes payload(emulator::PayloadSize(unused_.GetModel(), command), 1);
        return frames_.DataFrame(sequence, payload);
    }
    /// For the data frame that was built last.
    Bytes Eof() const { return frames_.EofFrame(); }

    // --- the driver ----------------------------------------------------------------------------

    /// Writes the frame, and the register answers; a race ends with nothing dropped.
    void Say(const Bytes& frame, Fault fault = Fault::None, Fault answers = Fault::None) {
        talk_.Write(frame);
        if (talk_.Options() == race) talk_.Decide(Fault::None);
        Answer(fault, answers);
    }
    void SayAfterADrain(const Bytes& frame) {
        talk_.Write(frame);
        EXPECT_EQ(talk_.Options(), race);
        talk_.Decide(Fault::Drained);
        Answer(Fault::None, Fault::None);
    }
    void Answer(Fault fault, Fault answers) {
        talk_.Decide(fault);
        while (!talk_.Options().Empty()) talk_.Decide(answers);
    }

    /// Exactly so many bytes; empty when they do not come.
    Bytes Read(std::size_t size) {
        Bytes block(size);
        return talk_.Read(block.data(), size) ? block : Bytes{};
    }
    /// What a driver makes of the next answer.
    std::string Hear() {
        const Bytes answer = Read(AnswerSize());
        if (answer.empty()) return "time-out";
        if (answer == frames_.Ack()) return "ACK";
        if (answer == frames_.Nak()) return "NAK";
        return answer == frames_.Busy() ? "BSY" : "garbage";
    }
    std::vector<std::string> HearAll() {
        std::vector<std::string> all;
        while (all.empty() || all.back() != "time-out") all.push_back(Hear());
        all.pop_back();
        return all;
    }
    void DoCommand(std::uint16_t sequence) {
        for (const Bytes& frame : {Request(), Data(sequence), Eof()}) {
            Say(frame);
            EXPECT_EQ(Hear(), "ACK");
        }
    }

    std::size_t AnswerSize() const { return frames_.Ack().size(); }
    /// Commands that the register has judged in this conversation.
    std::vector<emulator::Acted> Judged() const {
        const auto& journal = talk_.Device().Journal();
        return {journal.begin() + 1, journal.end()};  // the first enters fiscal mode
    }

    // --- states --------------------------------------------------------------------------------

    Bytes State() const {
        Bytes state;
        talk_.Describe(state);
        return state;
    }
    /// The state of another conversation of the same kind after these words.
    template <typename Words>
    Bytes StateAfter(Words words) const {
        Talking other;
        words(other);
        return other.State();
    }
    void TestBody() override {}

    using Words = std::vector<std::string>;

    const Scenario scenario_;
    const std::vector<Actions> expected_;
    const std::unique_ptr<const emulator::Wire> wire_;
    emulator::Register unused_;
    emulator::Line unusedLine_;
    const Peer frames_;
    Conversation talk_;
};
INSTANTIATE_TEST_SUITE_P(Conversation, Talking,
                         testing::Values(WireFamily::Ocelot, WireFamily::Margay),
                         [](const auto& each) { return std::string(FamilyWord(each.param)); });

}  // namespace

// --- answers that are late -----------------------------------------------------------------------

TEST_P(Talking, ATimelyAnswerIsReadOnce) {
    Say(Request());
    EXPECT_EQ(HearAll(), Words{"ACK"});
}

TEST_P(Talking, ALateAnswerComesAfterTheNextFrameAndBeforeItsAnswer) {
    Say(Request(), Fault::None, Fault::Late);
    EXPECT_EQ(Hear(), "time-out");
    Say(Unknown());
    EXPECT_EQ(HearAll(), (Words{"ACK", "NAK"}));
}

TEST_P(Talking, ALaterAnswerComesAfterTheNextFrameButOne) {
    Say(Request(), Fault::None, Fault::Later);
    EXPECT_EQ(Hear(), "time-out");
    Say(Unknown(), Fault::Lost);
    EXPECT_EQ(Hear(), "time-out");
    Say(Unknown());
    EXPECT_EQ(HearAll(), (Words{"ACK", "NAK"}));
}

TEST_P(Talking, AnAnswerThatIsHeldBackHoldsBackTheTimelyOneAfterIt) {
    Say(Request(), Fault::None, Fault::Later);
    Say(Unknown());
    EXPECT_EQ(Hear(), "time-out");
    Say(Request());
    EXPECT_EQ(HearAll(), (Words{"ACK", "NAK", "ACK"}));
}

// --- races ---------------------------------------------------------------------------------------

TEST_P(Talking, AnAnswerThatNobodyHasReadRacesWithTheNextFrame) {
    talk_.Write(Request());
    EXPECT_FALSE(talk_.Options().Has(Fault::Drained));
    Answer(Fault::None, Fault::None);
    const std::size_t place = talk_.Place();
    talk_.Write(Unknown());
    EXPECT_EQ(talk_.Options(), race);
    talk_.Decide(Fault::None);
    EXPECT_EQ(talk_.Place(), place + 1);
    EXPECT_TRUE(talk_.Options().Has(Fault::Lost));
}

TEST_P(Talking, AfterARaceWithNoneTheStaleAnswerComesFirst) {
    Say(Request());
    Say(Unknown());
    EXPECT_EQ(HearAll(), (Words{"ACK", "NAK"}));
}

TEST_P(Talking, AfterARaceWithDrainedTheStaleAnswersAreGone) {
    Say(Request());
    Say(Request());
    SayAfterADrain(Unknown());
    EXPECT_EQ(HearAll(), Words{"NAK"});
}

TEST_P(Talking, AnAnswerThatIsHeldBackDoesNotRace) {
    Say(Request(), Fault::None, Fault::Late);
    talk_.Write(Unknown());
    EXPECT_FALSE(talk_.Options().Has(Fault::Drained));
}

TEST_P(Talking, ADrainLeavesWhatIsHeldBack) {
    Say(Unknown());
    Say(Request(), Fault::None, Fault::Later);
    SayAfterADrain(Unknown());
    EXPECT_EQ(Hear(), "time-out");
    Say(Unknown());
    EXPECT_EQ(HearAll(), (Words{"ACK", "NAK", "NAK"}));
}

// --- what a read takes ---------------------------------------------------------------------------

TEST_P(Talking, WhatIsLeftOfAReadIsDroppedByTheNextWrite) {
    Say(Status());
    EXPECT_EQ(Hear(), "ACK");
    EXPECT_EQ(Read(5).size(), 5U);
    talk_.Write(frames_.Ack());
    EXPECT_FALSE(talk_.Options().Has(Fault::Drained));  // it had arrived
    Answer(Fault::None, Fault::None);
    EXPECT_TRUE(wire_->IsSomeEof(Read(wire_->BuildEof(0).size())));
    EXPECT_EQ(Hear(), "time-out");
}

TEST_P(Talking, AReadThatTimesOutTakesWhatThereWas) {
    Say(Request());
    EXPECT_TRUE(Read(AnswerSize() + 1).empty());
    EXPECT_EQ(Hear(), "time-out");
}

TEST_P(Talking, AReadGoesOnWhereTheLastOneEnded) {
    Say(Status());
    const Bytes status = wire_->BuildData(Bytes(17));
    const Bytes first = Read(AnswerSize() + 3), rest = Read(status.size() - 3);
    ASSERT_FALSE(rest.empty());
    const Bytes all = first + rest;
    EXPECT_TRUE(wire_->ParseData(emulator::View(all).subspan(AnswerSize()), 17));
}

// --- lost, garbled, noise ------------------------------------------------------------------------

TEST_P(Talking, ALostFrameDoesNotReachTheRegister) {
    Say(Request(), Fault::Lost);
    EXPECT_EQ(Hear(), "time-out");
    Say(Data());
    EXPECT_EQ(Hear(), "time-out");  // it awaits a request
    EXPECT_TRUE(Judged().empty());
}

TEST_P(Talking, ALostAnswerDoesNotReachTheDriver) {
    Say(Request(), Fault::None, Fault::Lost);
    EXPECT_EQ(Hear(), "time-out");
    Say(Data());
    EXPECT_EQ(HearAll(), Words{"ACK"});
    EXPECT_EQ(Judged().size(), 1U);
}

TEST_P(Talking, AGarbledFrameIsNotActedOn) {
    Say(Request(), Fault::Garbled);
    EXPECT_EQ(Hear(), "time-out");
    Say(Request());
    EXPECT_EQ(Hear(), "ACK");
    Say(Data(), Fault::Garbled);
    EXPECT_EQ(HearAll(), Words{"NAK"});
    EXPECT_TRUE(Judged().empty());
}

TEST_P(Talking, AGarbledAnswerHasItsSizeAndIsNoAnswer) {
    Say(Request(), Fault::None, Fault::Garbled);
    EXPECT_EQ(HearAll(), Words{"garbage"});
    Say(Unknown(), Fault::None, Fault::Garbled);
    EXPECT_EQ(HearAll(), Words{"garbage"});
}

TEST_P(Talking, NoiseBeforeAnAnswerIsReadInItsPlaceAndTheAnswerAfterTheNextFrame) {
    Say(Request(), Fault::None, Fault::Noise);
    EXPECT_EQ(Hear(), "garbage");
    Say(Unknown());
    EXPECT_EQ(HearAll(), (Words{"ACK", "NAK"}));
}

TEST_P(Talking, NoiseHasTheSizeOfAnAnswer) {
    Say(Request(), Fault::None, Fault::Noise);
    EXPECT_EQ(HearAll(), (Words{"garbage", "ACK"}));
}

TEST_P(Talking, NoiseBeforeARequestHidesItNotAndBeforeADataFrameItDoes) {
    Say(Request(), Fault::Noise);
    EXPECT_EQ(HearAll(), Words{"ACK"});
    Say(Data(), Fault::Noise);
    EXPECT_EQ(HearAll(), Words{"NAK"});
    EXPECT_TRUE(Judged().empty());
}

// --- frames of the driver that are held back -----------------------------------------------------

TEST_P(Talking, ALateFrameReachesTheRegisterJustBeforeTheNextOne) {
    Say(Request(), Fault::Late);
    EXPECT_EQ(Hear(), "time-out");
    Say(Data());
    EXPECT_EQ(HearAll(), (Words{"ACK", "ACK"}));
    EXPECT_EQ(Judged().size(), 1U);
}

TEST_P(Talking, ALateFrameArrivesAlsoWhenTheNextOneIsLost) {
    Say(Request(), Fault::Late);
    Say(Unknown(), Fault::Lost);
    EXPECT_EQ(HearAll(), Words{"ACK"});
}

TEST_P(Talking, ALaterFrameHoldsBackTheTimelyOneAfterIt) {
    Say(Request(), Fault::Later);
    EXPECT_EQ(Hear(), "time-out");
    Say(Unknown());
    EXPECT_EQ(Hear(), "time-out");
    Say(Request());
    EXPECT_EQ(HearAll(), (Words{"ACK", "NAK", "ACK"}));
}

TEST_P(Talking, TheAnswerToAFrameThatWasHeldBackIsDecidedFirst) {
    Say(Request(), Fault::Late);
    talk_.Write(Unknown());
    talk_.Decide(Fault::None);
    talk_.Decide(Fault::Lost);
    EXPECT_FALSE(talk_.Options().Empty());
    talk_.Decide(Fault::None);
    EXPECT_TRUE(talk_.Options().Empty());
    EXPECT_EQ(HearAll(), Words{"NAK"});
}

TEST_P(Talking, CloseDeliversWhatIsHeldBackInItsOrder) {
    Say(Request(), Fault::Later);
    Say(Data());
    EXPECT_TRUE(Judged().empty());
    talk_.Close();
    EXPECT_EQ(Judged().size(), 1U);
    EXPECT_TRUE(talk_.Options().Empty());
}

TEST_P(Talking, AnswersToWhatCloseDeliversMayComeInTheNextRun) {
    Say(Unknown(), Fault::Late);
    talk_.Close();
    talk_.Open();
    talk_.Write(Request());
    EXPECT_EQ(talk_.Options(), race);
    talk_.Decide(Fault::None);
    Answer(Fault::None, Fault::None);
    EXPECT_EQ(HearAll(), (Words{"NAK", "ACK"}));
}

// --- refusals and power --------------------------------------------------------------------------

TEST_P(Talking, ARefusedRequestIsAnsweredByBusyAndTheNextIsNot) {
    Say(Request(), Fault::Refused);
    EXPECT_EQ(HearAll(), Words{"BSY"});
    Say(Request());
    EXPECT_EQ(HearAll(), Words{"ACK"});
}

TEST_P(Talking, ARefusedCommandIsAPrinterErrorAndTheNextIsNot) {
    Say(Request());
    EXPECT_EQ(Hear(), "ACK");
    Say(Data(), Fault::Refused);
    EXPECT_EQ(HearAll(), Words{"NAK"});
    EXPECT_EQ(talk_.Device().LastResult(), 3);
    ASSERT_EQ(Judged().size(), 1U);
    EXPECT_FALSE(Judged()[0].accepted);
    DoCommand(2);
    EXPECT_EQ(talk_.Device().LastResult(), 0);
}

TEST_P(Talking, ARefusedRequestThatIsHeldBackIsStillTheOneThatIsRefused) {
    Say(Request(), Fault::Later);
    Say(Request(), Fault::Refused);
    EXPECT_EQ(Hear(), "time-out");
    Say(Request());
    EXPECT_EQ(HearAll(), (Words{"ACK", "BSY", "ACK"}));
}

TEST_P(Talking, ARefusedCommandThatIsHeldBackIsStillTheOneThatIsRefused) {
    Say(Request(), Fault::Later);
    Say(Data(1), Fault::Refused);
    Say(Request());
    EXPECT_EQ(HearAll(), (Words{"ACK", "NAK", "ACK"}));
    Say(Data(2));
    EXPECT_EQ(Hear(), "ACK");
    ASSERT_EQ(Judged().size(), 2U);
    EXPECT_EQ(Judged()[0].result, 3);
    EXPECT_TRUE(Judged()[1].accepted);
}

TEST_P(Talking, ARefusedCommandThatCloseDeliversIsRefused) {
    Say(Request(), Fault::Late);
    Say(Data(1), Fault::Later);  // arrives with the request, and waits
    talk_.Close();
    EXPECT_TRUE(Judged().at(0).accepted);
    Say(Request(), Fault::Later);
    Say(Data(2), Fault::Refused);
    talk_.Close();
    EXPECT_EQ(Judged().at(1).result, 3);
}

TEST_P(Talking, APowerFailureBeforeAFrameMakesTheRegisterForgetTheRequest) {
    Say(Request());
    EXPECT_EQ(Hear(), "ACK");
    Say(Data(), Fault::PowerFails);
    EXPECT_EQ(Hear(), "time-out");
    EXPECT_TRUE(Judged().empty());
    EXPECT_TRUE(talk_.Device().InFiscalMode());
    DoCommand(1);
}

TEST_P(Talking, APowerFailureBeforeAnAnswerTakesTheAnswersAndTheExchange) {
    talk_.Write(Status());
    talk_.Decide(Fault::None);
    talk_.Decide(Fault::PowerFails);       // of the answer,
    EXPECT_TRUE(talk_.Options().Empty());  // and the status block does not come either
    EXPECT_EQ(Hear(), "time-out");
    Say(frames_.Ack());
    EXPECT_EQ(Hear(), "time-out");
    Say(Request(), Fault::None, Fault::PowerFails);
    Say(Data());
    EXPECT_EQ(Hear(), "time-out");
    EXPECT_TRUE(Judged().empty());
}

// --- what may happen -----------------------------------------------------------------------------

TEST_P(Talking, NothingIsToBeDecidedWhileTheDriverGoesOn) {
    EXPECT_TRUE(talk_.Options().Empty());
    Say(Request());
    EXPECT_TRUE(talk_.Options().Empty());
    const std::size_t place = talk_.Place();
    talk_.Decide(Fault::Lost);
    EXPECT_EQ(talk_.Place(), place);
    EXPECT_EQ(HearAll(), Words{"ACK"});
}

TEST_P(Talking, OnlyRequestsAndDataFramesCanBeRefused) {
    const auto refusable = [&](const Bytes& frame) {
        talk_.Write(frame);
        const bool can = talk_.Options().Has(Fault::Refused);
        talk_.Decide(Fault::None);
        while (!talk_.Options().Empty()) {
            EXPECT_FALSE(talk_.Options().Has(Fault::Refused)) << "an answer of the register";
            talk_.Decide(Fault::Lost);
        }
        return can;
    };
    using emulator::EnterFiscalMode;
    using emulator::ExitFiscalMode;
    for (const std::uint8_t command :
         {drawer, std::uint8_t{ExitFiscalMode}, std::uint8_t{EnterFiscalMode}}) {
        EXPECT_TRUE(refusable(Request(command))) << int{command};
        EXPECT_TRUE(refusable(Data(command, command))) << int{command};
        EXPECT_FALSE(refusable(Eof())) << int{command};
    }
    EXPECT_EQ(Judged().size(), 3U);
    EXPECT_TRUE(refusable(Status()));
    EXPECT_FALSE(refusable(frames_.Ack()));
    EXPECT_FALSE(refusable(frames_.Nak()));
}

// --- the state -----------------------------------------------------------------------------------

TEST_P(Talking, TheStateIsTheSameAfterTheSameWords) {
    const auto words = [](Talking& other) {
        other.DoCommand(1);
        other.Say(other.Request(), Fault::Late, Fault::Noise);
        other.talk_.Write(other.Data(2));
    };
    words(*this);
    EXPECT_EQ(State(), StateAfter(words));
    Bytes ofACopy;
    Conversation(talk_).Describe(ofACopy);
    EXPECT_EQ(State(), ofACopy);
}

TEST_P(Talking, TheStateDoesNotTellTheWayThatLedThere) {
    Say(Request(), Fault::Lost);
    EXPECT_EQ(Hear(), "time-out");
    Say(Request());
    EXPECT_EQ(Hear(), "ACK");
    EXPECT_EQ(State(), StateAfter([](Talking& other) {
                  other.Say(other.Request());
                  EXPECT_EQ(other.Hear(), "ACK");
              }));
}

TEST_P(Talking, TheStateTellsHowLongAnAnswerIsHeldBack) {
    Say(Request(), Fault::None, Fault::Late);
    EXPECT_NE(State(), StateAfter([](Talking& other) {
                  other.Say(other.Request(), Fault::None, Fault::Later);
              }));
}

TEST_P(Talking, TheStateTellsHowLongAFrameIsHeldBack) {
    Say(Request(), Fault::Late);
    EXPECT_NE(State(),
              StateAfter([](Talking& other) { other.Say(other.Request(), Fault::Later); }));
}

TEST_P(Talking, TheStateTellsWhatIsOnItsWayToTheDriver) {
    Say(Request());
    for (const Fault fault : {Fault::Lost, Fault::Garbled, Fault::Noise})
        EXPECT_NE(State(), StateAfter([&](Talking& other) {
                      other.Say(other.Request(), Fault::None, fault);
                  }))
            << FaultWord(fault);
}

TEST_P(Talking, TheStateTellsWhatIsOnItsWayToTheRegister) {
    const auto behindAnother = [](Fault fault) {
        return [fault](Talking& other) {
            other.Say(other.Request(), Fault::Later);
            other.Say(other.Request(), fault);
        };
    };
    behindAnother(Fault::None)(*this);
    for (const Fault fault : {Fault::Lost, Fault::Garbled, Fault::Noise, Fault::Refused})
        EXPECT_NE(State(), StateAfter(behindAnother(fault))) << FaultWord(fault);
}

TEST_P(Talking, TheStateTellsWhatTheDriverIsWriting) {
    Say(Request());
    talk_.Write(Data(1));
    EXPECT_NE(State(), StateAfter([](Talking& other) {
                  other.Say(other.Request());
                  other.talk_.Write(other.Data(2));
              }));
}

TEST_P(Talking, TheStateTellsWhatIsLeftOfARead) {
    Say(Status());
    EXPECT_EQ(Read(AnswerSize() + 5).size(), AnswerSize() + 5);
    EXPECT_NE(State(), StateAfter([](Talking& other) {
                  other.Say(other.Status());
                  EXPECT_EQ(other.Read(other.AnswerSize() + 6).size(), other.AnswerSize() + 6);
              }));
}

// The power failure makes the exchange on the line the same again.
TEST_P(Talking, TheStateTellsWhetherACommandIsOpen) {
    const auto words = [](Fault ofEof, Fault ofItsAnswer) {
        return [=](Talking& other) {
            other.Say(other.Request());
            other.Say(other.Data());
            other.Say(other.Eof(), ofEof, ofItsAnswer);
            other.Say(other.Request(), Fault::PowerFails);
            other.HearAll();
        };
    };
    words(Fault::Lost, Fault::None)(*this);
    EXPECT_TRUE(talk_.Device().Open());
    EXPECT_EQ(State(), StateAfter(words(Fault::Garbled, Fault::Lost)));
    EXPECT_NE(State(), StateAfter(words(Fault::None, Fault::Lost)));
}

TEST_P(Talking, TheStateTellsTheNumberInTheStatus) {
    const auto refused = [](std::uint16_t sequence) {
        return [=](Talking& other) {
            other.Say(other.Request());
            other.Say(other.Data(sequence), Fault::Refused);
            other.Say(other.Request(), Fault::Lost);  // the state has no total of the data frame
            other.HearAll();
            other.Say(other.Status());
            other.HearAll();
            other.Say(other.Request(), Fault::PowerFails);
            other.HearAll();
        };
    };
    refused(1)(*this);
    EXPECT_EQ(State(), StateAfter(refused(1)));
    EXPECT_NE(State(), StateAfter(refused(2)));
}

// --- runs ----------------------------------------------------------------------------------------

TEST_P(Talking, TheNextFileFollowsAfter0AndTheSameOneAfter1And2) {
    const std::vector<Actions> nothing(2);
    Conversation talk(scenario_, nothing);
    for (const int exitCode : {1, 2}) {
        Conversation again(scenario_, nothing);
        again.EndRun({exitCode, false}, "");
        EXPECT_EQ(again.File(), 0U);
        EXPECT_FALSE(again.Over());
    }
    talk.EndRun({0, false}, "");
    EXPECT_EQ(talk.File(), 1U);
    EXPECT_FALSE(talk.Over());
    Conversation rest(talk);
    talk.EndRun({0, false}, "");
    EXPECT_TRUE(talk.Over());  // no file is left
    rest.EndRun({1, false}, "");
    EXPECT_FALSE(rest.Over());
    rest.EndRun({1, false}, "");
    EXPECT_TRUE(rest.Over());  // three runs
    EXPECT_EQ(rest.Runs().size(), mostRuns);
}

TEST_P(Talking, NothingFollowsAfter101) {
    const std::vector<Actions> nothing(2);
    Conversation talk(scenario_, nothing);
    talk.EndRun({101, false}, "");
    EXPECT_TRUE(talk.Over());
    EXPECT_EQ(talk.File(), 0U);
}

TEST_P(Talking, ADataFrameOfACommandIsNotedAndOneOfEnteringFiscalModeIsNot) {
    const auto issuesAfter = [&](std::uint8_t command) {
        const std::vector<Actions> nothing(2);
        Conversation talk(scenario_, nothing);
        for (const Bytes& frame : {Request(command), Data(1, command)}) {
            talk.Write(frame);
            talk.Decide(Fault::Lost);
        }
        talk.EndRun({2, false}, "[Result]\nResultCode=2\n");
        return talk.Runs().at(0);
    };
    EXPECT_TRUE(issuesAfter(drawer).Has(Issue::Written));
    EXPECT_EQ(issuesAfter(emulator::EnterFiscalMode).issues, 0U);
    EXPECT_EQ(issuesAfter(emulator::ExitFiscalMode).issues, 0U);
}

TEST_P(Talking, AnEndOfFileAfterAnswersThatWereNoAckIsOutOfTurn) {
    const auto issuesAfter = [&](Fault answer) {
        Talking other;
        other.Say(Request());
        EXPECT_EQ(other.Hear(), "ACK");
        other.Say(Data(), Fault::None, answer);
        other.Hear();
        other.Say(Eof());
        other.talk_.EndRun({0, false}, "[Result]\nResultCode=0\nLastReceiptNo=41\n");
        return other.talk_.Runs().at(0).issues;
    };
    EXPECT_EQ(issuesAfter(Fault::None), 0U);
    EXPECT_EQ(issuesAfter(Fault::Garbled), 1U << static_cast<unsigned>(Issue::OutOfTurn));
    EXPECT_EQ(issuesAfter(Fault::Lost), 1U << static_cast<unsigned>(Issue::OutOfTurn));
}

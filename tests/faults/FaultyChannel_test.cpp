// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The line between the driver and the register: what is there when, and what is noted of answers
// that are not in their place.
#include "tests/faults/FaultyChannel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "tests/faults/DriverRun.h"
#include "tests/faults/SaleFaults.h"

namespace {

using namespace faults;
using emulator::Bytes;
using emulator::WireFamily;

using Faults = std::vector<Fault>;

constexpr std::uint8_t ackByte = 0x06, nakByte = 0x15, noiseByte = 0x55;

/// Of one family: a request for the status, which ACK and the status frame answer; an answer to
/// that frame, to have it again; a request for a report, which ACK alone answers; and its data.
const Bytes margayAsksStatus = {0x02, 0xD1, '2', 'D', 0x03};
const Bytes margayRefuses = {nakByte};
const Bytes margayAsksReport = {0x02, 0xC5, '3', '9', 0x03};
const Bytes margayReport = {'0', '1', '0', '0', '0', '1', '0', '0', '7', 'E', 0x0D};
constexpr std::size_t margayStatusSize = 37;

const Bytes ocelotAsksReport = {0xD0, 0x01, 0xC5, 0x14, 0x56};
const Bytes ocelotAck = {0xD9, 0x06, 0xDF, 0x42};

Fault ToDriver(Kind kind, std::size_t index, std::uint8_t value = 0) {
    return {Direction::ToDriver, kind, value, index};
}

struct TestLine : FaultyLine {
    explicit TestLine(WireFamily family, Faults faults = {})
        : FaultyLine(family, DefaultRegister(family), FaultPlan(std::move(faults))) {}

    /// Empty when the read fails.
    Bytes Take(std::size_t size) {
        Bytes block(size);
        if (!Read(block.data(), size)) block.clear();
        return block;
    }
};

struct MargayLine : TestLine {
    explicit MargayLine(Faults faults = {}) : TestLine(WireFamily::Margay, std::move(faults)) {}
};

struct OcelotLine : TestLine {
    explicit OcelotLine(Faults faults = {}) : TestLine(WireFamily::Ocelot, std::move(faults)) {}
};

}  // namespace

// --- what is there when --------------------------------------------------------------------------

TEST(FaultyLine, AReadTakesItsBytesAndLeavesTheRestToTheNextOne) {
    MargayLine line;
    line.Write(margayAsksStatus);
    const Bytes first = line.Take(11);
    const Bytes second = line.Take(27);
    ASSERT_EQ(first.size() + second.size(), 1 + margayStatusSize);
    EXPECT_EQ(first.front(), ackByte);
    EXPECT_EQ(second.back(), 0x0D);
    EXPECT_EQ(line.Take(1), Bytes{});
}

TEST(FaultyLine, AShortReadLosesWhatItRead) {
    OcelotLine line;
    line.Write(ocelotAsksReport);
    EXPECT_EQ(line.Take(5), Bytes{});
    EXPECT_EQ(line.Take(4), Bytes{});
}

TEST(FaultyLine, AWriteDropsWhatHasArrived) {
    MargayLine line;
    line.Write(margayAsksStatus);
    const Bytes frame = line.Take(1 + margayStatusSize - 7);
    line.Write(margayRefuses);
    EXPECT_EQ(line.Take(5), Bytes(frame.begin() + 1, frame.begin() + 6));
}

TEST(FaultyLine, AWriteDropsNothingThatIsOnItsWay) {
    OcelotLine line;
    line.Write(ocelotAsksReport);
    line.Write(ocelotAsksReport);
    EXPECT_EQ(line.Take(4), ocelotAck);
    EXPECT_EQ(line.Take(4), ocelotAck);
    EXPECT_EQ(line.Take(4), Bytes{});
}

TEST(FaultyLine, AnAnswerAndTheStatusFrameArriveOneAfterTheOther) {
    MargayLine line;
    line.Write(margayAsksStatus);
    EXPECT_EQ(line.Take(1), Bytes{ackByte});
    line.Write(margayRefuses);
    EXPECT_EQ(line.Take(margayStatusSize), line.Take(margayStatusSize));
}

TEST(FaultyLine, NoiseInFrontOfAnAnswerArrivesByItself) {
    OcelotLine line(Faults(4, ToDriver(Kind::Insert, 0, noiseByte)));
    line.Write(ocelotAsksReport);
    EXPECT_EQ(line.Take(4), Bytes(4, noiseByte));
    line.Write(ocelotAsksReport);
    EXPECT_EQ(line.Take(4), ocelotAck);
    EXPECT_EQ(line.Take(4), ocelotAck);
}

TEST(FaultyLine, NoiseInFrontOfTheStatusFrameArrivesByItself) {
    MargayLine line({ToDriver(Kind::Insert, 1, noiseByte)});
    line.Write(margayAsksStatus);
    EXPECT_EQ(line.Take(2), (Bytes{ackByte, noiseByte}));
    line.Write(margayRefuses);
    EXPECT_EQ(line.Take(margayStatusSize), line.Take(margayStatusSize));
}

TEST(FaultyLine, NoiseInsideAnAnswerArrivesWithIt) {
    OcelotLine line({ToDriver(Kind::Insert, 3, noiseByte)});
    line.Write(ocelotAsksReport);
    EXPECT_EQ(line.Take(4), (Bytes{0xD9, 0x06, 0xDF, noiseByte}));
    line.Write(ocelotAsksReport);
    EXPECT_EQ(line.Take(4), ocelotAck);
    EXPECT_EQ(line.Take(4), Bytes{});
}

TEST(FaultyLine, ALateAnswerArrivesAfterTheNextWrite) {
    OcelotLine line({ToDriver(Kind::Late, 0)});
    line.Write(ocelotAsksReport);
    EXPECT_EQ(line.Take(4), Bytes{});
    line.Write(ocelotAsksReport);
    EXPECT_EQ(line.Take(4), ocelotAck);
    EXPECT_EQ(line.Take(4), ocelotAck);
}

TEST(FaultyLine, TwiceLateIsTwoWritesLateAndHoldsUpWhatFollows) {
    OcelotLine line(Faults(2, ToDriver(Kind::Late, 0)));
    line.Write(ocelotAsksReport);
    line.Write(ocelotAsksReport);
    EXPECT_EQ(line.Take(4), Bytes{});
    line.Write(ocelotAsksReport);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(line.Take(4), ocelotAck) << i;
}

TEST(FaultyLine, APartOfAnAnswerMayBeLate) {
    OcelotLine line({ToDriver(Kind::Late, 3)});
    line.Write(ocelotAsksReport);
    EXPECT_EQ(line.Take(3), Bytes(ocelotAck.begin(), ocelotAck.begin() + 3));
    EXPECT_EQ(line.Take(1), Bytes{});
    line.Write(ocelotAsksReport);
    EXPECT_EQ(line.Take(1), Bytes{ocelotAck.back()});
}

TEST(FaultyLine, NoiseInFrontOfALateAnswerIsInTime) {
    OcelotLine line({ToDriver(Kind::Late, 0), ToDriver(Kind::Insert, 0, noiseByte)});
    line.Write(ocelotAsksReport);
    EXPECT_EQ(line.Take(1), Bytes{noiseByte});
    EXPECT_EQ(line.Take(4), Bytes{});
    line.Write(ocelotAsksReport);
    EXPECT_EQ(line.Take(4), ocelotAck);
}

TEST(FaultyLine, KnowsADataFrameWhateverItsSize) {
    MargayLine line;
    line.Write(margayAsksReport);
    line.Write(Bytes{'0', '1', '0', '0', '3', 'F', 0x0D});  // as to a model that wants no more
    EXPECT_EQ(line.FiscalDataFrames(), 1);
    line.Write(margayAsksStatus);
    line.Write(margayRefuses);
    EXPECT_EQ(line.DataFrames(), 1);
}

// --- what is noted -------------------------------------------------------------------------------

TEST(FaultyLine_Strayed, CountsNoiseThatPassesForAcceptance) {
    MargayLine line({ToDriver(Kind::Insert, 0, noiseByte)});
    line.Write(margayAsksReport);
    line.Take(1);
    EXPECT_EQ(line.Strayed().noise, 1);
    EXPECT_EQ(line.Strayed().stale, 0);
    EXPECT_FALSE(line.Forged().Any());
}

TEST(FaultyLine_Strayed, CountsTheAnswerToAnEarlierFrame) {
    MargayLine line;
    line.Write(margayAsksReport);
    line.Write(margayAsksReport);
    line.Take(1);
    EXPECT_EQ(line.Strayed().stale, 1);
    line.Take(1);  // its own
    EXPECT_EQ(line.Strayed().stale, 1);
    EXPECT_EQ(line.Strayed().noise, 0);
}

TEST(FaultyLine_Strayed, CountsTheStatusOfAnEarlierFrame) {
    MargayLine line;
    line.Write(margayAsksStatus);
    line.Take(1);
    line.Write(margayRefuses);
    line.Take(margayStatusSize);
    EXPECT_EQ(line.Strayed().stale, 1);
}

TEST(FaultyLine_Strayed, DoesNotCountAnAnswerInItsPlaceHoweverGarbled) {
    MargayLine margay({ToDriver(Kind::Substitute, 0, noiseByte)});
    margay.Write(margayAsksReport);
    EXPECT_EQ(margay.Take(1), Bytes{noiseByte});
    EXPECT_FALSE(margay.Strayed().Any());
    OcelotLine ocelot({ToDriver(Kind::Insert, 0, noiseByte)});  // the rest of the answer is dropped
    ocelot.Write(ocelotAsksReport);
    EXPECT_EQ(ocelot.Take(4).front(), noiseByte);
    EXPECT_FALSE(ocelot.Strayed().Any());
}

TEST(FaultyLine_Strayed, DoesNotCountWhatTheDriverTakesForARefusal) {
    MargayLine line({ToDriver(Kind::Insert, 0, nakByte)});
    line.Write(margayAsksReport);
    EXPECT_EQ(line.Take(1), Bytes{nakByte});
    EXPECT_FALSE(line.Strayed().Any());
}

namespace {

/// The strays of a line where that byte arrives in front of the answer to a report's data frame.
Strays StraysOfDataFrame(std::uint8_t noise) {
    MargayLine line({ToDriver(Kind::Insert, 1, noise)});
    line.Write(margayAsksReport);
    line.Take(1);
    line.Write(margayReport);
    EXPECT_EQ(line.Take(1), Bytes{noise});
    EXPECT_EQ(line.DataFrames(), 1);
    return line.Strayed();
}

}  // namespace

TEST(FaultyLine_Strayed, CountsOfWhatAnswersADataFrameOnlyAck) {
    EXPECT_EQ(StraysOfDataFrame(ackByte).noise, 1);
    EXPECT_FALSE(StraysOfDataFrame(noiseByte).Any());  // the driver sends it again
    EXPECT_FALSE(StraysOfDataFrame(nakByte).Any());
}

// --- whole runs ----------------------------------------------------------------------------------

namespace {

/// A Z report on a register whose printer is broken.
Told RunReport(WireFamily family, const Faults& faults) {
    TheLine() = std::make_unique<FaultyLine>(family, DefaultRegister(family), FaultPlan(faults));
    TheLine()->Device().SetPrinterFault(true);
    return RunDriver(RunFolder(family, "REPORT: TYPE=Z\n").Files());
}

/// The position of the answer to the request for the report, from a run without faults in a child.
std::size_t AnswerToReport(WireFamily family) {
    const SharedCount answer;
    const Tally tally = RunCampaign(1, {}, [&](std::size_t) {
        const Told told = RunReport(family, {});
        *answer.Get() = TheLine()->FirstRequest(emulator::Report).toDriver;
        return Judged(told.exitCode == 101 ? Verdict::Failed : Verdict::Violation, 0, 0);
    });
    EXPECT_EQ(tally.failedByCode.size(), 1u) << tally.Text();
    return *answer.Get();
}

void ExpectRefusedUnseen(const Told& told) {
    EXPECT_EQ(told.exitCode, 0);
    EXPECT_EQ(ResultValue(told.result, "Message"), "OK");
    const emulator::Register& device = TheLine()->Device();
    EXPECT_EQ(device.ZReports(), 0);
    const auto& journal = device.Journal();
    const auto report = std::find_if(journal.begin(), journal.end(), [](const auto& acted) {
        return acted.command == emulator::Report;
    });
    ASSERT_NE(report, journal.end());
    EXPECT_FALSE(report->accepted);
    EXPECT_EQ(report->result, emulator::result::PrinterError);
    EXPECT_FALSE(TheLine()->Forged().Any());
}

void ExpectRefusedUnseenAfterNoise(WireFamily family, std::size_t answerSize) {
    const Fault noise = ToDriver(Kind::Insert, AnswerToReport(family), noiseByte);
    ExpectRefusedUnseen(RunReport(family, Faults(answerSize, noise)));
    EXPECT_EQ(TheLine()->Strayed().noise, 1);
    EXPECT_EQ(TheLine()->Strayed().stale, 1);  // the request's ACK, taken for the data frame's
}

void ExpectRefusedUnseenAfterLateAnswer(WireFamily family) {
    ExpectRefusedUnseen(RunReport(family, {ToDriver(Kind::Late, AnswerToReport(family))}));
    EXPECT_EQ(TheLine()->Strayed().noise, 0);
    EXPECT_EQ(TheLine()->Strayed().stale, 2);
}

}  // namespace

TEST(StrayAnswers, NoiseOfOneByteHidesARefusalInMargayFrames) {
    ExpectRefusedUnseenAfterNoise(WireFamily::Margay, 1);
}

TEST(StrayAnswers, NoiseOfFourBytesHidesARefusalInOcelotFrames) {
    ExpectRefusedUnseenAfterNoise(WireFamily::Ocelot, 4);
}

TEST(StrayAnswers, NoiseOfThreeBytesHidesNoRefusalInOcelotFrames) {
    const std::size_t answer = AnswerToReport(WireFamily::Ocelot);
    const Faults noise(3, ToDriver(Kind::Insert, answer, noiseByte));
    EXPECT_EQ(RunReport(WireFamily::Ocelot, noise).exitCode, 101);
    EXPECT_FALSE(TheLine()->Strayed().Any());
}

TEST(StrayAnswers, AnAnswerAfterItsTimeoutShiftsAllOthersInMargayFrames) {
    ExpectRefusedUnseenAfterLateAnswer(WireFamily::Margay);
}

TEST(StrayAnswers, AnAnswerAfterItsTimeoutShiftsAllOthersInOcelotFrames) {
    ExpectRefusedUnseenAfterLateAnswer(WireFamily::Ocelot);
}

// --- the promise and what excuses that it was broken ---------------------------------------------

TEST(BrokenPromise, IsWorkDoneByARunThatEndedWith2) {
    TestLine line(WireFamily::Ocelot);
    const Actions file = {{emulator::OpenCashDrawer, {}}};
    const Told told = {2, false, "[VOLTIS]\nResultCode=2\n"};
    EXPECT_FALSE(BrokenPromise(told, line, file));
    line.Device().Execute(emulator::EnterFiscalMode, 1, Bytes{1});
    line.Device().Execute(emulator::OpenCashDrawer, 2, {});
    const auto breach = BrokenPromise(told, line, file);
    ASSERT_TRUE(breach);
    EXPECT_EQ(breach->what, "1 or 2, but something was done");
    EXPECT_FALSE(breach->byDriverAlone);
}

TEST(BrokenPromise, IsTheDriversAloneWhenTheResultFileSaysOtherThanTheExitCode) {
    TestLine line(WireFamily::Ocelot);
    const auto breach = BrokenPromise({2, false, "[VOLTIS]\nResultCode=0\n"}, line, {});
    ASSERT_TRUE(breach);
    EXPECT_TRUE(breach->byDriverAlone);
}

TEST(Excuse, IsThatAnAnswerWasNotInItsPlace) {
    const Breach breach = {"OK, but not every command exactly once in order", false};
    EXPECT_EQ(Excuse(breach, {}, {.noise = 1, .stale = 1}), "the driver took noise for an answer");
    EXPECT_EQ(Excuse(breach, {}, {.stale = 1}), "the driver took the answer to an earlier frame");
    EXPECT_EQ(Excuse(breach, {}, {}), std::nullopt);
}

TEST(Excuse, IsNoneForWhatTheDriverOwesWhateverItHeard) {
    const Breach breach = {"more frames than allowed", true};
    EXPECT_EQ(Excuse(breach, {.data = 1}, {.noise = 1, .stale = 1}), std::nullopt);
}

TEST(Excuse, IsNeededWhenNoiseHidesThatADataFrameWasGarbled) {
    const MeasuredSale sale(WireFamily::Margay, saleCommands);
    const SharedCount toRegister, toDriver;
    RunCampaign(1, {}, [&](std::size_t) {
        const Outcome outcome = sale.RunWith({});
        const Position request = TheLine()->FirstRequest(emulator::DeptSale);
        *toRegister.Get() = request.toRegister;
        *toDriver.Get() = request.toDriver;
        return outcome;
    });
    const std::size_t dataFrame = *toRegister.Get() + emulator::Wire::kRequestSize;
    const Outcome outcome = sale.RunWith({ToDriver(Kind::Insert, *toDriver.Get(), noiseByte),
                                          {Direction::ToRegister, Kind::Flip, 0x01, dataFrame}});
    EXPECT_EQ(outcome.verdict, Verdict::Excused);
    EXPECT_STREQ(outcome.note, "the driver took noise for an answer");
}

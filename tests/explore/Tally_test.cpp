// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// How what follows from decisions is added up.
#include "tests/explore/Tally.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <exception>

using namespace explore;

namespace {

const Ending good = {{0, 0}}, bad = {{2, 0}, {0, 1}};

/// What a decision leads to by itself.
Tally After(Fault fault, std::size_t distance, const Tally& rest, const Frames& frames = {}) {
    Tally tally;
    tally.Add(fault, distance, frames, rest);
    return tally;
}

Frames InOneRun(std::size_t count) {
    Frames frames;
    for (std::size_t i = 0; i < count; ++i) frames.Count();
    return frames;
}

const Tally::Row& RowOf(const Tally& tally, const Ending& ending) {
    return *std::find_if(tally.Rows().begin(), tally.Rows().end(),
                         [&](const Tally::Row& row) { return row.ending == ending; });
}

Schedule ExampleOf(const Tally& tally, const Ending& ending, std::size_t place = 0) {
    return RowOf(tally, ending).Example(place);
}

/// Two ends, several faults, races and runs.
Tally Mixed() {
    Tally tally = After(Fault::Lost, 3, After(Fault::Drained, 1, Tally::Of(bad)), InOneRun(5));
    Frames frames = InOneRun(2);
    frames.EndRun();
    frames.Count();
    tally.Add(Fault::None, 4, frames, After(Fault::Late, 2, Tally::Of(good), InOneRun(6)));
    tally.Add(Fault::Noise, 1, {}, Tally::Of(good));
    return tally;
}

}  // namespace

// --- counts --------------------------------------------------------------------------------------

TEST(Tally, AnEndIsOneScheduleWithoutFaults) {
    const Tally end = Tally::Of(bad);
    ASSERT_EQ(end.Rows().size(), 1U);
    EXPECT_EQ(end.Rows()[0].ending, bad);
    EXPECT_EQ(end.Rows()[0].counts, (Counts{1}));
    EXPECT_EQ(end.Rows()[0].fewest, 0);
    EXPECT_TRUE(ExampleOf(end, bad).empty());
}

TEST(Tally, AFaultShiftsTheCountsByOne) {
    Tally rest = Tally::Of(good);
    rest.Add(Fault::Late, 1, {}, Tally::Of(good));
    EXPECT_EQ(rest.Sum(), (Counts{1, 1}));
    EXPECT_EQ(After(Fault::Lost, 1, rest).Sum(), (Counts{0, 1, 1}));
}

TEST(Tally, NoFaultAndARaceShiftNothing) {
    const Tally rest = After(Fault::Lost, 1, Tally::Of(good));
    EXPECT_EQ(After(Fault::None, 1, rest).Sum(), (Counts{0, 1}));
    EXPECT_EQ(After(Fault::Drained, 1, rest).Sum(), (Counts{0, 1}));
}

TEST(Tally, CountsOfTheSameEndAreAddedAndOfOthersKeptApart) {
    Tally tally = Tally::Of(good);
    tally.Add(Fault::None, 1, {}, Tally::Of(good));
    tally.Add(Fault::Lost, 1, {}, Tally::Of(bad));
    ASSERT_EQ(tally.Rows().size(), 2U);
    EXPECT_EQ(RowOf(tally, good).counts, (Counts{2}));
    EXPECT_EQ(RowOf(tally, bad).counts, (Counts{0, 1}));
    EXPECT_EQ(tally.Sum(), (Counts{2, 1}));
}

TEST(Tally, TheMostFaultsAreTheLastThatAreCounted) {
    Tally tally = Tally::Of(good);
    for (int i = 0; i < mostFaults; ++i) tally = After(Fault::Lost, 1, tally);
    EXPECT_EQ(tally.Sum().back(), 1U);
    EXPECT_EQ(After(Fault::Lost, 1, tally).Sum(), Counts{});
}

// --- examples ------------------------------------------------------------------------------------

TEST(Tally, AnExampleHasItsFaultsAtTheirPlaces) {
    const Tally lost = After(Fault::Lost, 3, Tally::Of(bad));
    EXPECT_EQ(ExampleOf(lost, bad, 10), (Schedule{{10, Fault::Lost}}));
    const Tally after = After(Fault::None, 4, lost);
    EXPECT_EQ(ExampleOf(after, bad, 10), (Schedule{{14, Fault::Lost}}));
    EXPECT_EQ(ExampleOf(After(Fault::None, 5, after), bad), (Schedule{{9, Fault::Lost}}));
    const Tally both = After(Fault::Drained, 2, after);
    EXPECT_EQ(ExampleOf(both, bad), (Schedule{{0, Fault::Drained}, {6, Fault::Lost}}));
    EXPECT_EQ(RowOf(both, bad).fewest, 1);
}

TEST(Tally, TheExampleIsOneWithTheFewestFaults) {
    const Tally one = After(Fault::Lost, 1, Tally::Of(bad));
    Tally tally = After(Fault::Late, 1, one);
    EXPECT_EQ(RowOf(tally, bad).fewest, 2);
    tally.Add(Fault::Garbled, 1, {}, Tally::Of(bad));
    EXPECT_EQ(RowOf(tally, bad).fewest, 1);
    EXPECT_EQ(ExampleOf(tally, bad), (Schedule{{0, Fault::Garbled}}));
    tally.Add(Fault::Noise, 1, {}, one);
    EXPECT_EQ(ExampleOf(tally, bad), (Schedule{{0, Fault::Garbled}}));
}

TEST(Tally, AmongExamplesWithAsManyFaultsTheFirstStays) {
    Tally tally = After(Fault::Garbled, 1, Tally::Of(bad));
    tally.Add(Fault::Noise, 1, {}, Tally::Of(bad));
    EXPECT_EQ(ExampleOf(tally, bad), (Schedule{{0, Fault::Garbled}}));
}

// --- frames --------------------------------------------------------------------------------------

TEST(Frames, AreCountedByRuns) {
    Frames frames = InOneRun(2);
    EXPECT_FALSE(frames.runEnded);
    frames.EndRun();
    for (int i = 0; i < 3; ++i) frames.Count();
    EXPECT_EQ(frames.last, 3U);
    EXPECT_EQ(frames.longest, 0U);
    frames.EndRun();
    frames.Count();
    frames.EndRun();  // a shorter one
    EXPECT_TRUE(frames.runEnded);
    EXPECT_EQ(frames.first, 2U);
    EXPECT_EQ(frames.longest, 3U);
    EXPECT_EQ(frames.last, 0U);
}

TEST(Tally, FramesOfARunThatGoesOnAreAdded) {
    const Tally rest = After(Fault::None, 1, Tally::Of(good), InOneRun(7));
    EXPECT_EQ(After(Fault::None, 1, rest, InOneRun(5)).MostFrames(), 12U);
}

TEST(Tally, FramesAfterTheEndOfARunAreOfAnother) {
    Frames frames = InOneRun(10);
    frames.EndRun();
    for (int i = 0; i < 2; ++i) frames.Count();
    const Tally rest = After(Fault::None, 1, Tally::Of(good), InOneRun(7));
    const Tally tally = After(Fault::None, 1, rest, frames);
    EXPECT_EQ(tally.MostFrames(), 10U);  // and 9 of the other run
    EXPECT_EQ(After(Fault::None, 1, tally, InOneRun(1)).MostFrames(), 11U);
    const Tally longer = After(Fault::None, 1, rest, [&] {
        for (int i = 0; i < 2; ++i) frames.Count();
        return frames;
    }());
    EXPECT_EQ(longer.MostFrames(), 11U);  // 4 + 7 of the other run
    EXPECT_EQ(After(Fault::None, 1, longer).MostFrames(), 11U);
}

TEST(Tally, AWholeRunBetweenTwoPlacesCounts) {
    Frames frames;
    frames.EndRun();
    for (int i = 0; i < 20; ++i) frames.Count();
    frames.EndRun();
    EXPECT_EQ(After(Fault::None, 1, Tally::Of(good), frames).MostFrames(), 20U);
}

TEST(Tally, TheMostFramesAreThoseOfTheLongestBranch) {
    Tally tally = After(Fault::None, 1, Tally::Of(good), InOneRun(7));
    tally.Add(Fault::Lost, 1, InOneRun(9), Tally::Of(good));
    tally.Add(Fault::Late, 1, InOneRun(3), Tally::Of(good));
    EXPECT_EQ(tally.MostFrames(), 9U);
}

// --- as text -------------------------------------------------------------------------------------

TEST(Tally, IsReadAsItIsWritten) {
    const Tally tally = Mixed();
    const Tally again = Tally::Parse(tally.Text());
    EXPECT_EQ(again.Text(), tally.Text());
    EXPECT_TRUE(again.SaysTheSameAs(tally));
    EXPECT_EQ(again.MostFrames(), 7U);
    EXPECT_EQ(ExampleOf(again, bad, 5), ExampleOf(tally, bad, 5));
    EXPECT_EQ(ExampleOf(again, bad), (Schedule{{0, Fault::Lost}, {3, Fault::Drained}}));
    EXPECT_EQ(RowOf(again, good).counts, (Counts{0, 2}));
}

TEST(Tally, ThatWasReadIsAddedLikeTheOneThatWasWritten) {
    const Tally tally = Mixed(), again = Tally::Parse(tally.Text());
    const Frames frames = InOneRun(4);
    EXPECT_EQ(After(Fault::Garbled, 2, again, frames).Text(),
              After(Fault::Garbled, 2, tally, frames).Text());
}

TEST(Tally, IsNotReadFromAnythingElse) {
    const std::string text = Mixed().Text();
    for (const std::string& wrong :
         {std::string(), text.substr(1), text.substr(0, text.size() / 2), std::string("{}")})
        EXPECT_THROW(Tally::Parse(wrong), std::exception) << wrong;
}

// --- comparing -----------------------------------------------------------------------------------

TEST(Tally, SaysTheSameWithOtherExamplesAndAnotherOrder) {
    Tally one = After(Fault::Lost, 1, Tally::Of(good)),
          other = After(Fault::Late, 1, Tally::Of(bad));
    one.Add(Fault::Late, 1, {}, Tally::Of(bad));
    other.Add(Fault::Garbled, 7, {}, Tally::Of(good));
    EXPECT_NE(one.Text(), other.Text());
    EXPECT_TRUE(one.SaysTheSameAs(other));
}

TEST(Tally, DoesNotSayTheSameWithOtherEndsCountsOrFrames) {
    const Tally tally = After(Fault::Lost, 1, Tally::Of(good), InOneRun(3));
    const auto differs = [&](const Tally& other) {
        EXPECT_FALSE(tally.SaysTheSameAs(other));
        EXPECT_FALSE(other.SaysTheSameAs(tally));
    };
    EXPECT_TRUE(tally.SaysTheSameAs(After(Fault::Late, 1, Tally::Of(good), InOneRun(3))));
    differs(After(Fault::Lost, 1, Tally::Of(bad), InOneRun(3)));
    differs(After(Fault::None, 1, Tally::Of(good), InOneRun(3)));
    differs(After(Fault::Lost, 1, Tally::Of(good), InOneRun(4)));
    Tally more = tally;
    more.Add(Fault::None, 1, {}, Tally::Of(bad));
    differs(more);
    more = tally;
    more.Add(Fault::Late, 1, {}, Tally::Of(good));
    differs(more);
}

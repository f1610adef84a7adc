// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The explorer's findings about the exchange, and that the explorer itself loses no schedule.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/explore/Campaign.h"
#include "tests/explore/Drawing.h"
#include "tests/explore/ForkedDriver.h"
#include "tests/explore/Playing.h"
#include "tests/explore/Search.h"
#include "tests/support/TempDir.h"

using namespace explore;

namespace {

Scenario Of(const char* family, const char* files, const char* habit = "default") {
    return ParseScenario(family, files, habit);
}

// In processes of its own.
Tally Explore(const Scenario& scenario, int faults, FaultSet kinds = FaultSet::All()) {
    CampaignPlan plan;
    plan.scenarios = {scenario};
    plan.limits = {faults, kinds, true};
    plan.jobs = 1;
    return RunCampaign(plan).at(0).tally;
}

bool HasIssue(const Tally::Row& row, int exitCode, Issue issue) {
    for (const RunEnd& end : row.ending)
        if (end.exitCode == exitCode && end.Has(issue)) return true;
    return false;
}

/// Schedules with exactly so many faults in which a run ends with that code and that issue.
std::uint64_t CountOf(const Tally& tally, int exitCode, Issue issue, std::size_t faults) {
    std::uint64_t count = 0;
    for (const Tally::Row& row : tally.Rows())
        if (HasIssue(row, exitCode, issue)) count += row.counts.at(faults);
    return count;
}

/// Schedules with one fault in which a run ends with that code.
std::uint64_t CountOf(const Tally& tally, int exitCode) {
    std::uint64_t count = 0;
    for (const Tally::Row& row : tally.Rows())
        if (std::ranges::any_of(row.ending,
                                [&](const RunEnd& e) { return e.exitCode == exitCode; }))
            count += row.counts.at(1);
    return count;
}

/// The same for schedules in which both kinds of fault happen, and no other.
std::uint64_t CountWithBoth(const Scenario& scenario, Fault one, Fault other, Issue issue) {
    const auto count = [&](FaultSet kinds) {
        return CountOf(Explore(scenario, 2, kinds), 0, issue, 2);
    };
    return count({one, other}) - count({one}) - count({other});
}

/// The lines that the action has written, in a process of its own.
template <typename Action>
std::vector<std::string> InChild(Action action) {
    const TempDir folder;
    const pid_t child = fork();
    if (child == 0) {
        std::ofstream out(folder.File("lines"));
        action(out);
        out.close();
        _exit(out ? 0 : 1);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    std::istringstream all(ReadWholeFile(folder.File("lines")));
    std::vector<std::string> lines;
    for (std::string line; std::getline(all, line);) lines.push_back(line);
    return lines;
}

/// Exit code 0, and a command is missing.
RunEnd Missing() {
    RunEnd end{0, 0};
    end.Add(Issue::Missing);
    return end;
}

class Families : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(Explore, Families, testing::Values("ocelot", "margay"),
                         [](const auto& each) { return std::string(each.param); });

}  // namespace

// --- what can go wrong ---------------------------------------------------------------------------

TEST_P(Families, NoiseBeforeTheAnswerToARequestHidesThatTheReportIsRefused) {
    const Scenario report = Of(GetParam(), "report");
    EXPECT_GT(CountWithBoth(report, Fault::Noise, Fault::Refused, Issue::Missing), 0U);
    EXPECT_GT(CountWithBoth(report, Fault::Noise, Fault::Refused, Issue::Refused), 0U);
}

TEST_P(Families, NoiseBeforeTheAnswerToARequestHidesThatTheDataFrameIsGarbled) {
    EXPECT_GT(CountWithBoth(Of(GetParam(), "report"), Fault::Noise, Fault::Garbled, Issue::Missing),
              0U);
}

TEST_P(Families, ALateAnswerToARequestHidesThatTheDataFrameIsRefusedOrGarbled) {
    const Scenario report = Of(GetParam(), "report");
    EXPECT_GT(CountWithBoth(report, Fault::Late, Fault::Refused, Issue::Missing), 0U);
    EXPECT_GT(CountWithBoth(report, Fault::Late, Fault::Garbled, Issue::Missing), 0U);
}

TEST_P(Families, AGarbledEndOfFileMakesTheSameCommandOfTheNextFileInFiscalModeARepetition) {
    const Tally tally = Explore(Of(GetParam(), "again"), 1, {Fault::Garbled});
    EXPECT_EQ(CountOf(tally, 0, Issue::Missing, 1), 1U);
}

TEST_P(Families, AGarbledEndOfFileMakesTheSameSaleOfTheNextFileARepetition) {
    const Tally tally = Explore(Of(GetParam(), "shared"), 1, {Fault::Garbled});
    EXPECT_EQ(CountOf(tally, 0, Issue::Missing, 1), 1U);
}

TEST_P(Families, ARegisterThatForgetsAtAStatusReadActsTwiceAfterALostAcknowledgement) {
    const Tally tally = Explore(Of(GetParam(), "report", "forgets-at-status"), 1, {Fault::Lost});
    EXPECT_GT(CountOf(tally, 0, Issue::Twice, 1), 0U);
    const Tally other = Explore(Of(GetParam(), "report"), 1, {Fault::Lost});
    EXPECT_EQ(CountOf(other, 0, Issue::Twice, 1), 0U);
}

TEST_P(Families, LeavingFiscalModeCarriesOutAPendingCommandWithoutParameters) {
    const Scenario blocked = Of(GetParam(), "blocked");
    const Tally tally = Explore(blocked, 4, {Fault::Lost, Fault::Garbled});
    EXPECT_EQ(CountOf(tally, 2, Issue::Acted, 3), 0U);
    EXPECT_GT(CountOf(tally, 2, Issue::Acted, 4), 0U);
}

TEST_P(Families, ALostAnswerToTheEndOfEnteringFiscalModeCostsTheNextRunNothing) {
    for (const char* files : {"drawer", "report", "sale"}) {
        const Tally tally = Explore(Of(GetParam(), files, "number-only"), 1);
        EXPECT_GT(CountOf(tally, 2), 0U);
        EXPECT_EQ(CountOf(tally, 0, Issue::Missing, 1), 0U);
        EXPECT_EQ(CountOf(tally, 101, Issue::NoBeginning, 1), 0U);
    }
}

// --- what cannot ---------------------------------------------------------------------------------

TEST_P(Families, NoSingleFaultMisleadsARunThatBeginsByEnteringFiscalMode) {
    for (const FileSet& files : FileSets()) {
        const Tally tally = Explore(Of(GetParam(), files.word.data()), 1);
        for (const Tally::Row& row : tally.Rows())
            for (const RunEnd& end : row.ending)
                EXPECT_TRUE(end.issues == 0 || (files.files.size() > 1 && end == Missing()))
                    << files.word << ": " << EndingText(row.ending);
    }
}

TEST_P(Families, NoTwoFaultsMakeTheDefaultRegisterActTwiceOnASale) {
    const Tally tally = Explore(Of(GetParam(), "sale"), 2);
    for (const int code : {0, 1, 2, 101})
        for (const std::size_t faults : {1U, 2U}) {
            EXPECT_EQ(CountOf(tally, code, Issue::Twice, faults), 0U) << code;
            EXPECT_EQ(CountOf(tally, code, Issue::Alien, faults), 0U) << code;
        }
}

TEST_P(Families, NoRunWritesMoreFramesThanItsBound) {
    const std::map<std::string, std::size_t> commands = {
        {"drawer", 1}, {"blocked", 1},  {"again", 1}, {"report", 1},
        {"sale", 2},   {"discount", 4}, {"shared", 2}};
    for (const FileSet& files : FileSets()) {
        const std::size_t n = commands.at(std::string(files.word));
        const std::size_t most = Explore(Of(GetParam(), files.word.data()), 1).MostFrames();
        EXPECT_LE(most, static_cast<std::size_t>(faults::MostFrames(n))) << files.word;
        EXPECT_GT(most, 15U) << files.word;
    }
}

// The campaigns of explore --verdicts cover all scenarios; these are what they rest on.
class VerdictsOf : public testing::TestWithParam<const char*> {
  protected:
    static Tally Told(const char* files, const char* habit, bool habitTold, int faults) {
        Scenario scenario = Of(GetParam(), files, habit);
        scenario.telling = Telling::WithStatus;
        scenario.habitTold = habitTold;
        return Explore(scenario, faults);
    }
    static std::uint64_t Wrong(const Tally& tally, std::size_t faults) {
        std::uint64_t count = 0;
        for (const Tally::Row& row : tally.Rows())
            if (std::ranges::any_of(row.ending,
                                    [](const RunEnd& end) { return end.Has(Issue::Untold); }))
                count += row.counts.at(faults);
        return count;
    }
    static std::uint64_t Unknown(const Tally& tally, std::size_t faults) {
        using Known = Verdicts::Known;
        std::uint64_t count = 0;
        for (const Tally::Row& row : tally.Rows())
            if (std::ranges::any_of(row.ending, [](const RunEnd& end) {
                    return end.verdicts.withStatus == Known::Unknown;
                }))
                count += row.counts.at(faults);
        return count;
    }
};
INSTANTIATE_TEST_SUITE_P(Explore, VerdictsOf, testing::Values("ocelot", "margay"));

// An Ocelot answer has check bytes; a Margay answer is in doubt when it comes among other bytes.
TEST_P(VerdictsOf, AreCertainAfterNearlyAnySingleFaultOfASale) {
    const Tally tally = Told("sale", "default", true, 1);
    EXPECT_GT(tally.Sum().at(1), 500U);
    EXPECT_EQ(Wrong(tally, 1), 0U);
    if (std::string(GetParam()) == "ocelot") {
        EXPECT_EQ(Unknown(tally, 1), 0U);
    } else {
        EXPECT_LT(Unknown(tally, 1) * 100, tally.Sum().at(1));
    }
}

TEST_P(VerdictsOf, AreFoundToBeWrongOfARegisterWithAHabitThatTheyDoNotKnowOf) {
    for (const char* const habit : {"forgets-at-request", "forgets-at-status"}) {
        EXPECT_GT(Wrong(Told("sale", habit, false, 1), 1), 0U) << habit;
        EXPECT_EQ(Wrong(Told("sale", habit, true, 1), 1), 0U) << habit;
    }
}

TEST_P(VerdictsOf, OfARegisterThatAnswersStrayEofsAreWrongAfterTwoFaultsWhenTheyAreNotToldOfIt) {
    EXPECT_GT(Wrong(Told("sale", "answers-stray-eof", false, 2), 2), 0U);
}

TEST(Expectation, IsWhatTheFilesSay) {
    const std::vector<std::string> found = InChild([&](std::ostream& out) {
        for (const char* files : {"drawer", "again", "report", "sale", "discount", "shared"}) {
            ForkedDriver driver;
            for (const Actions& actions : ExpectedOf(driver, Of("ocelot", files)))
                for (const Action& action : actions)
                    out << files << ' ' << std::hex << int{action.command} << '\n';
        }
    });
    EXPECT_THAT(found, testing::ElementsAre("drawer bf", "again bf", "again bf", "report c5",
                                            "sale b3", "sale bc", "discount b3", "discount bb",
                                            "discount b7", "discount bc", "shared b3", "shared b3",
                                            "shared b3", "shared bc"));
}

// --- the explorer --------------------------------------------------------------------------------

TEST_P(Families, AScheduleEndsAmongOthersAsItDoesAlone) {
    const Scenario scenario = Of(GetParam(), "drawer");
    Limits limits;
    limits.reduce = false;
    std::vector<std::string> alone;
    for (const auto& [schedule, ending] : SearchAlone(scenario, limits))
        alone.push_back(ScheduleText(schedule) + ": " + EndingText(ending));
    EXPECT_GT(alone.size(), 500U);
    const std::vector<std::string> together = InChild([&](std::ostream& out) {
        Watch watch;
        watch.each = [&](const Schedule& schedule, const Ending& ending) {
            out << ScheduleText(schedule) << ": " << EndingText(ending) << "\n";
        };
        SearchHere(scenario, limits, watch);
    });
    EXPECT_THAT(together, testing::UnorderedElementsAreArray(alone));
}

TEST_P(Families, AnExampleCanBePlayedAgain) {
    const Scenario scenario = Of(GetParam(), "report");
    const Tally tally = Explore(scenario, 2);
    EXPECT_GT(tally.Rows().size(), 5U);
    for (const Tally::Row& row : tally.Rows()) {
        const std::vector<std::string> again = InChild([&](std::ostream& out) {
            out << EndingText(Replay(scenario, row.Example(0))) << "\n";
        });
        EXPECT_THAT(again, testing::ElementsAre(EndingText(row.ending)))
            << ScheduleText(row.Example(0));
    }
}

TEST(Campaign, GoesOnFromWhatWasKept) {
    const TempDir folder;
    CampaignPlan plan;
    plan.scenarios = {Of("margay", "drawer")};
    plan.limits.faults = 2;
    plan.folder = folder.Path();
    const Explored first = RunCampaign(plan).at(0);
    EXPECT_GT(first.states, 0U);
    const Explored second = RunCampaign(plan).at(0);  // nothing is left to do
    EXPECT_EQ(second.tally.Text(), first.tally.Text());
    EXPECT_EQ(second.seconds, first.seconds);
}

TEST(Search, TakesUpWhatFollowsAPlaceFromAnEarlierSearch) {
    const Scenario scenario = Of("margay", "drawer");
    const Limits limits{2, FaultSet::All(), true};
    const TempDir folder;
    const std::vector<std::string> found = InChild([&](std::ostream& out) {
        Tally middle;
        Watch watch;
        watch.done = [&](std::size_t place, const Tally& rest) {
            if (place == 10) middle = rest;
        };
        const Found whole = SearchHere(scenario, limits, watch);
        out << whole.tally.Text() << "\n" << whole.states << "\n" << middle.Text() << "\n";
    });
    ASSERT_EQ(found.size(), 3U);
    const std::vector<std::string> again = InChild([&](std::ostream& out) {
        const Tally middle = Tally::Parse(found[2]);
        Watch watch;
        watch.known = [&](std::size_t place) { return place == 10 ? &middle : nullptr; };
        const Found rest = SearchHere(scenario, limits, watch);
        out << rest.tally.Text() << "\n" << rest.states << "\n";
    });
    ASSERT_EQ(again.size(), 2U);
    EXPECT_EQ(again[0], found[0]);
    EXPECT_LT(std::stoull(again[1]) * 2, std::stoull(found[1]));
}

// --- words ---------------------------------------------------------------------------------------

TEST(Story, TellsNoiseThatHidesARefusal) {
    for (const char* family : {"ocelot", "margay"}) {
        const std::vector<std::string> lines = InChild([&](std::ostream& out) {
            Story story;
            const Ending ending =
                Replay(Of(family, "report"), {{19, Fault::Noise}, {21, Fault::Refused}}, &story);
            out << FaultsInWords(story) << '\n' << EndingText(ending) << '\n';
        });
        EXPECT_THAT(lines,
                    testing::ElementsAre(
                        "The ACK to the request of REPORT comes after noise; the data frame of "
                        "REPORT is refused by the register.",
                        "0 (a command is missing, a command was refused)"));
    }
}

TEST(Story, TellsALateAnswerThatHidesAGarbledFrame) {
    const std::vector<std::string> lines = InChild([&](std::ostream& out) {
        Story story;
        Replay(Of("margay", "report"), {{19, Fault::Late}, {23, Fault::Garbled}}, &story);
        out << StoryText(story);
    });
    EXPECT_THAT(lines, testing::IsSupersetOf({std::string("   19 <- ACK  *** late"),
                                              std::string("         the driver takes: time-out"),
                                              std::string("   23 -> data REPORT  *** garbled"),
                                              std::string("   24 <- NAK"),
                                              std::string("         the driver takes: NAK")}));
}

TEST(Story, IsDrawnForLightAndDarkPages) {
    const std::vector<std::string> lines = InChild([&](std::ostream& out) {
        Story story;
        Replay(Of("margay", "drawer"), {{15, Fault::Lost}}, &story);
        out << DrawStory(story, "a < b");
    });
    const auto count = [&](const std::string& text) {
        return std::ranges::count_if(
            lines, [&](const std::string& line) { return line.find(text) != std::string::npos; });
    };
    EXPECT_EQ(lines.front().substr(0, 5), "<svg ");
    EXPECT_EQ(lines.back(), "</svg>");
    EXPECT_EQ(count("a &lt; b"), 1);
    EXPECT_EQ(count(">lost<"), 1);
    EXPECT_EQ(count(">time-out<"), 1);
    EXPECT_EQ(count("ENTER, as it should be"), 1);
    EXPECT_EQ(count("prefers-color-scheme: dark"), 1);
}

TEST(Schedule, IsReadAsItIsWritten) {
    const Schedule schedule = {{7, Fault::Lost}, {12, Fault::PowerFails}, {13, Fault::Drained}};
    EXPECT_EQ(ScheduleText(schedule), "7:lost 12:power-fails 13:drained");
    EXPECT_EQ(ParseSchedule(ScheduleText(schedule)), schedule);
    EXPECT_EQ(ParseSchedule("none"), Schedule());
    EXPECT_EQ(ParseSchedule(""), Schedule());
}

TEST(Schedule, NamesTheWordThatIsWrong) {
    for (const char* wrong : {"7", "7:", ":lost", "x:lost", "7:lot", "7:none", "7x:lost"}) {
        try {
            ParseSchedule("3:lost " + std::string(wrong));
            ADD_FAILURE() << wrong;
        } catch (const std::runtime_error& problem) {
            EXPECT_NE(std::string(problem.what()).find("'" + std::string(wrong) + "'"),
                      std::string::npos);
        }
    }
    EXPECT_THROW(ParseSchedule("7:lost 7:late"), std::runtime_error);
}

TEST_P(Families, LeavingOutKnownStatesLosesNoSchedule) {
    CampaignPlan plan;
    plan.scenarios = {Of(GetParam(), "blocked")};
    plan.limits.faults = 2;
    const Explored reduced = RunCampaign(plan).at(0);
    plan.limits.reduce = false;
    const Explored plain = RunCampaign(plan).at(0);
    EXPECT_LT(reduced.states * 2, plain.states);
    EXPECT_TRUE(plain.tally.SaysTheSameAs(reduced.tally));
    const Explored less = [&] {
        plan.limits.kinds = {Fault::Lost};
        return RunCampaign(plan).at(0);
    }();
    EXPECT_FALSE(plain.tally.SaysTheSameAs(less.tally));
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What is written into the tree is found again there, and nothing else is.
#include "tests/explore/Pages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/TempDir.h"

using namespace explore;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

namespace fs = std::filesystem;

constexpr char page[] = "docs/reliability.md";
constexpr char oneFault[] = "docs/explored/forgets-at-request-0-twice.svg";
constexpr char twoFaults[] = "docs/explored/default-0-refused.svg";
constexpr char beginMark[] = "<!-- written by the explorer: begin -->\n";
constexpr char endMark[] = "<!-- written by the explorer: end -->\n";

/// A register that keeps the promise with one fault and not with two, and one that does not with
/// one.
std::vector<Explored> ExploredWith(int faults) {
    CampaignPlan plan;
    plan.scenarios = {ParseScenario("margay", "again", "default"),
                      ParseScenario("margay", "again", "forgets-at-request")};
    plan.limits.faults = faults;
    plan.jobs = 1;
    return RunCampaign(plan);
}

/// A tree with a page that has a place for the table.
class Pages : public testing::Test {
  protected:
    Pages() {
        fs::create_directories(folder_.File("docs"));
        folder_.Write(page, std::string("before\n") + beginMark + "stale\n" + endMark + "after\n");
    }
    /// The page and the pictures of what was found with up to two faults.
    void WriteAll() { WritePages(Two(), folder_.Path()); }
    std::vector<std::string> Differences() const {
        return CompareWithPages(Two(), folder_.Path(), 2);
    }
    std::vector<std::string> DifferencesWithOneFault() const {
        return CompareWithPages(ExploredWith(1), folder_.Path(), 1);
    }
    static const std::vector<Explored>& Two() {
        static const std::vector<Explored> two = ExploredWith(2);
        return two;
    }
    std::string Read(const std::string& name) const { return ReadWholeFile(folder_.File(name)); }
    /// Once, where it is last.
    void Change(const std::string& name, const std::string& from, const std::string& to) {
        std::string text = Read(name);
        const std::size_t at = text.rfind(from);
        ASSERT_NE(at, std::string::npos) << from;
        folder_.Write(name, text.replace(at, from.size(), to));
    }

    const TempDir folder_;
};

}  // namespace

TEST_F(Pages, WhatWasWrittenIsNoDifference) {
    WriteAll();
    EXPECT_THAT(Differences(), IsEmpty());
}

TEST_F(Pages, OnlyThePlaceBetweenTheMarksIsWritten) {
    WriteAll();
    const std::string text = Read(page);
    EXPECT_TRUE(text.starts_with(std::string("before\n") + beginMark + "| Exit code |")) << text;
    EXPECT_TRUE(text.ends_with(std::string("\n") + endMark + "after\n")) << text;
    EXPECT_THAT(text, testing::Not(HasSubstr("stale")));
    EXPECT_THAT(text, HasSubstr("| nothing was done twice | holds | 1 fault |"));
    EXPECT_THAT(text, HasSubstr("](explored/forgets-at-request-0-twice.svg)"));
    EXPECT_TRUE(Read(oneFault).starts_with("<svg "));
}

TEST_F(Pages, PicturesOfEarlierFindingsAreRemoved) {
    fs::create_directories(folder_.File("docs/explored"));
    folder_.Write("docs/explored/old.svg", "<svg/>");
    WriteAll();
    EXPECT_FALSE(fs::exists(folder_.File("docs/explored/old.svg")));
}

TEST_F(Pages, APageWithoutTheMarksIsNotWritten) {
    for (const std::string& wrong :
         {std::string("no marks\n"), std::string(beginMark), std::string(endMark) + beginMark}) {
        folder_.Write(page, wrong);
        EXPECT_THROW(WriteAll(), std::runtime_error) << wrong;
        EXPECT_THROW(Differences(), std::runtime_error) << wrong;
        EXPECT_EQ(Read(page), wrong);
    }
}

TEST_F(Pages, AChangedCellIsADifference) {
    WriteAll();
    Change(page, "| holds | 1 fault |", "| holds | 2 faults |");
    EXPECT_THAT(Differences(),
                ElementsAre(testing::AllOf(HasSubstr(page), HasSubstr("| holds | 2 faults |"),
                                           HasSubstr("| holds | 1 fault |"))));
    EXPECT_EQ(DifferencesWithOneFault().size(), 1U);
}

TEST_F(Pages, AChangedWordOfAnExampleIsADifference) {
    WriteAll();
    Change(page, "The runs end with", "The runs ended with");
    EXPECT_THAT(Differences(), ElementsAre(HasSubstr("The runs ended with")));
}

TEST_F(Pages, ALineTooManyOrTooFewIsADifference) {
    WriteAll();
    Change(page, endMark, std::string("more\n") + endMark);
    EXPECT_THAT(Differences(), ElementsAre(HasSubstr("says: more\nfound: (nothing)")));
    Change(page, std::string("more\n"), "");
    EXPECT_THAT(Differences(), IsEmpty());
    const std::size_t last = Read(page).rfind("  [Picture]");
    Change(page, Read(page).substr(last, Read(page).rfind(endMark) - last), "");
    EXPECT_THAT(Differences(), ElementsAre(HasSubstr("says: (nothing)\nfound:   [Picture]")));
}

TEST_F(Pages, AChangedPictureIsADifference) {
    WriteAll();
    Change(oneFault, "</svg>", "<!-- --></svg>");
    EXPECT_THAT(Differences(), ElementsAre(HasSubstr(oneFault)));
    EXPECT_THAT(DifferencesWithOneFault(), ElementsAre(HasSubstr(oneFault)));
}

TEST_F(Pages, AMissingPictureIsADifference) {
    WriteAll();
    fs::remove(folder_.File(oneFault));
    EXPECT_THAT(Differences(), ElementsAre(HasSubstr(oneFault)));
}

TEST_F(Pages, WhatNeedsMoreFaultsThanWereExploredIsNotLookedAt) {
    WriteAll();
    ASSERT_TRUE(fs::remove(folder_.File(twoFaults)));
    Change(page, "default: not \"the register refused", "Default: not \"the register refused");
    EXPECT_EQ(Differences().size(), 2U);
    EXPECT_THAT(DifferencesWithOneFault(), IsEmpty());
    Change(page, "| 2 faults |", "| holds |");
    EXPECT_EQ(Differences().size(), 3U);
    EXPECT_THAT(DifferencesWithOneFault(), IsEmpty());
}

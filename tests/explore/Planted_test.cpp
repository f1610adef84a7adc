// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The driver with one deliberate fault in its exchange (see CMakeLists.txt): the explorer finds it.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>

#include "tests/explore/Campaign.h"

using namespace explore;

namespace {

/// The fewest faults with which a run of these files has that issue in both families; more than
/// mostFaults for none. Shows a schedule of each.
int FewestFor(Issue issue, const char* files, const char* habit, int faults) {
    CampaignPlan plan;
    plan.scenarios = {ParseScenario("ocelot", files, habit), ParseScenario("margay", files, habit)};
    plan.limits.faults = faults;
    int most = 0;
    for (const Explored& one : RunCampaign(plan)) {
        const Tally::Row* shortest = nullptr;
        for (const Tally::Row& row : one.tally.Rows())
            for (const RunEnd& end : row.ending)
                if (end.Has(issue) && (shortest == nullptr || row.fewest < shortest->fewest))
                    shortest = &row;
        most = std::max(most, shortest == nullptr ? mostFaults + 1 : shortest->fewest);
        if (shortest == nullptr) continue;
        std::cout << one.scenario.Name() << " " << ScheduleText(shortest->Example(0)) << ": "
                  << EndingText(shortest->ending) << "\n";
    }
    return most;
}

}  // namespace

#if defined(PLANTED_NUMBER)
TEST(Planted, ANumberThatIsRaisedOnARetryIsFoundWithOneFault) {
    EXPECT_EQ(FewestFor(Issue::Twice, "report", "default", 1), 1);
}
#elif defined(PLANTED_STATUS)
TEST(Planted, AStatusThatIsNotReadIsFoundWithOneFault) {
    EXPECT_EQ(FewestFor(Issue::Refused, "report", "default", 1), 1);
}
#elif defined(PLANTED_EOF)
TEST(Planted, AnEndOfFileAfterNakIsFoundWithOneFault) {
    EXPECT_EQ(FewestFor(Issue::OutOfTurn, "report", "default", 1), 1);
}
#elif defined(PLANTED_FLAG)
// Why the status is invalid before the end-of-file frame and not after it.
TEST(Planted, AStatusThatStaysValidDuringTheEndOfFileCostsTheNextRunItsFirstCommand) {
    EXPECT_EQ(FewestFor(Issue::Missing, "report", "number-only", 1), 1);
}
#else
TEST(Planted, TheDriverItselfHasNoneOfTheseWithOneFault) {
    EXPECT_GT(FewestFor(Issue::Twice, "report", "default", 1), mostFaults);
    EXPECT_GT(FewestFor(Issue::Refused, "report", "default", 1), mostFaults);
    EXPECT_GT(FewestFor(Issue::OutOfTurn, "report", "default", 1), mostFaults);
    EXPECT_GT(FewestFor(Issue::Missing, "report", "number-only", 1), mostFaults);
}
#endif

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Many scenarios, each explored in processes of its own, several at a time; what was found is kept
// in a folder, so that a campaign can be interrupted and taken up again.
#pragma once

#include <string>
#include <vector>

#include "tests/explore/Scenario.h"
#include "tests/explore/Search.h"

namespace explore {

struct CampaignPlan {
    std::vector<Scenario> scenarios;
    Limits limits;
    unsigned jobs = 0;      // 0: as many as there are processors
    std::string folder;     // of what was found; empty: nothing is kept
    bool progress = false;  // a bar on standard error
};

struct Explored {
    Scenario scenario;
    Tally tally;
    double seconds = 0;        // of this campaign
    std::uint64_t states = 0;  // explored in this campaign
};

/// In the order of the plan. Throws std::runtime_error when a scenario could not be explored.
std::vector<Explored> RunCampaign(const CampaignPlan& plan);

}  // namespace explore

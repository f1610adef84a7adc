// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// How often the verdict on a run is certain, by number of faults.
#pragma once

#include <string>
#include <vector>

#include "tests/explore/Campaign.h"

namespace explore {

/// Of the schedules of one habit.
struct Shares {
    std::string_view habit;  // "default" for none
    Counts all{}, wrong{};
    Counts unknownAtOnce{};      // of a run of the schedule, from the conversation alone
    Counts unknownWithStatus{};  // the same when the register then answers a status read
};

/// In the order in which the habits come in the campaign.
std::vector<Shares> SharesOf(const std::vector<Explored>& all);

/// A table for the page, with that many faults at most.
std::string SharesTable(const std::vector<Explored>& all, int faults);

}  // namespace explore

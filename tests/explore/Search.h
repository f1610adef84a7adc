// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// All schedules of a scenario with up to so many faults, each exactly once.
#pragma once

#include <cstdint>
#include <functional>
#include <map>

#include "tests/explore/Conversation.h"
#include "tests/explore/Fault.h"
#include "tests/explore/Scenario.h"
#include "tests/explore/Tally.h"

namespace explore {

struct Limits {
    int faults = 1;  // 0 to mostFaults
    FaultSet kinds = FaultSet::All();
    /// A state that was seen before with as many faults left is not explored again: what it leads
    /// to is counted from the first time. Off: every schedule is run.
    bool reduce = true;
};

struct Found {
    Tally tally;
    std::uint64_t states = 0;    // places of a decision that were explored
    std::uint64_t runs = 0;      // ends of runs of the driver that were reached
    std::uint64_t segments = 0;  // times that the driver went on from one place to the next
};

/// What watches a search.
struct Watch {
    /// Called with each schedule and its end; only without reduction.
    std::function<void(const Schedule&, const Ending&)> each;
    /// A search can be interrupted: at each place of the undisturbed conversation, from the last to
    /// the first, done is called with all that follows it, and known may give it back in a
    /// later search with the same limits, which then does not explore it again.
    std::function<void(std::size_t place, const Tally& rest)> done;
    std::function<const Tally*(std::size_t place)> known;
};

/// A search in this process: the driver's code must not have run here before, and other code in
/// this program must not count on its static variables afterwards.
Found SearchHere(const Scenario& scenario, const Limits& limits, const Watch& watch = {});

/// One schedule, in this process, as above; what was said, in order, comes into the story.
Ending Replay(const Scenario& scenario, const Schedule& schedule, Story* story = nullptr);

/// All schedules again, each from its beginning to its end in processes of its own.
std::map<Schedule, Ending> SearchAlone(const Scenario& scenario, const Limits& limits);

}  // namespace explore

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include <vector>

#include "tests/explore/ForkedDriver.h"
#include "tests/explore/Playing.h"
#include "tests/explore/Search.h"

namespace explore {

namespace {

/// Plays a schedule and notes where another step could have followed its last one.
Ending PlayAlone(Driver& driver, const Scenario& scenario, const std::vector<Actions>& expected,
                 const Schedule& schedule, FaultSet kinds, std::vector<Step>& further) {
    Playing playing(driver, scenario, expected);
    playing.Begin();
    auto step = schedule.begin();
    while (!playing.Over()) {
        const std::size_t place = playing.Talk().Place();
        Fault fault = Fault::None;
        if (step == schedule.end()) {
            const FaultSet open = playing.Talk().Options().And(kinds);
            for (std::size_t i = 1; i < faultCount; ++i)
                if (open.Has(static_cast<Fault>(i)))
                    further.push_back({place, static_cast<Fault>(i)});
        } else if (step->place == place) {
            fault = (step++)->fault;
        }
        playing.Decide(fault);
    }
    return playing.Talk().Runs();
}

int CostOf(const Schedule& schedule) {
    int cost = 0;
    for (const Step& step : schedule) cost += explore::CostOf(step.fault);
    return cost;
}

}  // namespace

std::map<Schedule, Ending> SearchAlone(const Scenario& scenario, const Limits& limits) {
    ForkedDriver driver;
    const std::vector<Actions> expected = ExpectedOf(driver, scenario);
    std::map<Schedule, Ending> all;
    std::vector<Schedule> open = {{}};
    while (!open.empty()) {
        const Schedule schedule = open.back();
        open.pop_back();
        std::vector<Step> further;
        all[schedule] = PlayAlone(driver, scenario, expected, schedule, limits.kinds, further);
        for (const Step& step : further) {
            if (CostOf(schedule) + explore::CostOf(step.fault) > limits.faults) continue;
            open.push_back(schedule);
            open.back().push_back(step);
        }
    }
    return all;
}

}  // namespace explore

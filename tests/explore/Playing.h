// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The driver and its conversation, moving on together from place to place.
#pragma once

#include <memory>
#include <vector>

#include "tests/explore/Conversation.h"
#include "tests/explore/Driver.h"
#include "tests/explore/Scenario.h"
#include "tests/explore/Tally.h"

namespace explore {

class Playing {
  public:
    /// expected: see Conversation. All of them must outlive it.
    Playing(Driver& driver, const Scenario& scenario, const std::vector<Actions>& expected);

    /// Until the first place.
    void Begin(Frames* frames = nullptr);
    /// From a place to the next one, or to the end. Counts the frames of the driver, if wanted.
    void Decide(Fault fault, Frames* frames = nullptr);
    bool Over() const { return talk_->Over(); }

    Conversation& Talk() { return *talk_; }
    /// Goes on from where that conversation was; the driver has to be put back by itself.
    void Restore(const Conversation& talk) { *talk_ = talk; }

    std::uint64_t Runs() const { return runs_; }  // of the driver that have ended
    std::uint64_t Segments() const { return segments_; }

    /// Plays the schedule to its end. Throws std::runtime_error when it does not fit.
    const Ending& Play(const Schedule& schedule);

  private:
    void StartRun(Frames* frames);
    void Go(Frames* frames);
    void Serve(Frames* frames);
    void EndRun(Frames* frames);

    Driver& driver_;
    ScenarioFiles files_;
    std::unique_ptr<Conversation> talk_;
    bool answer_ = true;
    std::uint64_t runs_ = 0, segments_ = 0;
};

/// What each file makes the register do when nothing goes wrong. Throws std::runtime_error when it
/// fails even so.
std::vector<Actions> ExpectedOf(Driver& driver, const Scenario& scenario);

}  // namespace explore

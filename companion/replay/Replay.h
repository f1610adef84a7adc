// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The far end of a line in a run of the past: says what the register said then, and compares what
// the caller says now.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <utility>

#include "companion/replay/LoggedRun.h"
#include "emulator/FarEnd.h"

namespace replay {

class Replay : public emulator::FarEnd {
  public:
    /// paced: each answer takes as long as it took then. The run, which has a step, must outlive
    /// it.
    explicit Replay(const LoggedRun& run, bool paced = false) : run_(run), paced_(paced) {}

    enum class State { Talking, AsLogged, Differs };
    State Now() const { return state_; }
    /// In one or more lines: how far it came, and what differed.
    std::string Report() const;

    /// The caller has closed the line.
    bool Over() const { return over_; }

    /// Called when the last frame of the log has come, when the caller closes the line after it,
    /// and when something differs.
    void OnEnd(std::function<void()> listener) { onEnd_ = std::move(listener); }

    /// Nothing more comes. Whatever of the log has not been said by then is missing.
    void EndNow(const std::string& why);

    emulator::Bytes Feed(emulator::View bytes) override;
    emulator::Bytes Idle() override;
    bool Pending() const override { return differing_ && state_ != State::Differs; }
    std::chrono::milliseconds Delay() const override { return delay_; }
    void Closed() override;

  private:
    emulator::Bytes Take(std::uint8_t byte);
    emulator::Bytes Answers();
    void End(State state);
    std::size_t Frames(std::size_t steps) const;

    const LoggedRun& run_;
    bool paced_;
    State state_ = State::Talking;
    std::size_t at_ = 0;      // the step of the caller that is due; one past the last: none
    emulator::Bytes came_;    // of it
    bool differing_ = false;  // something in came_ is not as logged
    bool spoken_ = false;
    bool over_ = false;
    std::string why_;  // it ended early
    std::chrono::milliseconds delay_{0};
    std::function<void()> onEnd_;
};

}  // namespace replay

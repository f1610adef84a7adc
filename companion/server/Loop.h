// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Waits for everything that a server waits for, in one thread: descriptors, times, signals. What it
// calls may add and remove whatever it likes.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "companion/server/Descriptor.h"

namespace server {

class Loop {
  public:
    using Call = std::function<void()>;
    using TimerId = std::uint64_t;

    /// From now on SIGTERM, SIGINT and SIGHUP come here, and SIGPIPE is ignored; until it ends.
    /// There is one at a time. std::system_error: the system has no more descriptors.
    Loop();
    ~Loop();
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    /// Whenever the descriptor is readable, or its other end is closed.
    void Watch(int fd, Call call);
    void Forget(int fd);

    TimerId After(std::chrono::milliseconds time, Call call);
    void Cancel(TimerId timer);

    /// Asked before each wait: how long it may last at most.
    void AskForTimeout(std::function<std::optional<std::chrono::milliseconds>()> timeout);
    /// Called after each wait.
    void AfterEach(Call call);

    void OnEnd(Call call) { onEnd_ = std::move(call); }        // SIGTERM, SIGINT
    void OnReload(Call call) { onReload_ = std::move(call); }  // SIGHUP

    /// Until somebody calls Leave().
    void Run();
    void Leave() { isLeft_ = true; }

  private:
    using Clock = std::chrono::steady_clock;
    using Due = std::pair<Clock::time_point, TimerId>;

    void TakeSignals();
    int LongestWait() const;
    void Wait();
    void CallTimers();

    Descriptor epoll_;
    Descriptor signals_;
    std::map<int, std::shared_ptr<Call>> watched_;
    std::set<Due> order_;
    std::map<TimerId, Call> timers_;
    TimerId lastTimer_ = 0;
    std::function<std::optional<std::chrono::milliseconds>()> timeout_;
    Call afterEach_;
    Call onEnd_;
    Call onReload_;
    bool isLeft_ = false;
    struct Former;
    std::unique_ptr<Former> former_;
};

}  // namespace server

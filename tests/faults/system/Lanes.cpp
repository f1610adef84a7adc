// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/faults/system/Lanes.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

namespace faults {

Tally RunInLanes(std::size_t count, unsigned lanes, unsigned secondsInAll,
                 const std::function<Outcome(std::size_t)>& run) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::seconds(secondsInAll);
    Tally tally;
    std::mutex mutex;  // of tally
    std::atomic<std::size_t> next{0};

    const auto lane = [&] {
        for (std::size_t i; Clock::now() < deadline && (i = next++) < count;) {
            Outcome outcome;
            try {
                outcome = run(i);
            } catch (const std::exception& failure) {
                outcome = Judged(Verdict::Violation, -1, 0, failure.what());
            }
            const std::lock_guard lock(mutex);
            tally.Add(i, outcome);
        }
    };
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < lanes; ++i) threads.emplace_back(lane);
    for (std::thread& thread : threads) thread.join();
    if (tally.runs < count)
        tally.Complain("out of time after " + std::to_string(tally.runs) + " of " +
                       std::to_string(count) + " runs");
    return tally;
}

}  // namespace faults

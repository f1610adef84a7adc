// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the answers depend on besides the journal.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "companion/runner/Profile.h"

namespace api {

struct Settings {
    std::vector<runner::Profile> profiles;  // of the registers that are served
    std::string version;                    // of the program
    std::int64_t longestQueue = 100;        // of one register, in jobs
    std::chrono::seconds longestWait{60};   // that a request waits for a result
    /// Called when a job of that register was queued.
    std::function<void(const std::string& registerName)> woken = {};
    /// Whether somebody works off the queue of that register now; without it, that is so.
    std::function<bool(const std::string& registerName)> isServed = {};
};

/// The profile of that name; null: no such register is served.
const runner::Profile* ProfileOf(const Settings& settings, const std::string& name);

}  // namespace api

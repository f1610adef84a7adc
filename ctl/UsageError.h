// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A command line that can be parsed and still makes no sense.
#pragma once

#include <stdexcept>

/// The exit code of every usage error, and of what the environment does not allow.
inline constexpr int exitUsage = 2;

/// The message names the word that is wrong.
class UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Runs the action; what it throws about its arguments is a usage error.
template <typename Action>
void CheckUsage(Action action) {
    try {
        action();
    } catch (const std::runtime_error& wrong) {
        throw UsageError(wrong.what());
    }
}

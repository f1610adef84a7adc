// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The account of a run, from what its debug log has.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "companion/plan/Plan.h"
#include "companion/runner/Profile.h"
#include "companion/verdict/Account.h"

namespace job {

/// How the driver ended.
enum class End {
    ByItself,
    Refusing,  // by itself, with exit code 1 or 2: no command of the file went out
    Killed,    // the log has all that it wrote until then
    Lost,      // the machine went down: the log may lack any of its lines
};

/// What the register is known as.
verdict::Wire WireOf(const runner::Profile& profile);
/// std::runtime_error: Habit= has a word that is none.
verdict::Promises PromisesOf(const runner::Profile& profile);

/// The first status block of a log, which names the model.
std::optional<verdict::Status> FirstStatus(const runner::Profile& profile, const std::string& log);

/// Begins an account with the run that left this log.
verdict::Account Follow(const runner::Profile& profile, const std::vector<plan::Command>& plan,
                        const verdict::Remains& before, const std::string& log, End end);
/// Goes on with another run, which sent nothing but status reads.
void FollowStatusRead(verdict::Account& account, const std::string& log);

/// The driver's frames of commands in a log that still grows.
std::size_t CommandsIn(const runner::Profile& profile, const std::string& log);

}  // namespace job

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Whether what `voltisctl run` told is true, measured by what the register did.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "companion/journal/Journal.h"
#include "tests/faults/run/Caller.h"

namespace faults {

/// What the register has done of a job when a call has ended.
struct Truth {
    std::size_t done = 0, all = 0;    // commands
    std::optional<journal::Job> row;  // of the job, in the journal
};

/// What is false of a call or of what it left, in words; nothing when all is true.
std::optional<std::string> Untruth(const Call& call, const Truth& truth);

/// Likewise of a call that did the job, when the next one has got another answer.
std::optional<std::string> Contradiction(const Call& call, const Call& next);

}  // namespace faults

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What answers requests about registers, and checks command files for them.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "companion/api/Call.h"

namespace api {

http::Reply ListRegisters(const Call& call);
http::Reply ShowRegister(const Call& call);
http::Reply CheckCommandFile(const Call& call);

/// What is known of the register, as GET /v1/registers/{register} has it.
Json RegisterJson(const Call& call, const runner::Profile& profile);

/// A check ends with so many.
inline constexpr std::size_t mostFindings = 1000;

/// The attempt on the register that has ended last; nothing: there was none yet.
std::optional<journal::Count> LastOn(const journal::Journal& journal, const std::string& name);

/// Whether the register answered when it was asked last, by that job; nothing: it does not tell.
std::optional<bool> HasAnswered(const std::optional<journal::Job>& job);

}  // namespace api

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// How a register stands, from what is known of it.
#pragma once

#include <optional>
#include <string>

#include "companion/api/Call.h"
#include "companion/page/Parts.h"

namespace page {

struct Standing {
    Mark mark;
    std::string text;  // what is the matter, and what to do; empty: nothing
};

/// what: RegisterJson of the register; last: the job of its last attempt, where there is one.
Standing StandingOf(const api::Json& what, const std::optional<journal::Job>& last);

/// Of the status in it: "REG", and what to do with another key; empty: it is not known.
std::string KeyText(const api::Json& what);
/// Of the status, or of what the last job said.
std::string PaperText(const api::Json& what, const std::optional<journal::Job>& last);
std::string ReceiptText(const api::Json& what);

}  // namespace page

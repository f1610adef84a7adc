// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Somebody who looks at the page.
#pragma once

#include <string>

#include "companion/api/Call.h"
#include "companion/journal/Journal.h"

namespace page {

struct Visit {
    api::Call call;
    const std::string& csrf;  // of the session; empty: there is none

    bool May(http::Scope scope) const { return call.caller.May(scope); }
    /// The lists of jobs, as GET /v1/jobs.
    bool MayReadJobs() const { return May(http::Scope::Read) || May(http::Scope::Resolve); }
    /// The pictures, which a token that only decides may not ask for.
    bool MaySeeReceipts() const { return May(http::Scope::Read) || May(http::Scope::Print); }
    bool MayFollowEvents() const { return May(http::Scope::Read); }
    bool MayResolve(const journal::Job& job) const;
    /// Its own, or any when it may decide about jobs.
    bool MayWithdraw(const journal::Job& job) const;
};

}  // namespace page

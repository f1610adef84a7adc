// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What answers requests about jobs.
#pragma once

#include <string>

#include "companion/api/Call.h"

namespace api {

http::Reply HandIn(const Call& call);
http::Reply ShowJob(const Call& call);
http::Reply ListJobs(const Call& call);
http::Reply Resolve(const Call& call);
http::Reply Withdraw(const Call& call);

/// The version of a job: another one when anything in its JSON is another.
std::string TagOf(const journal::Job& job, const journal::Journal& journal);

/// Of a list, in jobs.
inline constexpr int usualLimit = 50;
inline constexpr int greatestLimit = 500;

}  // namespace api

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A request on its way to what answers it, and what the answers have in common.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "companion/api/Refusals.h"
#include "companion/api/Settings.h"
#include "companion/http/Caller.h"
#include "companion/http/Service.h"
#include "companion/journal/Journal.h"

namespace api {

struct Call {
    journal::Journal& journal;
    const Settings& settings;
    const http::Request& request;
    const http::Caller& caller;
    std::map<std::string, std::string> parameters;  // of the path, by their names

    const std::string& Parameter(const std::string& name) const { return parameters.at(name); }
    /// Of the query; empty: it is not there.
    std::string Query(const std::string& name) const;
};

inline constexpr char jsonType[] = "application/json";

/// JSON on one line, with a line feed. What is no UTF-8 is replaced.
http::Response JsonAnswer(int status, const Json& json);

/// Null for an empty text.
Json TextOrNull(const std::string& text);

/// A number from 1 on, in decimal digits alone; nothing: it is none, or is too long.
std::optional<std::int64_t> NumberIn(const std::string& text);

/// The job that the path names, if the caller may know of it: with the scope read or resolve all of
/// its registers, with print alone those that it has handed in.
std::optional<journal::Job> JobOf(const Call& call);
/// What is answered where JobOf finds none.
http::Response NoSuchJob();

/// The profile of the register that the path names. Nothing else than a register that the caller
/// may use gets here.
const runner::Profile* RegisterOf(const Call& call);
http::Response NoSuchRegister();

/// In small letters, without blanks and quotes: of a header that has no blanks of its own.
std::string Compact(const std::string& header);

/// The header Prefer's wait=N (RFC 7240) in seconds, at most the settings' longest; 0: there is
/// none.
std::chrono::seconds WaitOf(const Call& call);

/// Whether the value of a header If-None-Match has that tag.
bool IsKnownTag(const std::string& header, const std::string& tag);

}  // namespace api

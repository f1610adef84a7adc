// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Every error that these paths are answered with, from one table: those of the server and of the
// gate before them, too, so that the description of the interface has them.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <span>
#include <string>

#include "companion/http/Message.h"

namespace api {

using Json = nlohmann::ordered_json;

enum class Problem : std::uint8_t {
    BadRequest,
    BadMethod,
    BadTarget,
    BadHeader,
    NoHost,
    BadAuthorization,
    NoKey,
    BadKey,
    NoToken,
    BadToken,
    NoSession,
    ForeignOrigin,
    NoCsrfToken,
    NotInGroup,
    Scope,
    ForeignRegister,
    NotYours,
    NotFound,
    NotAllowed,
    NotAcceptable,
    Running,
    NotQueued,
    NothingToDecide,
    Withdrawn,
    TooLarge,
    TargetTooLong,
    WrongType,
    ForeignHost,
    Encoding,
    OtherContent,
    OtherRegister,
    Mistake,
    TooMany,
    TooManyStreams,
    TooManyHeaders,
    Part,
    InDoubt,
    Forgotten,
    Internal,
    NotPrinted,
    QueueFull,
    TokensUnusable,
    Journal,
    Ending,
};

struct ProblemRow {
    Problem problem;
    const char* name;  // after "urn:voltis:problem:"
    int status;
    const char* meaning;
};

/// In the order of their statuses.
std::span<const ProblemRow> AllProblems();
const ProblemRow& RowOf(Problem problem);

/// Further members are added as they are.
http::Response Refusal(Problem problem, const std::string& detail, const Json& further = {});
/// The same for one that is worth another call after so many seconds.
http::Response RefusalForNow(Problem problem, const std::string& detail, int retryAfter,
                             const Json& further = {});

http::Response BadRequest(const std::string& detail);

}  // namespace api

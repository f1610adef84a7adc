// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/api/Refusals.h"

#include <array>
#include <cstddef>

#include "companion/http/Problem.h"

namespace api {

namespace {

// How to add one: a name in the header, a row here, and the routes that answer with it.
constexpr std::array problems = {
    ProblemRow{Problem::BadRequest, "bad-request", 400, "The request makes no sense"},
    ProblemRow{Problem::BadMethod, "bad-method", 400, "The method is no word"},
    ProblemRow{Problem::BadTarget, "bad-target", 400,
               "The path or the query cannot be read, or has a name twice"},
    ProblemRow{Problem::BadHeader, "bad-header", 400,
               "A header cannot be read, or could be read in two ways"},
    ProblemRow{Problem::NoHost, "no-host", 400, "The request names no host"},
    ProblemRow{Problem::BadAuthorization, "bad-authorization", 400,
               "The header Authorization has no bearer token"},
    ProblemRow{Problem::NoKey, "no-key", 400, "The header Idempotency-Key is missing"},
    ProblemRow{Problem::BadKey, "bad-key", 400,
               "Idempotency-Key is not 1 to 200 printable characters of UTF-8"},
    ProblemRow{Problem::NoToken, "no-token", 401, "A token is needed"},
    ProblemRow{Problem::BadToken, "bad-token", 401, "The token is not known, or was revoked"},
    ProblemRow{Problem::NoSession, "no-session", 401, "The session has ended"},
    ProblemRow{Problem::ForeignOrigin, "foreign-origin", 403,
               "A page of another origin may not do this"},
    ProblemRow{Problem::NoCsrfToken, "no-csrf-token", 403,
               "A request of a session lacks the token that its pages have"},
    ProblemRow{Problem::NotInGroup, "not-in-group", 403,
               "The account at the Unix socket is not in the group that may print"},
    ProblemRow{Problem::Scope, "scope", 403, "The token may not do this"},
    ProblemRow{Problem::ForeignRegister, "foreign-register", 403,
               "The token is for another register"},
    ProblemRow{Problem::NotYours, "not-yours", 403, "The job was handed in by somebody else"},
    ProblemRow{Problem::NotFound, "not-found", 404,
               "There is no such thing, or the token may not know of it"},
    ProblemRow{Problem::NotAllowed, "not-allowed", 405, "There is no such method here"},
    ProblemRow{Problem::NotAcceptable, "not-acceptable", 406,
               "The answer has none of the types in the header Accept"},
    ProblemRow{Problem::Running, "running", 409,
               "The job waits or is being printed; the same call again, later, has its result"},
    ProblemRow{Problem::NotQueued, "not-queued", 409, "The job is in no queue any more"},
    ProblemRow{Problem::NothingToDecide, "nothing-to-decide", 409,
               "What became of the job is certain, or not yet known"},
    ProblemRow{Problem::Withdrawn, "withdrawn", 410,
               "The job was withdrawn before it was printed; nothing prints it under this key"},
    ProblemRow{Problem::TooLarge, "too-large", 413, "The body is longer than 64 KiB"},
    ProblemRow{Problem::TargetTooLong, "target-too-long", 414,
               "The path and the query are too long"},
    ProblemRow{Problem::WrongType, "wrong-type", 415, "The body has a type that is not taken"},
    ProblemRow{Problem::ForeignHost, "foreign-host", 421,
               "The request is for a name that this service does not have"},
    ProblemRow{Problem::Encoding, "encoding", 422,
               "The text is no UTF-8, or has a character that the register lacks"},
    ProblemRow{Problem::OtherContent, "other-content", 422,
               "The key belongs to a job with another content"},
    ProblemRow{Problem::OtherRegister, "other-register", 422,
               "The key belongs to a job of another register"},
    ProblemRow{Problem::Mistake, "mistake", 422,
               "There is a mistake in the command file; nothing was printed"},
    ProblemRow{Problem::TooMany, "too-many-requests", 429, "There were too many requests"},
    ProblemRow{Problem::TooManyStreams, "too-many-streams", 429,
               "Another stream has to be closed first"},
    ProblemRow{Problem::TooManyHeaders, "too-many-headers", 431,
               "The headers are too many, or too long"},
    ProblemRow{Problem::Part, "part", 500, "A certain part of the command file was printed"},
    ProblemRow{Problem::InDoubt, "in-doubt", 500,
               "Nobody can tell what was printed; a person has to look at the paper"},
    ProblemRow{Problem::Forgotten, "forgotten", 500,
               "The job has ended and is not in the journal any more"},
    ProblemRow{Problem::Internal, "internal", 500,
               "The service could not answer; its log says why"},
    ProblemRow{Problem::NotPrinted, "not-printed", 503,
               "Nothing was printed; the same call may be made again"},
    ProblemRow{Problem::QueueFull, "queue-full", 503, "Too many jobs wait for the register"},
    ProblemRow{Problem::TokensUnusable, "tokens-unusable", 503,
               "The file of tokens cannot be used, so nobody has one"},
    ProblemRow{Problem::Journal, "journal", 503,
               "The journal cannot be used; the same call again finds out what became of this one"},
    ProblemRow{Problem::Ending, "ending", 503, "The service ends; it may be there again soon"},
};

constexpr bool AreInOrder() {
    for (std::size_t i = 0; i < problems.size(); ++i) {
        if (problems[i].problem != static_cast<Problem>(i)) return false;
        if (i > 0 && problems[i].status < problems[i - 1].status) return false;
    }
    return true;
}
static_assert(AreInOrder());

}  // namespace

std::span<const ProblemRow> AllProblems() {
    return problems;
}

const ProblemRow& RowOf(Problem problem) {
    return problems.at(static_cast<std::size_t>(problem));
}

http::Response Refusal(Problem problem, const std::string& detail, const Json& further) {
    const ProblemRow& row = RowOf(problem);
    return http::ProblemOf(row.status, row.name, detail, further);
}

http::Response RefusalForNow(Problem problem, const std::string& detail, int retryAfter,
                             const Json& further) {
    http::Response response = Refusal(problem, detail, further);
    response.headers.emplace_back("Retry-After", std::to_string(retryAfter));
    return response;
}

http::Response BadRequest(const std::string& detail) {
    return Refusal(Problem::BadRequest, detail);
}

}  // namespace api

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/api/Routes.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "companion/api/Events.h"
#include "companion/api/Jobs.h"
#include "companion/api/Metrics.h"
#include "companion/api/OpenApi.h"
#include "companion/api/Receipt.h"
#include "companion/api/Registers.h"

namespace api {

namespace {

// --- rights --------------------------------------------------------------------------------------

struct RightRow {
    Right right;
    bool print;
    bool read;
    bool resolve;
    const char* word;
};
constexpr std::array rights = {
    RightRow{Right::None, true, true, true, ""},
    RightRow{Right::Any, true, true, true, "print, read or resolve"},
    RightRow{Right::Print, true, false, false, "print"},
    RightRow{Right::Read, false, true, false, "read"},
    RightRow{Right::Resolve, false, false, true, "resolve"},
    RightRow{Right::ReadOrPrint, true, true, false, "read or print"},
    RightRow{Right::PrintOrResolve, true, false, true, "print or resolve"},
};

const RightRow& RowOf(Right right) {
    return *std::ranges::find(rights, right, &RightRow::right);
}

// --- what requests may have ----------------------------------------------------------------------

constexpr char anyText[] = R"({"type": "string"})";

constexpr Parameter prefer = {
    "Prefer", "header", R"({"type": "string", "pattern": "wait=[0-9]+"})",
    "wait=N: the answer may take so many seconds, until the job has its result (RFC 7240)"};
constexpr Parameter ifNoneMatch = {"If-None-Match", "header", anyText,
                                   "The ETag of an answer that the caller has"};
constexpr Parameter ofRegister = {"register", "query", anyText, "Only of this register"};

constexpr std::array handInParameters = {
    Parameter{"Idempotency-Key", "header",
              R"({"type": "string", "minLength": 1, "maxLength": 200})",
              "The ID of the job, by the caller's choice: it is printed once, however often it is "
              "handed in under it",
              true},
    prefer,
};
constexpr std::array showJobParameters = {prefer, ifNoneMatch};
constexpr std::array receiptParameters = {ifNoneMatch};
constexpr std::array listParameters = {
    ofRegister,
    Parameter{"state", "query", R"({"$ref": "#/components/schemas/State"})", "Only in this state"},
    Parameter{"since", "query", R"({"type": "string", "pattern": "^[0-9]{4}-[0-9]{2}-[0-9]{2}"})",
              "Only received then or later: 2024-05-31 or 2024-05-31T18:00 (UTC)"},
    Parameter{"before", "query", R"({"type": "integer", "minimum": 1})",
              "Only with smaller numbers: the member next of the page before"},
    Parameter{"limit", "query", R"({"type": "integer", "minimum": 1, "maximum": 500})",
              "At most so many; 50 without it"},
};
constexpr std::array checkParameters = {
    Parameter{"model", "query", anyText, "Only for this model; for all of them without it"},
};
constexpr std::array eventParameters = {
    ofRegister,
    Parameter{"Last-Event-ID", "header", R"({"type": "integer", "minimum": 0})",
              "Go on after the event of that number"},
    Parameter{"after", "query", R"({"type": "integer", "minimum": 0})",
              "The same, for those who cannot send the header"},
};

// --- what answers may be -------------------------------------------------------------------------

constexpr std::array handInAnswers = {
    Good{200, jsonType, "JobOfCall", "It was printed, by this call or by one before"},
    Good{202, jsonType, "Job", "It is in the queue; Location has its URL"},
};
constexpr std::array jobAnswers = {
    Good{200, jsonType, "Job", "The job"},
    Good{304, "", "", "It is as the caller knows it"},
};
constexpr std::array changedJob = {Good{200, jsonType, "Job", "The job as it is now"}};
constexpr std::array jobsAnswers = {
    Good{200, jsonType, "Jobs", "The jobs with the greatest numbers, the greatest first"}};
constexpr std::array receiptAnswers = {
    Good{200, "image/svg+xml", "", "A picture in a band that says that it is a simulation"},
    Good{304, "", "", "It is as the caller knows it"},
};
constexpr std::array registersAnswers = {Good{200, jsonType, "Registers", "All registers"}};
constexpr std::array registerAnswers = {Good{200, jsonType, "Register", "The register"}};
constexpr std::array checkAnswers = {
    Good{200, jsonType, "Check", "All mistakes and surprises, also when there are some"}};
constexpr std::array eventAnswers = {
    Good{200, "text/event-stream", "Event",
         "Events of the type job until the caller ends it; data is of the schema Event"}};
constexpr std::array metricAnswers = {
    Good{200, "text/plain; version=0.0.4; charset=utf-8", "", "In the format of Prometheus"}};
constexpr std::array healthAnswers = {Good{200, jsonType, "Health", "All is well"}};
constexpr std::array openApiAnswers = {
    Good{200, jsonType, "OpenApi", "This description, in the format OpenAPI 3.1"}};

constexpr std::array handInProblems = {
    Problem::BadRequest,    Problem::NoKey,      Problem::BadKey,   Problem::NotFound,
    Problem::Running,       Problem::Withdrawn,  Problem::Encoding, Problem::OtherContent,
    Problem::OtherRegister, Problem::Mistake,    Problem::Part,     Problem::InDoubt,
    Problem::Forgotten,     Problem::NotPrinted, Problem::QueueFull};
constexpr std::array ofJob = {Problem::NotFound};
constexpr std::array showJobProblems = {Problem::NotFound, Problem::Forgotten};
constexpr std::array resolveProblems = {Problem::BadRequest, Problem::NotFound,
                                        Problem::NothingToDecide};
constexpr std::array withdrawProblems = {Problem::NotYours, Problem::NotFound, Problem::NotQueued};
constexpr std::array checkProblems = {Problem::BadRequest, Problem::NotFound, Problem::Encoding};
constexpr std::array ofRequest = {Problem::BadRequest};
constexpr std::array eventProblems = {Problem::BadRequest, Problem::NotFound,
                                      Problem::TooManyStreams, Problem::Ending};

// A path that names a job comes twice: with its ID, and with its number.
constexpr std::array routes = {
    Route{"POST", "/v1/registers/{register}/jobs", Right::Print, HandIn, "handInJob",
          "Hands in a command file to be printed once", Body::CommandFile, handInParameters,
          handInAnswers, handInProblems},
    Route{"GET", "/v1/jobs", Right::Read, ListJobs, "listJobs", "Jobs, the latest first",
          Body::None, listParameters, jobsAnswers, ofRequest},
    Route{"GET", "/v1/jobs/{id}", Right::ReadOrPrint, ShowJob, "showJob", "A job by its ID",
          Body::None, showJobParameters, jobAnswers, showJobProblems},
    Route{"GET", "/v1/jobs/by-number/{number}", Right::ReadOrPrint, ShowJob, "showJobByNumber",
          "A job by its number", Body::None, showJobParameters, jobAnswers, showJobProblems},
    Route{"DELETE",
          "/v1/jobs/{id}",
          Right::PrintOrResolve,
          Withdraw,
          "withdrawJob",
          "Takes a job out of its queue, for good",
          Body::None,
          {},
          changedJob,
          withdrawProblems},
    Route{"DELETE",
          "/v1/jobs/by-number/{number}",
          Right::PrintOrResolve,
          Withdraw,
          "withdrawJobByNumber",
          "Takes a job out of its queue, for good",
          Body::None,
          {},
          changedJob,
          withdrawProblems},
    Route{"POST",
          "/v1/jobs/{id}/resolve",
          Right::Resolve,
          Resolve,
          "resolveJob",
          "Decides what became of a job that is in doubt, or was printed in part",
          Body::Decision,
          {},
          changedJob,
          resolveProblems},
    Route{"POST",
          "/v1/jobs/by-number/{number}/resolve",
          Right::Resolve,
          Resolve,
          "resolveJobByNumber",
          "Decides what became of a job that is in doubt, or was printed in part",
          Body::Decision,
          {},
          changedJob,
          resolveProblems},
    Route{"GET", "/v1/jobs/{id}/receipt.svg", Right::ReadOrPrint, ShowReceipt, "drawReceipt",
          "What the command file prints, drawn by the emulated register", Body::None,
          receiptParameters, receiptAnswers, ofJob},
    Route{"GET", "/v1/jobs/by-number/{number}/receipt.svg", Right::ReadOrPrint, ShowReceipt,
          "drawReceiptByNumber", "What the command file prints, drawn by the emulated register",
          Body::None, receiptParameters, receiptAnswers, ofJob},
    Route{"GET",
          "/v1/registers",
          Right::ReadOrPrint,
          ListRegisters,
          "listRegisters",
          "The registers that are served",
          Body::None,
          {},
          registersAnswers,
          {}},
    Route{"GET",
          "/v1/registers/{register}",
          Right::ReadOrPrint,
          ShowRegister,
          "showRegister",
          "A register: its queue, and what it said last",
          Body::None,
          {},
          registerAnswers,
          ofJob},
    Route{"POST", "/v1/registers/{register}/check", Right::ReadOrPrint, CheckCommandFile,
          "checkCommandFile", "All mistakes and surprises of a command file; nothing is printed",
          Body::CommandFile, checkParameters, checkAnswers, checkProblems},
    Route{"GET", "/v1/events", Right::Read, ShowEvents, "showEvents",
          "Server-Sent Events: every change of a job's state", Body::None, eventParameters,
          eventAnswers, eventProblems},
    Route{"GET",
          "/openapi.json",
          Right::Any,
          ShowOpenApi,
          "describe",
          "This description",
          Body::None,
          {},
          openApiAnswers,
          {}},
    Route{"GET",
          "/metrics",
          Right::Read,
          ShowMetrics,
          "showMetrics",
          "Counts for Prometheus",
          Body::None,
          {},
          metricAnswers,
          {}},
    Route{"GET",
          "/healthz",
          Right::None,
          ShowHealth,
          "showHealth",
          "Whether the service can do its work",
          Body::None,
          {},
          healthAnswers,
          {}},
};

bool IsPlace(std::string_view part) {
    return part.starts_with('{');
}

bool Fits(std::string_view part, const std::string& segment) {
    if (!IsPlace(part)) return part == segment;
    return part == "{number}" ? NumberIn(segment).has_value() : !segment.empty();
}

}  // namespace

bool IsGranted(Right right, const http::Caller& caller) {
    if (right == Right::None) return true;
    const RightRow& row = RowOf(right);
    return (row.print && caller.May(http::Scope::Print)) ||
           (row.read && caller.May(http::Scope::Read)) ||
           (row.resolve && caller.May(http::Scope::Resolve));
}

std::string WordFor(Right right) {
    return RowOf(right).word;
}

std::span<const Route> Routes() {
    return routes;
}

std::optional<std::map<std::string, std::string>> Match(const char* path,
                                                        const std::vector<std::string>& segments) {
    std::map<std::string, std::string> values;
    std::string_view rest = path;
    for (const std::string& segment : segments) {
        if (rest.empty()) return std::nullopt;
        rest.remove_prefix(1);
        const std::string_view part = rest.substr(0, rest.find('/'));
        if (!Fits(part, segment)) return std::nullopt;
        if (IsPlace(part)) values.emplace(part.substr(1, part.size() - 2), segment);
        rest.remove_prefix(part.size());
    }
    if (!rest.empty()) return std::nullopt;
    return values;
}

std::vector<Problem> ProblemsOf(const Route& route) {
    std::vector<Problem> all(route.problems.begin(), route.problems.end());
    if (route.right != Right::None) {
        all.insert(all.end(), {Problem::BadAuthorization, Problem::NoToken, Problem::BadToken,
                               Problem::NoSession, Problem::NoCsrfToken, Problem::NotInGroup,
                               Problem::Scope, Problem::ForeignRegister, Problem::TokensUnusable});
    }
    if (route.body != Body::None) all.push_back(Problem::WrongType);
    all.insert(all.end(), {Problem::BadTarget, Problem::BadHeader, Problem::NoHost,
                           Problem::ForeignOrigin, Problem::NotAcceptable, Problem::TooLarge,
                           Problem::TargetTooLong, Problem::ForeignHost, Problem::TooMany,
                           Problem::TooManyHeaders, Problem::Internal, Problem::Journal});
    std::ranges::sort(all);
    return all;
}

}  // namespace api

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/api/JobJson.h"

#include "companion/api/Call.h"
#include "companion/http/Path.h"

namespace api {

using journal::Job;

namespace {

template <typename Value>
Json OrNull(const std::optional<Value>& value) {
    return value ? Json(*value) : Json();
}

Json OutcomeJson(const Job& job) {
    Json outcome = Json::parse(job.outcome, nullptr, false);
    return outcome.is_object() ? outcome : Json();
}

Json ResolvedOf(const Job& job) {
    if (job.resolvedAt.empty()) return {};
    return {{"by", job.resolvedBy}, {"at", job.resolvedAt}, {"note", job.note}};
}

Json AttemptJson(const Job& job) {
    return {{"register", job.registerName},       {"state", journal::Word(job.state)},
            {"verdict", TextOrNull(job.verdict)}, {"exit_code", OrNull(job.exitCode)},
            {"received", job.received},           {"ended", TextOrNull(job.ended)},
            {"resolved", ResolvedOf(job)},        {"outcome", OutcomeJson(job)}};
}

// Browsers and others take such a part of a path for a step, also when its dots are escaped.
bool IsStep(const std::string& id) {
    return id == "." || id == "..";
}

}  // namespace

std::string UrlOf(const std::optional<std::string>& id, std::int64_t number) {
    if (id && !id->empty() && !IsStep(*id)) return "/v1/jobs/" + http::AsSegment(*id);
    return "/v1/jobs/by-number/" + std::to_string(number);
}

Json JobJson(const Job& job, std::int64_t position) {
    Json json = {{"number", job.number},
                 {"id", OrNull(job.id)},
                 {"url", UrlOf(job.id, job.number)},
                 {"till", TextOrNull(job.till)},
                 {"position", job.InQueue() ? Json(position) : Json()},
                 {"withdrawn_by", TextOrNull(job.withdrawnBy)}};
    json.update(AttemptJson(job));
    return json;
}

Json WholeJobJson(const Job& job, const journal::Journal& journal) {
    Json json = JobJson(job, journal.BeforeInQueue(job));
    json["attempts_before"] = Json::array();
    for (const Job& attempt : journal.History(job.number))
        json["attempts_before"].push_back(AttemptJson(attempt));
    return json;
}

}  // namespace api

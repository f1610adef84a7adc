// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/api/Verdicts.h"

#include <algorithm>
#include <exception>
#include <string>
#include <vector>

#include "companion/api/Call.h"
#include "companion/api/JobJson.h"
#include "companion/explain/Search.h"
#include "companion/explain/Template.h"
#include "companion/explain/Text.h"

namespace api {

using explain::Entry;
using journal::Job;
using journal::State;

namespace {

// --- the catalogue -------------------------------------------------------------------------------

bool IsMessage(const Entry& entry) {
    return entry.kind == explain::Kind::Message || entry.kind == explain::Kind::RunMessage ||
           entry.kind == explain::Kind::ErrorCode;
}

// Only an entry with that very text: the nearest ones are for people who search.
const Entry* EntryOfMessage(const std::string& message) {
    if (message.empty()) return nullptr;
    const std::vector<const Entry*> found = explain::FindMessage(message);
    const auto entry = std::ranges::find_if(found, [&](const Entry* candidate) {
        return IsMessage(*candidate) && explain::OccursIn(candidate->text, message);
    });
    return entry == found.end() ? nullptr : *entry;
}

const Entry* EntryOfCode(const std::string& key, int code) {
    const std::vector<const Entry*> found = explain::Find(key + std::to_string(code)).entries;
    return found.empty() ? nullptr : found.front();
}

Json AnswerJson(const explain::Answer& answer) {
    return {{"answer", explain::NameOf(answer.word)}, {"text", answer.text}};
}

Json EntryJson(const Entry& entry) {
    return {{"text", explain::Shown(entry.text)},
            {"what_happened", entry.happened},
            {"may_paper_have_moved", AnswerJson(entry.answers->paper)},
            {"is_repeating_safe", AnswerJson(entry.answers->repeat)},
            {"what_to_do", entry.remedy}};
}

// --- the problem ---------------------------------------------------------------------------------

Problem ProblemOf(const Job& job, const job::Outcome& outcome) {
    if (!job.withdrawnBy.empty()) return Problem::Withdrawn;
    if (job.verdict == journal::part) return Problem::Part;
    if (job.verdict != journal::notPrinted) return Problem::InDoubt;
    const bool decided = !job.resolvedAt.empty();
    return outcome.exitCode == job::exitMistake && !decided ? Problem::Mistake
                                                            : Problem::NotPrinted;
}

std::string DetailOf(const job::Outcome& outcome, Problem problem) {
    if (!outcome.reason.empty()) return outcome.reason;
    const bool failed = outcome.driver && outcome.driver->exitCode != 0;
    return failed && !outcome.driver->message.empty() ? outcome.driver->message
                                                      : RowOf(problem).meaning;
}

// Without a record there is the verdict beside it all the same.
job::Outcome OutcomeOrNone(const Job& job) {
    job::Outcome none;
    none.exitCode = job.exitCode.value_or(job::exitUncertain);
    return RecordOf(job).value_or(none);
}

http::Response FailureOf(const Job& job, Json shown) {
    const job::Outcome outcome = OutcomeOrNone(job);
    const Problem problem = ProblemOf(job, outcome);
    Json further = {{"job", std::move(shown)}};
    if (outcome.driver && outcome.driver->errorCode) further["code"] = *outcome.driver->errorCode;
    if (const Entry* entry = EntryOf(outcome)) further["explanation"] = EntryJson(*entry);
    http::Response response = Refusal(problem, DetailOf(outcome, problem), further);
    response.headers.emplace_back("Cache-Control", "no-store");
    return response;
}

}  // namespace

std::optional<job::Outcome> RecordOf(const Job& job) try {
    return job::FromRecord(job.outcome);
} catch (const std::exception&) {
    return std::nullopt;
}

const Entry* EntryOf(const job::Outcome& outcome) {
    const std::string message =
        outcome.driver && outcome.reason.empty() ? outcome.driver->message : outcome.reason;
    if (const Entry* entry = EntryOfMessage(message)) return entry;
    if (outcome.driver && outcome.driver->errorCode)
        if (const Entry* entry = EntryOfCode("ErrorCode=", *outcome.driver->errorCode))
            return entry;
    return EntryOfCode("ResultCode=", outcome.exitCode);
}

bool IsSettled(const Job& job) {
    return job.state != State::Received && job.state != State::Sending;
}

http::Response VerdictOf(const Job& job, const journal::Journal& journal, bool replayed) {
    Json json = WholeJobJson(job, journal);
    json["replayed"] = replayed;
    if (job.verdict == journal::printed) return JsonAnswer(200, json);
    return FailureOf(job, std::move(json));
}

}  // namespace api

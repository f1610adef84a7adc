// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/api/Jobs.h"

#include <algorithm>
#include <array>
#include <functional>
#include <limits>
#include <utility>

#include "companion/api/Body.h"
#include "companion/api/JobJson.h"
#include "companion/api/Verdicts.h"
#include "companion/job/Job.h"
#include "companion/service/Desk.h"

namespace api {

using http::Reply;
using http::Response;
using journal::Job;
using journal::Journal;
using service::Admission;

namespace {

// --- waiting -------------------------------------------------------------------------------------

Response WithWait(Response response, std::chrono::seconds waited) {
    response.headers.emplace_back("Preference-Applied", "wait=" + std::to_string(waited.count()));
    return response;
}

using Answering = std::function<Response(const Job& job)>;

// The answer to a job once it is settled, or when that has lasted too long.
Reply Await(const Call& call, std::int64_t number, const Answering& answer) {
    const std::chrono::seconds wait = WaitOf(call);
    const Job now = call.journal.Get(number);
    if (wait.count() == 0) return answer(now);
    if (IsSettled(now)) return WithWait(answer(now), wait);
    const auto ask = [&journal = call.journal, number, answer,
                      wait](bool last) -> std::optional<Response> {
        const std::optional<Job> job = journal.Find(number);
        if (!job)
            return Refusal(Problem::Forgotten,
                           "The job has ended, and the journal did not keep it; look at the paper");
        if (!last && !IsSettled(*job)) return std::nullopt;
        return WithWait(answer(*job), wait);
    };
    return http::Later{wait, ask};
}

// --- handing in ----------------------------------------------------------------------------------

// A name that every file system and the driver's messages can have.
std::string FileNameOf(const std::string& id) {
    constexpr std::size_t longest = 60;
    std::string name = id.substr(0, longest);
    std::ranges::replace_if(
        name,
        [](char c) {
            return (c < 'a' || c > 'z') && (c < 'A' || c > 'Z') && (c < '0' || c > '9') &&
                   c != '-' && c != '_' && c != '.';
        },
        '_');
    return "/jobs/" + name + ".txt";
}

// Seconds, by what a receipt takes.
int RetryAfter(const Job& job, const Journal& journal) {
    constexpr std::int64_t ofReceipt = 3;
    constexpr std::int64_t longest = 60;
    return static_cast<int>(std::min(ofReceipt * (journal.BeforeInQueue(job) + 1), longest));
}

Response Accepted(const Job& job, const Journal& journal) {
    Response response = JsonAnswer(202, WholeJobJson(job, journal));
    response.headers.emplace_back("Location", UrlOf(job.id, job.number));
    return response;
}

Response Running(const Job& job, const Journal& journal) {
    const std::string detail = job.state == journal::State::Sending
                                   ? "The job is being printed"
                                   : "The job waits in the queue of its register";
    return RefusalForNow(Problem::Running, detail, RetryAfter(job, journal),
                         {{"job", WholeJobJson(job, journal)}});
}

Response QueueFull() {
    constexpr int seconds = 10;
    return RefusalForNow(Problem::QueueFull, "Too many jobs wait for the register", seconds);
}

// Nothing of a job that the caller may have no right to know.
Reply Answered(const Call& call, const service::Ticket& ticket) {
    Journal& journal = call.journal;
    switch (ticket.admission) {
        case Admission::Queued:
            if (call.settings.woken) call.settings.woken(ticket.job.registerName);
            return Await(call, ticket.job.number, [&journal](const Job& job) {
                return IsSettled(job) ? VerdictOf(job, journal, false) : Accepted(job, journal);
            });
        case Admission::Waiting:
        case Admission::Sending:
            return Await(call, ticket.job.number, [&journal](const Job& job) {
                return IsSettled(job) ? VerdictOf(job, journal, false) : Running(job, journal);
            });
        case Admission::Settled:
            return VerdictOf(ticket.job, journal, true);
        case Admission::OtherContent:
            return Refusal(Problem::OtherContent,
                           "The key belongs to a job with another content; a new job needs a new "
                           "key");
        case Admission::OtherRegister:
            return Refusal(Problem::OtherRegister,
                           "The key belongs to a job of another register; a new job needs a new "
                           "key");
        case Admission::QueueFull:
            break;
    }
    return QueueFull();
}

std::optional<Response> RefusalOfKey(const std::string& key) {
    if (key.empty())
        return Refusal(Problem::NoKey,
                       "The header Idempotency-Key is missing; the same key prints once, however "
                       "often it is sent");
    if (!job::IsJobId(key) || !IsUtf8(key))
        return Refusal(Problem::BadKey,
                       "Idempotency-Key is to be 1 to 200 printable characters of UTF-8");
    return std::nullopt;
}

// --- a list --------------------------------------------------------------------------------------

bool IsOfForm(const std::string& text, const std::string& form) {
    return std::ranges::equal(text, form, [](char is, char wanted) {
        return wanted == '0' ? is >= '0' && is <= '9' : is == wanted;
    });
}

bool IsTime(const std::string& text) {
    constexpr std::array forms = {"", "0000-00-00", "0000-00-00T00:00", "0000-00-00T00:00:00"};
    return std::ranges::any_of(forms, [&](const char* form) { return IsOfForm(text, form); });
}

Reply Listed(const Call& call, const journal::Filter& filter, std::int64_t below, int limit) {
    const std::vector<Job> jobs = call.journal.Latest(filter, below, limit);
    Json list = Json::array();
    for (const Job& job : jobs) list.push_back(JobJson(job, call.journal.BeforeInQueue(job)));
    const bool more = jobs.size() == static_cast<std::size_t>(limit);
    return JsonAnswer(
        200, {{"jobs", std::move(list)}, {"next", more ? Json(jobs.back().number) : Json()}});
}

// --- decisions -----------------------------------------------------------------------------------

struct Decided {
    journal::Decision decision = journal::Decision::Printed;
    std::string verdict;
    std::string note;
};

std::variant<Decided, Response> DecisionIn(const http::Request& request) {
    const auto body = ObjectIn(request, {"decision", "note"});
    if (const auto* refusal = std::get_if<Response>(&body)) return *refusal;
    const Json& object = std::get<Json>(body);
    const Json decision = object.value("decision", Json());
    if (decision != journal::printed && decision != journal::notPrinted)
        return Refusal(Problem::BadRequest, "decision is either printed or not-printed");
    const Json note = object.value("note", Json());
    if (!note.is_string() ||
        note.get<std::string>().find_first_not_of(" \t\r\n") == std::string::npos)
        return Refusal(Problem::BadRequest, "note is missing; it says how the decision is known");
    return Decided{
        decision == journal::printed ? journal::Decision::Printed : journal::Decision::NotPrinted,
        decision, note};
}

// The answer to the same call as before was lost, perhaps.
bool IsDecidedSo(const Job& job, const Decided& decided, const std::string& by) {
    return !job.resolvedAt.empty() && job.verdict == decided.verdict && job.note == decided.note &&
           job.resolvedBy == by;
}

Reply Shown(const Call& call, std::int64_t number) {
    return JsonAnswer(200, WholeJobJson(call.journal.Get(number), call.journal));
}

}  // namespace

std::string TagOf(const Job& job, const Journal& journal) {
    return "\"" + std::to_string(journal.LastEventOf(job.number)) + "-" +
           std::to_string(journal.BeforeInQueue(job)) + "\"";
}

Reply HandIn(const Call& call) {
    const runner::Profile* profile = RegisterOf(call);
    if (profile == nullptr) return NoSuchRegister();
    const std::string key = call.request.Header("idempotency-key");
    if (auto refusal = RefusalOfKey(key)) return *std::move(refusal);
    auto content = CommandFileIn(call.request, profile->codePage);
    if (auto* refusal = std::get_if<Response>(&content)) return std::move(*refusal);
    service::Desk desk(call.journal, call.settings.longestQueue);
    return Answered(call, desk.Submit({profile->name, key, std::get<std::string>(content),
                                       call.caller.name, FileNameOf(key)}));
}

Reply ShowJob(const Call& call) {
    const std::optional<Job> found = JobOf(call);
    if (!found) return NoSuchJob();
    const bool head = call.request.method == "HEAD";
    const auto answer = [&journal = call.journal,
                         known = call.request.Header("if-none-match")](const Job& job) {
        const std::string tag = TagOf(job, journal);
        Response response = IsKnownTag(known, tag) ? Response{304, "", "", {}}
                                                   : JsonAnswer(200, WholeJobJson(job, journal));
        response.headers = {{"Cache-Control", "no-cache"}, {"ETag", tag}};
        return response;
    };
    return head ? Reply(answer(*found)) : Await(call, found->number, answer);
}

Reply ListJobs(const Call& call) {
    const std::string limit = call.Query("limit"), below = call.Query("before");
    const std::string state = call.Query("state"), since = call.Query("since");
    if (!limit.empty() && NumberIn(limit).value_or(greatestLimit + 1) > greatestLimit)
        return BadRequest("limit is to be from 1 to " + std::to_string(greatestLimit));
    if (!below.empty() && !NumberIn(below)) return BadRequest("before is to be a job's number");
    if (!state.empty() && !journal::StateOf(state)) return BadRequest("There is no such state");
    if (!IsTime(since))
        return BadRequest("since is to be a date such as 2024-05-31 or 2024-05-31T18:00 (UTC)");
    const std::string wanted = call.Query("register");
    const std::string own = call.caller.registerName.value_or("");
    return Listed(call, {wanted.empty() ? own : wanted, "", since, journal::StateOf(state)},
                  NumberIn(below).value_or(std::numeric_limits<std::int64_t>::max()),
                  static_cast<int>(NumberIn(limit).value_or(usualLimit)));
}

Reply Resolve(const Call& call) {
    const std::optional<Job> job = JobOf(call);
    if (!job) return NoSuchJob();
    auto body = DecisionIn(call.request);
    if (auto* refusal = std::get_if<Response>(&body)) return std::move(*refusal);
    const Decided& decided = std::get<Decided>(body);
    if (IsDecidedSo(*job, decided, call.caller.name)) return Shown(call, job->number);
    try {
        call.journal.Resolve(job->number, decided.decision, call.caller.name, decided.note);
    } catch (const journal::WrongState& refusal) {
        return Refusal(Problem::NothingToDecide, refusal.what());
    }
    return Shown(call, job->number);
}

Reply Withdraw(const Call& call) {
    const std::optional<Job> job = JobOf(call);
    if (!job) return NoSuchJob();
    if (job->till != call.caller.name && !call.caller.May(http::Scope::Resolve))
        return Refusal(Problem::NotYours, "The job was handed in by somebody else");
    if (!job->withdrawnBy.empty()) return Shown(call, job->number);
    try {
        service::Desk(call.journal, call.settings.longestQueue)
            .Withdraw(job->number, call.caller.name);
    } catch (const journal::WrongState& refusal) {
        return Refusal(Problem::NotQueued, refusal.what());
    }
    return Shown(call, job->number);
}

}  // namespace api

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/HandOver.h"

#include <grp.h>
#include <poll.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <new>
#include <nlohmann/json.hpp>
#include <string_view>
#include <system_error>
#include <utility>

#include "companion/http/Path.h"
#include "companion/job/Following.h"
#include "companion/runner/CommandPath.h"
#include "companion/runner/RegisterRun.h"
#include "companion/runner/Utf8.h"
#include "companion/service/Desk.h"
#include "ctl/UserName.h"

using journal::Job;
using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

constexpr milliseconds lookPause = 10ms;  // at the journal, which costs microseconds
constexpr milliseconds showPause = 100ms;
constexpr milliseconds callPause = 200ms;
constexpr milliseconds visitPause = 1s;
// So that a job that was cut off can be found out before others are said to be first.
constexpr milliseconds leastPatience = 1s;
// A service that is started again is back by then.
constexpr milliseconds longestGone = 5s;
// Of a service that has the request; after an interrupt, and without one.
constexpr milliseconds shortSilence = 5s, longestSilence = 60s;
// For the first job of a queue: its worker, too, waits for programs of others.
constexpr milliseconds longestBeginning = 120s;
// For the verdict of what is being printed, after an interrupt.
constexpr milliseconds longestVerdict = 60s;

constexpr char othersFirst[] =
    "other jobs are before this one on the register, and --wait was over; it has left the queue";
constexpr char callEnded[] = "the call was ended before the job was printed; it has left the queue";
constexpr char notBegun[] =
    "the service has not begun to print the job for a long time; it has left the queue";
constexpr char stillQueued[] =
    "the job was in the queue before this call, and is still there; it may be printed later";
constexpr char stillPrinted[] = "the job is still being printed; ask again under its ID";

bool IsSettled(const Job& job) {
    return job.state != journal::State::Received && job.state != journal::State::Sending;
}

std::string NewKey() {
    std::array<unsigned char, 16> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        throw std::system_error(errno, std::generic_category(), "getrandom");
    constexpr std::string_view digits = "0123456789abcdef";
    std::string key = "run-";
    for (const unsigned char byte : bytes) {
        key += digits[byte >> 4U];
        key += digits[byte & 0xFU];
    }
    return key;
}

// A header begins and ends without blanks, and is UTF-8 for the service.
bool CanBeInHeader(std::string_view id) {
    if (id.starts_with(' ') || id.ends_with(' ')) return false;
    while (!id.empty()) {
        if (runner::NextCharacter(id) == runner::noCharacter) return false;
    }
    return true;
}

std::string GroupOf(const std::string& file) {
    struct stat status = {};
    if (stat(file.c_str(), &status) != 0) return "of the service";
    const group* entry = getgrgid(status.st_gid);
    return entry == nullptr ? std::to_string(status.st_gid) : entry->gr_name;
}

bool IsNobody(const std::system_error& failure) {
    const int code = failure.code().value();
    return code == ENOENT || code == ECONNREFUSED || code == ENAMETOOLONG;
}

bool IsNotAllowed(const std::system_error& failure) {
    const int code = failure.code().value();
    return code == EACCES || code == EPERM;
}

// What a problem says (RFC 9457).
std::string DetailIn(const client::Answer& answer) {
    const auto json = nlohmann::json::parse(answer.body, nullptr, false);
    const auto detail = json.is_object() ? json.value("detail", nlohmann::json()) : json;
    return detail.is_string() ? detail.get<std::string>()
                              : "status " + std::to_string(answer.status);
}

}  // namespace

HandOver::HandOver(Counter counter, job::Request request, job::Watcher watcher)
    : counter_(std::move(counter)),
      callersId_(request.id),
      request_(std::move(request)),
      watcher_(std::move(watcher)) {
    if (!request_.id) request_.id = NewKey();
}

std::optional<job::Outcome> HandOver::Do() {
    if (auto known = counter_.jobs.Known(request_)) return known;
    if (const auto job = counter_.journal.Find(*request_.id)) {
        lastEvent_ = counter_.journal.LastEventOf(job->number);
        isOthers_ = job->state == journal::State::Sending;
        isJoined_ = job->InQueue();
    }
    runner::CheckCommandPath(request_.file);
    try {
        return HandIn();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& failure) {  // of the journal: who knows what it has
        return InDoubt(failure.what());
    }
}

// --- outcomes ------------------------------------------------------------------------------------

job::Outcome HandOver::Told(job::Outcome outcome) const {
    outcome.id = callersId_;
    return outcome;
}

job::Outcome HandOver::NotNow(const std::string& reason) const {
    return Told(counter_.jobs.NotNow(request_, reason));
}

job::Outcome HandOver::InDoubt(const std::string& reason) const {
    job::Outcome outcome = NotNow(reason);
    job::BeInDoubt(outcome, counter_.profile.oldResultFileFormat);
    return outcome;
}

// --- handing in ----------------------------------------------------------------------------------

std::optional<job::Outcome> HandOver::HandIn() {
    if (!IsForRequest()) {
        // Who may not call the service has no place in its queue, either.
        if (const Heard heard = Look(); heard == Heard::NotAllowed) return Next({heard});
        PutIntoQueue();
        return IsTaken(true) ? Follow() : NotNow("the queue does not take the job");
    }
    while (true) {
        const Reply reply = Call();
        if (IsTaken(reply.heard == Heard::Answer)) return Follow();
        if (reply.heard == Heard::Nobody && !isLost_) return std::nullopt;
        if (auto outcome = Next(reply)) return outcome;
        Sleep(callPause);
        if (interrupted_) return NotNow(callEnded);
    }
}

// The journal does not have the job. Nothing: the service is to be called again.
std::optional<job::Outcome> HandOver::Next(const Reply& reply) {
    switch (reply.heard) {
        case Heard::Nobody:  // it was killed before it has taken the job
            if (!IsOver(longestGone)) return std::nullopt;
            return Told(counter_.jobs.Do(request_, watcher_));
        case Heard::NotAllowed:
            return NotNow(
                "this account may not use '" + counter_.socket +
                "', where the service takes jobs for the register. As root, add it to the "
                "group " +
                GroupOf(counter_.socket) + ", and log it in again");
        case Heard::Lost:
            isLost_ = true;
            [[fallthrough]];
        case Heard::Busy:
            if (!IsOver(std::max(request_.wait.longest, longestGone))) return std::nullopt;
            return NotNow("the service at '" + counter_.socket + "' does not take the job - " +
                          reply.why);
        case Heard::Silence:
            return InDoubt("the service at '" + counter_.socket +
                           "' does not answer, and may still take the job");
        case Heard::Answer:
            break;
    }
    constexpr int firstError = 300;
    if (reply.status < firstError)
        return InDoubt("the service at '" + counter_.socket +
                       "' keeps its jobs in another journal");
    return NotNow("the service at '" + counter_.socket + "' does not take the job - " + reply.why);
}

HandOver::Reply HandOver::Call() {
    try {
        client::Connection connection(counter_.socket);
        return Ask(connection);
    } catch (const std::system_error& failure) {
        if (IsNobody(failure)) return {Heard::Nobody};
        if (IsNotAllowed(failure)) return {Heard::NotAllowed};
        return {Heard::Busy, 0, failure.what()};
    }
}

// Busy: somebody is there.
HandOver::Heard HandOver::Look() const try {
    client::Connection connection(counter_.socket);
    return Heard::Busy;
} catch (const std::system_error& failure) {
    if (IsNotAllowed(failure)) return Heard::NotAllowed;
    return IsNobody(failure) ? Heard::Nobody : Heard::Busy;
}

HandOver::Reply HandOver::Ask(client::Connection& connection) try {
    connection.Send({"POST",
                     "/v1/registers/" + http::AsSegment(counter_.profile.name) + "/jobs",
                     {{"Idempotency-Key", *request_.id}, {"Content-Type", "text/plain"}},
                     request_.content});
    const auto answer = Await(connection);
    if (!answer) return {Heard::Silence};
    constexpr int forbidden = 403, tooMany = 429, notNow = 503;
    if (answer->status == forbidden) return {Heard::NotAllowed};
    if (answer->status == tooMany || answer->status == notNow)
        return {Heard::Busy, answer->status, DetailIn(*answer)};
    return {Heard::Answer, answer->status, DetailIn(*answer)};
} catch (const client::BadAnswer& failure) {
    return {Heard::Lost, 0, failure.what()};
} catch (const std::system_error& failure) {  // while it was sent
    return {Heard::Lost, 0, failure.what()};
}

// The journal may have the job before the answer is here.
std::optional<client::Answer> HandOver::Await(client::Connection& connection) {
    const auto begin = Clock::now();
    while (true) {
        if (auto answer = connection.Await(lookPause)) return answer;
        HearInterrupt();
        const milliseconds longest = interrupted_ ? shortSilence : longestSilence;
        if (Clock::now() - begin >= longest || IsTaken(false)) return std::nullopt;
    }
}

// An ID that no header can have, and a file that is longer than the service takes, go into the
// queue by the journal, where the service finds it some seconds later.
bool HandOver::IsForRequest() const {
    constexpr std::size_t longestBody = 64UL * 1024;
    return request_.content.size() <= longestBody && CanBeInHeader(*request_.id);
}

void HandOver::PutIntoQueue() {
    constexpr std::int64_t longestQueue = 1000;
    service::Desk(counter_.journal, longestQueue)
        .Submit({counter_.profile.name, *request_.id, request_.content, UserName(),
                 "/jobs/handed-over.txt"});
}

// By this call, or by another one under its ID. That it was not printed is no end before the
// service has answered: another call may have given it up while the request of this one, which puts
// it into the queue again, is still on its way.
bool HandOver::IsTaken(bool isAnswered) {
    const auto job = counter_.journal.Find(*request_.id);
    if (!job || job->content != request_.content || job->registerName != counter_.profile.name)
        return false;
    const bool isNew = counter_.journal.LastEventOf(job->number) > lastEvent_;
    const bool isFailed = job->state == journal::State::Failed;
    const bool isTaken = job->InQueue() || job->state == journal::State::Sending ||
                         (isNew && (isAnswered || !isFailed));
    if (isTaken) number_ = job->number;
    return isTaken;
}

// --- following -----------------------------------------------------------------------------------

job::Outcome HandOver::Follow() {
    seen_ = Clock::now();
    while (true) {
        const Job job = counter_.journal.Get(number_);
        if (IsSettled(job)) {
            job::Outcome outcome = Told(counter_.jobs.Told(job, request_.file));
            outcome.replayed = isOthers_;
            return outcome;
        }
        if (job.state == journal::State::Received) {
            LeaveQueueInTime(job);
            if (hasLeft_) return InDoubt(stillQueued);
        } else if (interrupted_ && Clock::now() - *interrupted_ >= longestVerdict) {
            return InDoubt(stillPrinted);
        }
        LookAfter(job);
        if (hasLeft_) return InDoubt(stillQueued);
        ShowProgress(job);
        Sleep(lookPause);
    }
}

bool HandOver::IsOver(milliseconds longest) const {
    return Clock::now() - start_ >= longest;
}

void HandOver::LeaveQueueInTime(const Job& job) {
    const milliseconds patience = std::max(request_.wait.longest, leastPatience);
    if (interrupted_) return GiveUp(job, callEnded);
    if (IsOver(patience + longestBeginning)) return GiveUp(job, notBegun);
    if (!IsOver(patience)) return;
    const bool isFirst =
        counter_.journal.BeforeInQueue(job) == 0 &&
        !counter_.journal.OpenJobs(journal::State::Sending).contains(job.registerName);
    if (!isFirst) GiveUp(job, othersFirst);
}

// It may be printed by now; then its verdict is waited for. What another call has put into the
// queue is not this one's to take out of it.
void HandOver::GiveUp(const Job& job, const std::string& reason) try {
    hasLeft_ = isJoined_;
    if (hasLeft_) return;
    service::Desk(counter_.journal, 0).GiveUp(job.number, reason);
} catch (const journal::WrongState&) {
}

// Once a second.
void HandOver::LookAfter(const Job& job) {
    const auto now = Clock::now();
    if (now < nextLook_) return;
    nextLook_ = now + visitPause;
    if (Look() == Heard::Busy) seen_ = now;
    const bool isGone = now - seen_ >= longestGone;
    if (job.state == journal::State::Sending)
        FindOut(isGone);
    else if (isGone)
        TakeOver(job);
}

// Nobody else does it.
void HandOver::TakeOver(const Job& job) {
    const job::Outcome outcome = counter_.jobs.Do(request_, watcher_);
    if (counter_.journal.Get(job.number).state == journal::State::Received)
        GiveUp(job, outcome.reason);
}

// Who prints it has the register. A service that is there may have lost its worker, and every new
// one, all the same.
void HandOver::FindOut(bool isServiceGone) try {
    counter_.jobs.FindOut({});
} catch (const runner::DeviceBusy&) {  // who prints it is still at work
} catch (const std::bad_alloc&) {
    throw;
} catch (const std::exception&) {  // an account that may less than the service
    if (isServiceGone) throw;
}

// --- while it lasts ------------------------------------------------------------------------------

void HandOver::ShowProgress(const Job& job) {
    if (!watcher_.progress || job.state != journal::State::Sending || Clock::now() < nextShow_)
        return;
    nextShow_ = Clock::now() + showPause;
    try {
        if (plan_.empty()) plan_ = plan::CommandsOf(job.logs + "/command");
        const std::string log = runner::DebugLogOf(job.logs);
        watcher_.progress(job::CommandsIn(counter_.profile, log), plan_);
    } catch (const std::exception&) {  // the service's files are not for this account
    }
}

void HandOver::Sleep(milliseconds longest) {
    pollfd interrupt{watcher_.stopFd, POLLIN, 0};
    poll(&interrupt, 1, static_cast<int>(longest.count()));
    HearInterrupt();
}

void HandOver::HearInterrupt() {
    if (!interrupted_ && !request_.wait.goOn()) interrupted_ = Clock::now();
}

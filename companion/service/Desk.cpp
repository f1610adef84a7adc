// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/service/Desk.h"

#include <optional>
#include <utility>

#include "companion/job/Outcome.h"

namespace service {

using journal::Job;
using journal::State;

namespace {

// One that is failed may be tried again, on another register as well, unless it was withdrawn.
bool IsOpen(const Job& job) {
    if (job.state == State::Failed) return job.withdrawnBy.empty();
    return job.state == State::Received && !job.place;
}

Admission AdmissionOf(const Job& job) {
    if (job.state == State::Received) return Admission::Waiting;
    return job.state == State::Sending ? Admission::Sending : Admission::Settled;
}

Ticket TicketOf(Job job, const Submission& submission) {
    Admission admission = AdmissionOf(job);
    if (job.registerName != submission.registerName) admission = Admission::OtherRegister;
    if (job.content != submission.content) admission = Admission::OtherContent;
    return {admission, std::move(job)};
}

job::Outcome Unprinted(const Job& job, const std::string& reason) {
    job::Outcome outcome;
    outcome.id = job.id;
    outcome.registerName = job.registerName;
    constexpr int errorSystem = 50;
    job::SettleUnsent(outcome, false, job::exitNotPrinted, errorSystem, reason);
    return outcome;
}

}  // namespace

Ticket Desk::Submit(const Submission& submission) {
    std::optional<Job> known = journal_.Find(submission.id);
    const bool same = known && known->content == submission.content;
    if (known && !(same && IsOpen(*known))) return TicketOf(*std::move(known), submission);
    if (journal_.QueueLength(submission.registerName) >= longestQueue_) return {};
    return Enqueue(submission);
}

// Another process may have taken the ID meanwhile.
Ticket Desk::Enqueue(const Submission& submission) {
    try {
        Job job =
            journal_.Get(journal_.Receive({submission.id, submission.registerName, submission.file,
                                           submission.content, submission.till, true}));
        Ticket ticket = TicketOf(std::move(job), submission);
        if (ticket.admission == Admission::Waiting) ticket.admission = Admission::Queued;
        return ticket;
    } catch (const journal::OtherContent&) {
        return {Admission::OtherContent, journal_.Find(submission.id).value_or(Job())};
    }
}

Job Desk::Withdraw(std::int64_t number, const std::string& till) {
    const job::Outcome outcome = Unprinted(
        journal_.Get(number), "The job was withdrawn by '" + till + "' before it was printed");
    journal_.Withdraw(number, till, job::ToRecord(outcome), outcome.exitCode);
    return journal_.Get(number);
}

Job Desk::GiveUp(std::int64_t number, const std::string& reason) {
    const Job job = journal_.Get(number);
    if (!job.InQueue()) throw journal::WrongState("the job is in no queue");
    const job::Outcome outcome = Unprinted(job, reason);
    journal_.GiveUp(job, job::ToRecord(outcome), outcome.exitCode);
    return journal_.Get(number);
}

}  // namespace service

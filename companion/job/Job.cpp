// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/job/Job.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <filesystem>
#include <new>
#include <system_error>
#include <utility>

#include "DriverException.h"
#include "companion/runner/CommandPath.h"

namespace fs = std::filesystem;

namespace job {

using journal::State;
using verdict::Kind;

namespace {

/// Raised while nothing has been sent yet.
class NothingSent : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

constexpr char forgetFailed[] =
    "The register may hold the command number of an earlier run and could not be made to forget "
    "it; nothing was sent. Run the job again when the register answers";

std::string AbsolutePath(const std::string& file) {
    std::error_code none;
    const fs::path path = fs::absolute(file, none);
    return none ? file : path.lexically_normal().string();
}

// What a person has decided goes before what the run said.
void TakeDecision(const journal::Job& job, bool oldFormat, Outcome& outcome) {
    if (job.resolvedAt.empty() || job.verdict != journal::printed) return;
    outcome.verdict = Kind::Printed;
    outcome.atLeast = outcome.atMost = outcome.of;
    outcome.nextLine.reset();
    outcome.exitCode = exitPrinted;
    outcome.result = oldFormat ? "0\nOK" : "[VOLTIS]\nResultCode=0\nMessage=OK";
}

// What ended in a queue was settled by who does not know the register's format.
void SettleAgain(const journal::Job& job, bool oldFormat, Outcome& outcome) {
    if (job.state != State::Failed || outcome.driver) return;
    SettleUnsent(outcome, oldFormat, outcome.exitCode, ERR_SYSTEM, outcome.reason);
}

void Replace(const std::string& what, const std::string& by, std::string& text) {
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
        text.replace(at, what.size(), by);
}

void Rename(const std::string& file, const std::string& as, Outcome& outcome) {
    if (file.empty()) return;
    if (outcome.driver) Replace(file, as, outcome.driver->message);
    Replace(file, as, outcome.reason);
    Replace(file, as, outcome.result);
}

journal::Ended EndedOf(const Outcome& outcome, bool mayHold) {
    return {Word(outcome.verdict), ToRecord(outcome), outcome.exitCode, mayHold};
}

}  // namespace

bool IsJobId(const std::string& id) {
    constexpr std::size_t longest = 200;
    return !id.empty() && id.size() <= longest && std::ranges::all_of(id, [](char letter) {
        const auto code = static_cast<unsigned char>(letter);
        return code >= 0x20 && code != 0x7F;
    });
}

Jobs::Jobs(journal::Journal& journal, const runner::Profile& profile, Site site,
           std::string runsFolder)
    : Jobs(journal, profile, std::make_unique<SiteRegister>(profile, std::move(site)),
           std::move(runsFolder)) {}

Jobs::Jobs(journal::Journal& journal, const runner::Profile& profile,
           std::unique_ptr<Register> ofJobs, std::string runsFolder)
    : journal_(journal),
      profile_(profile),
      register_(std::move(ofJobs)),
      runs_(std::move(runsFolder)) {}

std::string Jobs::FolderOf(std::int64_t number) const {
    return runs_ + "/" + std::to_string(number);
}

Outcome Jobs::Unsent(const Request& request, const std::string& reason) const {
    Outcome outcome;
    outcome.id = request.id;
    outcome.registerName = profile_.name;
    SettleUnsent(outcome, profile_.oldResultFileFormat, exitNotPrinted, ERR_SYSTEM, reason);
    return outcome;
}

// Not by this call.
bool Jobs::PerhapsSent(const Request& request) const try {
    const auto job = request.id ? journal_.Find(*request.id) : std::nullopt;
    return job && job->content == request.content && journal::PerhapsSent(job->state);
} catch (const journal::JournalError&) {  // a job without an ID was not asked for
    return true;
}

Outcome Jobs::NotNow(const Request& request, const std::string& reason) const {
    Outcome outcome = Unsent(request, reason);
    if (PerhapsSent(request)) BeInDoubt(outcome, profile_.oldResultFileFormat);
    return outcome;
}

// What became of it before, when that is an answer.
std::optional<Outcome> Jobs::Known(const Request& request) const {
    if (!request.id) return std::nullopt;
    const auto job = journal_.Find(*request.id);
    if (!job) return std::nullopt;
    if (job->content != request.content)
        return Unsent(request, "Job '" + *request.id + "' has another content: it is the job of " +
                                   job->received + " from '" + job->file + "'");
    const bool settled = job->state == State::Done || job->state == State::InDoubt;
    if (!settled && job->withdrawnBy.empty()) return std::nullopt;
    Outcome outcome = Told(*job, request.file);
    outcome.replayed = true;
    return outcome;
}

// The service, which knows no files of its callers, has given the driver a name of its own.
Outcome Jobs::Told(const journal::Job& job, const std::string& file) const {
    Outcome outcome = FromRecord(job.outcome);
    SettleAgain(job, profile_.oldResultFileFormat, outcome);
    if (!job.till.empty()) Rename(job.file, runner::DriversPath(file), outcome);
    TakeDecision(job, profile_.oldResultFileFormat, outcome);
    return outcome;
}

Outcome Jobs::Do(const Request& request, const Watcher& watcher) {
    try {
        if (auto known = Known(request)) return *known;
        const std::unique_ptr<Hold> hold = register_->Lock(request.wait);
        return DoLocked(request, watcher, *hold);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& failure) {  // whatever it is, nothing was sent
        return NotNow(request, failure.what());
    }
}

Outcome Jobs::DoLocked(const Request& request, const Watcher& watcher, Hold& hold) {
    RecoverAll(hold);
    if (auto known = Known(request)) return *known;  // while the lock was waited for
    const journal::Job job = journal_.Get(
        journal_.Receive({request.id, profile_.name, AbsolutePath(request.file), request.content}));
    return Begin(job, request, watcher, hold, std::nullopt);
}

Outcome Jobs::Begin(const journal::Job& job, const Request& request, const Watcher& watcher,
                    Hold& hold, std::optional<std::int64_t> place) {
    std::unique_ptr<Work> work;
    try {
        work = hold.Begin(watcher);
        Prepare(*work, FolderOf(job.number));
        journal_.StartSending(job.number, profile_.name, FolderOf(job.number), place);
    } catch (const journal::OutOfTurn&) {
        throw;
    } catch (const std::exception& failure) {
        return Refuse(job, request, failure.what());
    }
    return Send(job.number, request, *work);
}

// Another program may have printed the first job on its own register, or tried to, while this one
// was got ready; then it may wait again, behind others.
std::optional<Outcome> Jobs::DoNext(const runner::LockWait& wait, const Watcher& watcher) {
    while (true) {
        try {
            return DoFirst(wait, watcher);
        } catch (const journal::OutOfTurn&) {
        }
    }
}

std::optional<journal::Job> Jobs::First() const {
    const auto number = journal_.NextInQueue(profile_.name);
    return number ? journal_.Find(*number) : std::nullopt;
}

// Only what concerns the job itself, or keeps the register from it, is the end of the job.
std::optional<Outcome> Jobs::DoFirst(const runner::LockWait& wait, const Watcher& watcher) {
    std::optional<journal::Job> first = First();
    if (!first) return std::nullopt;
    const auto requestOf = [&wait](const journal::Job& job) {
        return Request{job.id, job.file, job.content, wait};
    };
    std::unique_ptr<Hold> hold;
    try {
        hold = register_->Lock(wait);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const runner::DeviceBusy& failure) {
        if (!wait.goOn() || IsSending()) return std::nullopt;
        return Refuse(*first, requestOf(*first), failure.what());
    } catch (const std::exception& failure) {
        if (!wait.goOn()) return std::nullopt;
        return Refuse(*first, requestOf(*first), failure.what());
    }
    RecoverAll(*hold);
    first = First();  // another one, perhaps, by now
    if (!first) return std::nullopt;
    return Begin(*first, requestOf(*first), watcher, *hold, first->place);
}

bool Jobs::IsSending() const {
    return journal_.OpenJobs(State::Sending).contains(profile_.name);
}

bool Jobs::HasLeft() const {
    return !journal_.List({profile_.name, "", "", State::Sending}).empty() ||
           std::ranges::any_of(journal_.List({profile_.name, "", "", State::Received}),
                               [](const journal::Job& job) { return !job.InQueue(); });
}

void Jobs::FindOut(const runner::LockWait& wait) {
    if (HasLeft()) RecoverAll(*register_->Lock(wait));
}

Outcome Jobs::Refuse(const journal::Job& seen, const Request& request, const std::string& reason) {
    Outcome outcome = Unsent(request, reason);
    try {
        journal_.GiveUp(seen, ToRecord(outcome), outcome.exitCode);
        return outcome;
    } catch (const journal::OutOfTurn&) {
        throw;
    } catch (const journal::WrongState&) {  // another register has the job by now
        return NotNow(request, reason);
    }
}

void Jobs::Prepare(Work& work, const std::string& folder) const {
    work.MakeFolder(folder);
    const auto mayHold = journal_.MayHold(profile_.name);
    if (!mayHold) work.BeFirst();
    if (mayHold.value_or(false) && !work.MakeForget(folder + "/before"))
        throw NothingSent(forgetFailed);
    work.Note(folder);
}

// From here on the job may have been printed, and its state says so.
Outcome Jobs::Send(std::int64_t number, const Request& request, Work& work) {
    Outcome outcome;
    try {
        outcome = work.Run({request.file, request.content, FolderOf(number)});
    } catch (const runner::SandboxError& failure) {  // the driver was never started
        outcome = Unsent(request, failure.what());
    } catch (const std::exception& failure) {
        outcome = Unsent(request, failure.what());
        if (work.Started()) {  // its state remains: the next run finds out
            BeInDoubt(outcome, profile_.oldResultFileFormat);
            return outcome;
        }
    }
    outcome.id = request.id;
    Finish(number, outcome, work);
    return outcome;
}

// What is not written down must not be told as certain: the next call with this ID finds out again.
void Jobs::Finish(std::int64_t number, Outcome& outcome, const Work& work) {
    try {
        journal_.Finish(number, EndedOf(outcome, work.MayHold()));
    } catch (const std::exception& failure) {
        outcome.reason = failure.what();
        BeInDoubt(outcome, profile_.oldResultFileFormat);
        return;
    }
    RemoveOldRuns();
}

// What cannot be removed now is removed after another run.
void Jobs::RemoveOldRuns() try {
    for (const std::string& folder :
         journal_.Prune(profile_.journalDays, std::chrono::system_clock::now(), profile_.name)) {
        // Only what is ours: the journal may have come from another place.
        if (folder.starts_with(runs_ + "/")) register_->Remove(folder);
    }
} catch (const journal::JournalError&) {
}

// Whoever held the lock of this register is dead: what it was sending is to be found out, and what
// it had received and not begun to send nobody will send any more.
void Jobs::RecoverAll(Hold& hold) {
    for (const journal::Job& lost : journal_.List({profile_.name, "", "", State::Sending}))
        Recover(lost, hold);
    for (const journal::Job& left : journal_.List({profile_.name, "", "", State::Received}))
        if (!left.InQueue()) GiveUpLeft(left);
}

void Jobs::GiveUpLeft(const journal::Job& left) try {
    Refuse(left, {left.id, left.file, "", {}}, "The run was cut off before it began");
} catch (const journal::OutOfTurn&) {  // somebody has taken it up again
}

void Jobs::Recover(const journal::Job& lost, Hold& hold) {
    const std::unique_ptr<Work> work = hold.Begin({});
    const journal::Job whole = journal_.Get(lost.number);
    Outcome outcome = work->Recover({whole.file, whole.content, whole.logs});
    outcome.id = whole.id;
    journal_.Finish(lost.number, EndedOf(outcome, work->MayHold()));
}

}  // namespace job

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A job: a command file that is to be printed exactly once.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "companion/job/Attempt.h"
#include "companion/job/Outcome.h"
#include "companion/journal/Journal.h"
#include "companion/runner/Profile.h"

namespace job {

struct Request {
    std::optional<std::string> id;
    std::string file;     // as the caller names it
    std::string content;  // its bytes
    runner::LockWait wait;
};

/// 1 to 200 printable characters.
bool IsJobId(const std::string& id);

/// Of one register. Everything that can be known is in the outcome; nothing is thrown but
/// std::bad_alloc.
class Jobs {
  public:
    /// The journal and the profile must outlive it.
    Jobs(journal::Journal& journal, const runner::Profile& profile, Site site,
         std::string runsFolder);
    /// On a register that is given. What the runs leave is in folders below the one of that name.
    Jobs(journal::Journal& journal, const runner::Profile& profile,
         std::unique_ptr<Register> ofJobs, std::string runsFolder);

    /// Runs the job, or answers with what became of it before.
    Outcome Do(const Request& request, const Watcher& watcher);

    /// What became of the job before; nothing: it is still to be printed.
    std::optional<Outcome> Known(const Request& request) const;
    /// What became of a job that has ended, as its caller names the file.
    Outcome Told(const journal::Job& job, const std::string& file) const;
    /// That this call has sent nothing, and why. An earlier one with the same ID may have.
    Outcome NotNow(const Request& request, const std::string& reason) const;

    /// Runs the first job of the register's queue; nothing: there is none, the wait was ended by
    /// its goOn, or the register was printing another job of this journal all that time. When the
    /// register cannot be had for another reason, that is the job's outcome. std::exception: the
    /// journal cannot be used, or what became of a job that was cut off cannot be found out; then
    /// the queue is as it was.
    std::optional<Outcome> DoNext(const runner::LockWait& wait, const Watcher& watcher);

    /// Whether there are jobs that somebody is printing, or that were cut off.
    bool HasLeft() const;
    /// Finds out what became of jobs that were cut off. std::exception: not of all of them.
    void FindOut(const runner::LockWait& wait);

  private:
    Outcome DoLocked(const Request& request, const Watcher& watcher, Hold& hold);
    void RecoverAll(Hold& hold);
    void Recover(const journal::Job& lost, Hold& hold);
    void GiveUpLeft(const journal::Job& left);
    Outcome Begin(const journal::Job& job, const Request& request, const Watcher& watcher,
                  Hold& hold, std::optional<std::int64_t> place);
    std::optional<journal::Job> First() const;
    bool IsSending() const;
    std::optional<Outcome> DoFirst(const runner::LockWait& wait, const Watcher& watcher);
    Outcome Send(std::int64_t number, const Request& request, Work& work);
    void Prepare(Work& work, const std::string& folder) const;
    Outcome Refuse(const journal::Job& seen, const Request& request, const std::string& reason);
    void Finish(std::int64_t number, Outcome& outcome, const Work& work);
    void RemoveOldRuns();
    bool PerhapsSent(const Request& request) const;
    Outcome Unsent(const Request& request, const std::string& reason) const;
    std::string FolderOf(std::int64_t number) const;

    journal::Journal& journal_;
    const runner::Profile& profile_;
    std::unique_ptr<Register> register_;
    std::string runs_;
};

}  // namespace job

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A job: a command file that is to be printed exactly once.
#pragma once

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

    /// Runs the job, or answers with what became of it before.
    Outcome Do(const Request& request, const Watcher& watcher);

  private:
    std::optional<Outcome> Known(const Request& request) const;
    Outcome DoLocked(const Request& request, const Watcher& watcher,
                     const runner::DeviceLock& lock);
    void RecoverAll(const runner::DeviceLock& lock);
    void Recover(const journal::Job& lost, const runner::DeviceLock& lock);
    Outcome Send(std::int64_t number, const Request& request, Attempt& attempt);
    void Prepare(Attempt& attempt, const std::string& folder) const;
    Outcome Refuse(std::int64_t number, const Request& request, const std::string& reason);
    void Finish(std::int64_t number, Outcome& outcome, const Attempt& attempt);
    void RemoveOldRuns();
    bool PerhapsSent(const Request& request) const;
    Outcome NotNow(const Request& request, const std::string& reason) const;
    Outcome Unsent(const Request& request, const std::string& reason) const;
    std::string FolderOf(std::int64_t number) const;

    journal::Journal& journal_;
    const runner::Profile& profile_;
    Site site_;
    std::string runs_;
};

}  // namespace job

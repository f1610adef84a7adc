// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Runs of the driver on a register that is locked for them, and what they tell.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "companion/job/Following.h"
#include "companion/job/Outcome.h"
#include "companion/plan/Plan.h"
#include "companion/runner/DeviceLock.h"
#include "companion/runner/RegisterRun.h"

namespace job {

/// Where a site keeps what a job needs.
struct Site {
    std::string driver;
    std::string locks = runner::lockFolder;
    std::string logs = runner::siteLogFolder;
};

/// Who waits for a run: both are optional.
struct Watcher {
    /// Readable when the run is to be ended; -1: nothing is.
    int stopFd = -1;
    /// Called now and then with the commands that went out, and the number of all.
    std::function<void(std::size_t done, const std::vector<plan::Command>& all)> progress = {};
    /// A run of the driver that takes longer is ended, a status read, too; 0: none is.
    std::chrono::milliseconds longestRun{0};
};

/// A command file on its way to the register.
struct Errand {
    std::string file;     // as the caller names it
    std::string content;  // its bytes
    std::string folder;   // for what the runs leave
};

class Attempt {
  public:
    /// The lock must be held for as long as this lives. std::runtime_error: the profile names a
    /// habit that is none, so that no verdict could be reached.
    Attempt(const runner::Profile& profile, const Site& site, const runner::DeviceLock& lock,
            Watcher watcher = {});

    /// What the register holds from before nobody knows.
    void BeFirst();
    /// Notes in the folder what Recover has to know. To be done before the job is being sent.
    void Note(const std::string& folder) const;
    /// Makes the register forget a command number, by runs of their own. False: it could not be
    /// done, and then nothing else may be sent.
    bool MakeForget(const std::string& folder);

    /// Runs the driver and tells what came of it, asking for the status when anything was odd.
    /// std::exception: without Started(), nothing was sent.
    Outcome Run(const Errand& errand);
    /// The driver of Run was at work.
    bool Started() const { return started_; }

    /// The same for a run that was cut off and left its log in that folder, perhaps long ago.
    Outcome Recover(const Errand& errand);

    /// The register may still hold a number, or have something to say, of the last of these.
    bool MayHold() const { return !remains_.held.Empty() || remains_.coming > 0; }

  private:
    runner::RunRequest RequestFor(const Errand& errand) const;
    std::chrono::steady_clock::time_point EndOfPatience() const;
    std::unique_ptr<runner::RegisterRun> Start(const runner::RunRequest& request);
    void AppendToSiteLogs(const runner::RunResult& result) const;
    runner::RunResult Await(const runner::RunRequest& request);
    std::vector<plan::Command> PlanOf(const Errand& errand, const std::string& log) const;
    std::optional<std::string> AskStatus(const std::string& folder);
    void Clarify(verdict::Account& account, const std::string& folder);
    bool MakeForgetOnce(const std::string& folder);
    Outcome Tell(const verdict::Account& account, const std::vector<plan::Command>& plan,
                 const DriverWord& driver);

    const runner::Profile& profile_;
    const Site& site_;
    const runner::DeviceLock& lock_;
    Watcher watcher_;
    verdict::Remains remains_;
    bool first_ = false;  // BeFirst
    bool started_ = false;
    bool interrupted_ = false;
};

}  // namespace job

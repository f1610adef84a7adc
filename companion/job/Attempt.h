// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Runs of the driver on a register that is locked for them, and what they tell.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "companion/job/Following.h"
#include "companion/job/Outcome.h"
#include "companion/job/Register.h"
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

class Attempt : public Work {
  public:
    /// The lock must be held for as long as this lives. std::runtime_error: the profile names a
    /// habit that is none, so that no verdict could be reached.
    Attempt(const runner::Profile& profile, const Site& site, const runner::DeviceLock& lock,
            Watcher watcher = {});

    void BeFirst() override;
    void MakeFolder(const std::string& folder) override;
    void Note(const std::string& folder) override;
    bool MakeForget(const std::string& folder) override;
    Outcome Run(const Errand& errand) override;
    bool Started() const override { return started_; }
    Outcome Recover(const Errand& errand) override;
    bool MayHold() const override { return !remains_.held.Empty() || remains_.coming > 0; }

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

/// A register of the site.
class SiteRegister : public Register {
  public:
    /// The profile must outlive it.
    SiteRegister(const runner::Profile& profile, Site site);

    std::unique_ptr<Hold> Lock(const runner::LockWait& wait) override;
    void Remove(const std::string& folder) override;

  private:
    const runner::Profile& profile_;
    Site site_;
};

}  // namespace job

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What a job needs of its register, and of the driver that sends to it.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "companion/job/Outcome.h"
#include "companion/plan/Plan.h"
#include "companion/runner/DeviceLock.h"

namespace job {

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

/// Runs of the driver on a register that is locked for them, and what they tell.
class Work {
  public:
    virtual ~Work() = default;

    /// What the register holds from before nobody knows.
    virtual void BeFirst() = 0;
    /// Makes the folder for what the runs leave. std::exception: it cannot be made.
    virtual void MakeFolder(const std::string& folder) = 0;
    /// Notes in the folder what Recover has to know. To be done before the job is being sent.
    /// std::exception: it cannot be done.
    virtual void Note(const std::string& folder) = 0;
    /// Makes the register forget a command number, by runs of their own. False: it could not be
    /// done, and then nothing else may be sent.
    virtual bool MakeForget(const std::string& folder) = 0;

    /// Runs the driver and tells what came of it, asking for the status when anything was odd.
    /// std::exception: without Started(), nothing was sent.
    virtual Outcome Run(const Errand& errand) = 0;
    /// The driver of Run was at work.
    virtual bool Started() const = 0;

    /// The same for a run that was cut off and left its log in that folder, perhaps long ago.
    virtual Outcome Recover(const Errand& errand) = 0;

    /// The register may still hold a number, or have something to say, of the last of these.
    virtual bool MayHold() const = 0;
};

/// A register that is locked for us, until the end of this.
class Hold {
  public:
    virtual ~Hold() = default;
    /// Of one job. This must outlive it.
    virtual std::unique_ptr<Work> Begin(const Watcher& watcher) = 0;
};

class Register {
  public:
    virtual ~Register() = default;
    /// std::exception: somebody else has it, and kept it for as long as was waited; or it cannot be
    /// locked.
    virtual std::unique_ptr<Hold> Lock(const runner::LockWait& wait) = 0;
    /// Removes what the runs of a job have left. What cannot be removed is removed another time.
    virtual void Remove(const std::string& folder) = 0;
};

}  // namespace job

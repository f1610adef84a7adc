// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A call of `voltisctl run` from outside, that may be killed with all that it has started.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string>

#include "companion/runner/Sandbox.h"

namespace faults {

/// What the object of --json says.
struct Told {
    std::string verdict;
    std::size_t of = 0, atLeast = 0, atMost = 0;
    int exitCode = -1;
    bool replayed = false;
    std::string message;  // the driver's, or why it was not started
};

/// What one call came to.
struct Call {
    bool inTime = false;       // else it was killed
    int exitCode = -1;         // 128 + n when signal n ended it
    std::string output;        // standard output and, after it, standard error
    std::optional<Told> told;  // nothing when the output begins with no whole object
    std::string result;        // the result file that is there afterwards
    double seconds = 0;

    bool Killed() const { return exitCode > 128; }
};

/// Which processes are killed.
enum class Victim { Run, Driver, Both };

class Caller {
  public:
    /// Starts the command line. result: the result file to look at afterwards.
    Caller(const runner::CommandLine& command, std::string result);

    /// Kills these of its processes; false when none of them is there.
    bool Kill(Victim victim);
    Call Wait();

  private:
    bool Ended();
    bool KillDriver() const;
    void KillAll();

    std::mutex mutex_;  // of process_: nobody may kill a process that has been waited for
    runner::SandboxedRun process_;
    std::string result_;
    std::chrono::steady_clock::time_point start_;
};

}  // namespace faults

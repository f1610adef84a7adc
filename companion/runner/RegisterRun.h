// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// One run of the unmodified driver for a register of the site.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "companion/runner/CommandPath.h"
#include "companion/runner/Profile.h"
#include "companion/runner/Sandbox.h"

namespace runner {

inline constexpr char siteLogFolder[] = "/var/log/voltis";

struct RunRequest {
    Profile profile;
    std::string commandFile;  ///< as the caller names it; the driver's messages name it so
    std::string command;      ///< what is run; the file itself is not read
    std::string folder;       ///< absolute; keeps logs/, result/, voltis.ini and command
    std::string driver;       ///< the program's absolute path
    int lockFd = -1;          ///< of the device's lock, inherited by the driver
    std::string siteLogs = siteLogFolder;  ///< the driver's own, for a run in place
    std::string bwrap = "bwrap";
};

struct RunResult {
    int exitCode = -1;                      ///< the driver's; 128 + n when signal n ended it
    int killedBySignal = 0;                 ///< 0: none
    std::string output;                     ///< what the driver printed
    std::optional<std::string> resultText;  ///< the result file, when the driver wrote one
    std::string standardLog;  ///< the run's block; in place empty, unless the site keeps it
    std::string debugLog;     ///< the run's block: the whole conversation
    double seconds = 0;
};

/// What the run in that folder has written to the debug log so far, or had when it was killed.
/// Nothing when it never came as far.
std::string DebugLogOf(const std::string& runFolder);

/// Whether that run was one in place: the site's log, which it wrote to, may have been rotated
/// away.
bool WasInPlace(const std::string& runFolder);

/// The run goes on until it ends; the destructor kills it. With Sandbox=no the driver runs in
/// place: on the copy in folder, with the site's configuration and logs.
class RegisterRun {
  public:
    /// Starts the driver. RunError or SandboxError: it was not started, with the remedy.
    /// std::runtime_error: a file in folder cannot be written; not started either.
    explicit RegisterRun(const RunRequest& request);
    ~RegisterRun();
    RegisterRun(const RegisterRun&) = delete;
    RegisterRun& operator=(const RegisterRun&) = delete;

    /// Readable from the end of the run on.
    int EndFd() const { return process_->EndFd(); }
    /// True once the run has ended. Never waits.
    bool Ended();
    /// Ends the run, and waits until no driver is at work any more.
    void Kill();
    /// Waits for the end. SandboxError: the driver never started.
    RunResult Wait();

    /// What the debug log holds of the run so far.
    std::string DebugLog() const { return DebugLogOf(request_.folder); }

  private:
    void StartPrivately();
    void StartInPlace();
    std::optional<std::string> Result() const;
    std::string AsTheCallerNamesIt(std::string text) const;

    RunRequest request_;
    std::string files_;  // where the driver finds the command and writes the result
    std::string name_;   // of the command file there
    std::chrono::steady_clock::time_point start_;
    std::unique_ptr<SandboxedRun> process_;
};

}  // namespace runner

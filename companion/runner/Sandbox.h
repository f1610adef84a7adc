// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Runs a program in a sandbox of bubblewrap's, in which the driver's fixed paths, /etc/voltis,
// /var/log/voltis and /dev/ttyS0, are private. Works as root and as an ordinary user.
#pragma once

#include <sys/types.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace runner {

using CommandLine = std::vector<std::string>;

/// The sandbox could not be made; the message says what to do about it.
class SandboxError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// What the program sees of the machine beside its private paths.
enum class Root {
    System,   ///< Programs and libraries, read-only. Nothing of the machine can be changed.
    Machine,  ///< Everything as it is, but /etc has only what a program needs to start, /dev only
              ///< the standard devices and /var/log only the driver's folder.
    None,     ///< No sandbox: the program runs as it is, in workDir. Of the plan, only this and
              ///< keepFd count.
};

/// What of the machine becomes what inside; all but workDir are paths outside.
struct SandboxPlan {
    Root root = Root::System;
    std::string base = {};     // becomes /, writable; empty: a new folder. With Root::System only.
    CommandLine folders = {};  // arguments for bubblewrap, applied before all that follows
    std::string driver = {};   // becomes insideDriver; empty: nothing does. With Root::System only.
    std::string files = {};  // becomes insideFolder, writable and the working directory. Likewise.
    std::string workDir = {};  // the working directory, inside; empty: as above, or the caller's
    std::string ini = {};      // becomes /etc/voltis/voltis.ini, read-only; empty: there is none
    std::string config = {};   // becomes /etc/voltis, writable; empty: a new folder
    std::string logs = {};     // becomes /var/log/voltis, writable; empty: a new folder
    std::string device = {};   // becomes /dev/ttyS0; empty: there is none
    std::vector<std::string> bwrapArguments = {};  // further ones for bubblewrap, applied last
    std::string bwrap = "bwrap";                   // looked for on PATH when it holds no slash
    int keepFd = -1;  // a descriptor that the program inherits under its number, 16 or above
};

/// Where the driver is found inside, and the command files and their neighbours.
inline constexpr char insideDriver[] = "/voltis";
inline constexpr char insideFolder[] = "/try";

/// The whole command line of a bubblewrap that runs the command. The file descriptor statusFd, open
/// in the child, gets bubblewrap's own account of the run; -1: nothing does.
CommandLine SandboxCommandLine(const SandboxPlan& plan, const CommandLine& command,
                               int statusFd = -1);

/// The message with the remedy, for what bubblewrap said when it failed to make the sandbox.
std::string SandboxRemedy(const std::string& bwrapSays);

/// Turns this process into the sandboxed command. SandboxError: it could not be started.
[[noreturn]] void BecomeSandboxed(const SandboxPlan& plan, const CommandLine& command);

/// Where the program's standard error goes.
enum class Streams { Together, Apart };

struct ProgramResult {
    int exitCode;     ///< 128 + n when signal n ended the program
    std::string out;  ///< what it printed; with Streams::Together all of it
    std::string err;
};

/// One run, with nothing to read on standard input. The destructor kills a run that has not ended.
class SandboxedRun {
  public:
    /// Starts the run. SandboxError: bubblewrap is not installed or could not be started.
    SandboxedRun(const SandboxPlan& plan, const CommandLine& command,
                 Streams streams = Streams::Together);
    ~SandboxedRun();
    SandboxedRun(const SandboxedRun&) = delete;
    SandboxedRun& operator=(const SandboxedRun&) = delete;

    /// Of the sandbox; a signal that kills it kills the program, too. -1 once the run has ended.
    pid_t Pid() const { return pid_; }
    /// Readable when the program printed something, and from the end of the run on.
    int OutputFd() const { return out_.fd; }
    /// Readable from the end of the run on.
    int EndFd() const { return endFd_; }
    /// True once the run has ended. Never waits. Takes in what was printed.
    bool Ended();
    /// Waits for the end.
    ProgramResult Wait();
    /// Ends the run at once; Ended() is true afterwards.
    void Kill();
    /// To be called after the end: waits until no process has the program's output open any more,
    /// for longestMs at most. A program whose sandbox was killed dies a little later.
    void WaitUntilGone(int longestMs) const;

    /// What the program wrote so far; with Streams::Together to both standard streams.
    const std::string& Output() const { return out_.text; }
    /// After the end: the program's exit code, 128 + n when signal n ended it. SandboxError: it
    /// never started, because the sandbox could not be made.
    int ExitCode() const;

  private:
    struct Stream {
        int fd = -1;
        std::string text = {};
        bool Drain();
    };

    void CloseAll();
    bool DrainAll();
    void WaitForNews() const;
    void Reap(int waitFlags);

    pid_t pid_ = -1;  // -1: ended and reaped
    Stream out_;
    Stream err_;     // without a descriptor when the streams go together
    Stream status_;  // bubblewrap's JSON lines
    int endFd_ = -1;
    int waitStatus_ = 0;
    bool sandboxed_;
};

/// Runs the command until it ends, with the streams apart.
ProgramResult RunSandboxed(const SandboxPlan& plan, const CommandLine& command);

}  // namespace runner

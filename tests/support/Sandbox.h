// Runs a program, unmodified, with an /etc/voltis and a /var/log/voltis of its own (bubblewrap).
// The rest of the machine looks as it is, except that /etc holds only what a program needs to start
// and /dev only the standard devices. Works as root and as an ordinary user.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <string>
#include <vector>

struct SandboxOptions {
    /// Folders that appear as /etc/voltis and /var/log/voltis, writable. Empty: a new folder that
    /// vanishes with the program.
    std::string configDir;
    std::string logDir;
    /// The working directory; empty: that of the caller.
    std::string workDir;
    /// Further arguments for bwrap, applied last, for example
    /// {"--dev-bind", "/dev/pts/3", "/dev/ttyS0"}.
    std::vector<std::string> bwrapArguments;
};

struct ProgramResult {
    int exitCode;  ///< 128 + the signal when a signal ended it
    std::string out;
    std::string err;
};

/// The whole command line, "bwrap" first, that runs command in a sandbox.
std::vector<std::string> SandboxCommandLine(const std::vector<std::string>& command,
                                            const SandboxOptions& options);

/// A program that runs in a sandbox beside the test, with nothing to read on standard input. Throws
/// std::runtime_error when it cannot be started.
class SandboxedProgram {
  public:
    SandboxedProgram(const std::vector<std::string>& command, const SandboxOptions& options);
    /// Kills the program when it still runs.
    ~SandboxedProgram();
    SandboxedProgram(const SandboxedProgram&) = delete;
    SandboxedProgram& operator=(const SandboxedProgram&) = delete;

    /// Of the sandbox; a signal that kills it kills the program, too.
    pid_t Pid() const { return pid_; }
    /// Waits for the end; once only.
    ProgramResult Wait();

  private:
    FILE* out_;
    FILE* err_;
    pid_t pid_ = -1;
};

/// Runs command to its end.
ProgramResult RunInSandbox(const std::vector<std::string>& command, const SandboxOptions& options);

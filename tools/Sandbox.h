// The throw-away root in which the driver runs: its fixed paths, /etc/voltis, /var/log/voltis and
// /dev/ttyS0, are private there, and nothing of the machine can be changed from inside.
#pragma once

#include <sys/types.h>

#include <stdexcept>
#include <string>
#include <vector>

/// The sandbox could not be made; the message says what to do about it.
class SandboxError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// What of the machine becomes what inside; all are paths outside.
struct SandboxPlan {
    std::string driver;           // becomes /voltis
    std::string folder;           // becomes sandboxFolder, writable, the working directory
    std::string ini;              // becomes /etc/voltis/voltis.ini
    std::string logs;             // becomes /var/log/voltis, writable
    std::string device;           // becomes /dev/ttyS0
    std::string bwrap = "bwrap";  // looked for on PATH when it holds no slash
};

/// Where the command file and its neighbours are found inside.
inline constexpr char sandboxFolder[] = "/try";

/// The whole argument list of a bubblewrap that runs the driver with these arguments. The file
/// descriptor statusFd, open in the child, gets bubblewrap's own account of the run.
std::vector<std::string> SandboxArguments(const SandboxPlan& plan,
                                          const std::vector<std::string>& driverArguments,
                                          int statusFd);

/// The message with the remedy, for what bubblewrap said when it failed to make the sandbox.
std::string SandboxRemedy(const std::string& bwrapSays);

/// One run of the driver. The destructor kills a run that has not ended.
class SandboxedRun {
  public:
    /// Starts the run. SandboxError: bubblewrap is not installed or could not be started.
    SandboxedRun(const SandboxPlan& plan, const std::vector<std::string>& driverArguments);
    ~SandboxedRun();
    SandboxedRun(const SandboxedRun&) = delete;
    SandboxedRun& operator=(const SandboxedRun&) = delete;

    /// Readable when the driver printed something, and from the end of the run on.
    int OutputFd() const { return outputFd_; }
    /// Readable from the end of the run on.
    int EndFd() const { return endFd_; }
    /// Takes in what was printed; false once nothing more can come. Never waits.
    bool Drain();
    /// True once the run has ended. Never waits.
    bool Ended();
    /// Ends the run at once; Ended() is true afterwards.
    void Kill();

    /// What the driver wrote to both standard streams so far.
    const std::string& Output() const { return output_; }
    /// The driver's exit code, 128 + n when signal n ended it. SandboxError: the driver never
    /// started, because the sandbox could not be made.
    int ExitCode() const;

  private:
    void Reap(int waitFlags);

    pid_t pid_ = -1;  // -1: ended and reaped
    int outputFd_ = -1;
    int statusFd_ = -1;
    int endFd_ = -1;
    int waitStatus_ = 0;
    std::string output_;
    std::string status_;  // bubblewrap's JSON lines
};

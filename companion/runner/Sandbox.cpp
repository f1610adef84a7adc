// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/Sandbox.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <initializer_list>

namespace fs = std::filesystem;

namespace runner {

namespace {

constexpr int childStatusFd = 3;

void Append(CommandLine& to, std::initializer_list<std::string> more) {
    to.insert(to.end(), more);
}

void Append(CommandLine& to, const CommandLine& more) {
    to.insert(to.end(), more.begin(), more.end());
}

// --- the command line ------------------------------------------------------------------------

void AppendIfThere(CommandLine& to, std::initializer_list<const char*> paths) {
    for (const char* path : paths) Append(to, {"--ro-bind-try", path, path});
}

// The programs and libraries of the machine, read-only. On a merged system /bin and the like are
// links into /usr and must be so inside, too.
void AppendSystem(CommandLine& to, const std::string& base) {
    if (!base.empty()) Append(to, {"--bind", base, "/"});
    Append(to, {"--ro-bind", "/usr", "/usr"});
    for (const std::string path : {"/bin", "/sbin", "/lib", "/lib32", "/lib64"}) {
        if (fs::is_symlink(path)) {
            Append(to, {"--symlink", fs::read_symlink(path), path});
        } else if (fs::exists(path)) {
            Append(to, {"--ro-bind", path, path});
        }
    }
    AppendIfThere(to, {"/etc/ld.so.cache", "/etc/localtime"});
    // The machine's own /proc: mounting a new one is forbidden inside many containers.
    Append(to, {"--ro-bind", "/proc", "/proc", "--dev", "/dev", "--tmpfs", "/tmp"});
}

void AppendMachine(CommandLine& to) {
    Append(to, {"--bind", "/", "/", "--dev", "/dev", "--tmpfs", "/etc"});
    AppendIfThere(to, {"/etc/ld.so.cache", "/etc/alternatives", "/etc/localtime"});
    Append(to, {"--tmpfs", "/var/log"});
}

// A folder of the machine in that place, or a new one.
void AppendFolder(CommandLine& to, const std::string& folder, const std::string& place) {
    if (folder.empty()) {
        Append(to, {"--dir", place});
    } else {
        Append(to, {"--bind", folder, place});
    }
}

void AppendPrivatePaths(CommandLine& to, const SandboxPlan& plan) {
    if (!plan.device.empty()) Append(to, {"--dev-bind", plan.device, "/dev/ttyS0"});
    AppendFolder(to, plan.config, "/etc/voltis");
    if (!plan.ini.empty()) Append(to, {"--ro-bind", plan.ini, "/etc/voltis/voltis.ini"});
    AppendFolder(to, plan.logs, "/var/log/voltis");
    if (!plan.files.empty())
        Append(to, {"--bind", plan.files, insideFolder, "--chdir", insideFolder});
    if (!plan.driver.empty()) Append(to, {"--ro-bind", plan.driver, insideDriver});
    if (!plan.workDir.empty()) Append(to, {"--chdir", plan.workDir});
}

CommandLine Unsandboxed(const SandboxPlan& plan, const CommandLine& command) {
    CommandLine all = {"env", "-C", plan.workDir.empty() ? "." : plan.workDir};
    Append(all, command);
    return all;
}

// --- the process -----------------------------------------------------------------------------

struct Pipe {
    int readEnd = -1;
    int writeEnd = -1;
};

Pipe MakePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw SandboxError(std::string("No pipe to the driver - ") + std::strerror(errno));
    }
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    return {ends[0], ends[1]};
}

// The write ends that the child gets.
struct ChildEnds {
    int out;
    int err;
    int status;
    int keep;  // -1: none
};

// Nothing to read, bubblewrap's account to childStatusFd.
void WireUp(posix_spawn_file_actions_t& actions, const ChildEnds& ends) {
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, ends.out, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, ends.err, STDERR_FILENO);
    posix_spawn_file_actions_adddup2(&actions, ends.status, childStatusFd);
    // Onto itself: no longer closed by the exec.
    if (ends.keep != -1) posix_spawn_file_actions_adddup2(&actions, ends.keep, ends.keep);
}

// A group of its own, so that an interrupt on the terminal reaches the driver only through us, and
// the default signals, whatever we do with ours.
void Detach(posix_spawnattr_t& attributes) {
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(
        &attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
}

std::vector<char*> PointersTo(const CommandLine& words) {
    std::vector<char*> pointers;
    for (const std::string& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

// 0, or the error number.
int Spawn(pid_t& pid, const CommandLine& words, const ChildEnds& ends) {
    const std::vector<char*> argv = PointersTo(words);
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    WireUp(actions, ends);
    Detach(attributes);
    const int error = posix_spawnp(&pid, argv[0], &actions, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

[[noreturn]] void FailToStart(const std::string& bwrap, int error) {
    if (error == ENOENT) {
        throw SandboxError(
            bwrap +
            ": not found. voltisctl runs the driver in a sandbox made by bubblewrap; "
            "install it with `apt install bubblewrap`");
    }
    throw SandboxError(bwrap + " could not be started - " + std::strerror(error));
}

void CloseIfOpen(int fd) {
    if (fd != -1) close(fd);
}

std::string FirstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

bool Holds(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

}  // namespace

CommandLine SandboxCommandLine(const SandboxPlan& plan, const CommandLine& command, int statusFd) {
    if (plan.root == Root::None) return Unsandboxed(plan, command);
    CommandLine all = {plan.bwrap, "--die-with-parent"};
    // A run that is watched gets a session of its own; what becomes the sandbox keeps its terminal.
    if (statusFd != -1)
        Append(all, {"--new-session", "--json-status-fd", std::to_string(statusFd)});
    plan.root == Root::System ? AppendSystem(all, plan.base) : AppendMachine(all);
    Append(all, plan.folders);
    AppendPrivatePaths(all, plan);
    Append(all, plan.bwrapArguments);
    all.push_back("--");
    Append(all, command);
    return all;
}

std::string SandboxRemedy(const std::string& bwrapSays) {
    const std::string said = FirstLine(bwrapSays);
    if (Holds(said, "namespace") || Holds(said, "uid map") ||
        Holds(said, "Operation not permitted")) {
        return "This machine does not let an ordinary user make a sandbox (" + said +
               ").\nAs root, allow it with `sysctl -w kernel.unprivileged_userns_clone=1`, or "
               "where "
               "AppArmor restricts it with\n`sysctl -w "
               "kernel.apparmor_restrict_unprivileged_userns=0`; "
               "or run voltisctl as root.";
    }
    return "The sandbox could not be made: " + (said.empty() ? "bwrap said nothing" : said);
}

void BecomeSandboxed(const SandboxPlan& plan, const CommandLine& command) {
    const CommandLine words = SandboxCommandLine(plan, command);
    const std::vector<char*> argv = PointersTo(words);
    execvp(argv[0], argv.data());
    FailToStart(plan.bwrap, errno);
}

// --- one run ---------------------------------------------------------------------------------

// Takes what is there without waiting; false at the end of the stream.
bool SandboxedRun::Stream::Drain() {
    if (fd == -1) return false;
    std::array<char, 4096> block{};
    ssize_t count = 0;
    while ((count = read(fd, block.data(), block.size())) > 0) {
        text.append(block.data(), static_cast<std::size_t>(count));
    }
    return count != 0;
}

SandboxedRun::SandboxedRun(const SandboxPlan& plan, const CommandLine& command, Streams streams)
    : sandboxed_(plan.root != Root::None) {
    const Pipe out = MakePipe();
    const Pipe err = streams == Streams::Apart ? MakePipe() : Pipe{};
    const Pipe status = MakePipe();
    out_.fd = out.readEnd;
    err_.fd = err.readEnd;
    status_.fd = status.readEnd;
    const ChildEnds ends = {out.writeEnd, err.writeEnd == -1 ? out.writeEnd : err.writeEnd,
                            status.writeEnd, plan.keepFd};
    const int error = Spawn(pid_, SandboxCommandLine(plan, command, childStatusFd), ends);
    for (const int fd : {out.writeEnd, err.writeEnd, status.writeEnd}) CloseIfOpen(fd);
    if (error == 0) {
        endFd_ = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
        return;
    }
    pid_ = -1;
    CloseAll();
    FailToStart(plan.bwrap, error);
}

SandboxedRun::~SandboxedRun() {
    Kill();
    CloseAll();
}

void SandboxedRun::CloseAll() {
    for (const int fd : {out_.fd, err_.fd, status_.fd, endFd_}) CloseIfOpen(fd);
}

bool SandboxedRun::DrainAll() {
    status_.Drain();
    const bool more = err_.Drain();
    return out_.Drain() || more;
}

bool SandboxedRun::Ended() {
    if (pid_ != -1) Reap(WNOHANG);
    DrainAll();
    return pid_ == -1;
}

void SandboxedRun::WaitForNews() const {
    pollfd end = {endFd_, POLLIN, 0};
    // What waits in a full pipe is taken in between.
    constexpr int stepMs = 20;
    poll(&end, 1, stepMs);
}

ProgramResult SandboxedRun::Wait() {
    while (!Ended()) WaitForNews();
    return {ExitCode(), out_.text, err_.text};
}

void SandboxedRun::Kill() {
    if (pid_ == -1) return;
    kill(pid_, SIGKILL);  // the program dies with it
    Reap(0);
    DrainAll();
}

void SandboxedRun::WaitUntilGone(int longestMs) const {
    pollfd output = {out_.fd, 0, 0};  // asks for nothing but the end of the last writer
    poll(&output, 1, longestMs);
}

int SandboxedRun::ExitCode() const {
    // Bubblewrap names an exit code only when it came as far as starting the program.
    if (sandboxed_ && WIFEXITED(waitStatus_) && !Holds(status_.text, "exit-code")) {
        throw SandboxError(SandboxRemedy(err_.fd == -1 ? out_.text : err_.text));
    }
    return WIFEXITED(waitStatus_) ? WEXITSTATUS(waitStatus_) : 128 + WTERMSIG(waitStatus_);
}

void SandboxedRun::Reap(int waitFlags) {
    if (waitpid(pid_, &waitStatus_, waitFlags) == pid_) pid_ = -1;
}

ProgramResult RunSandboxed(const SandboxPlan& plan, const CommandLine& command) {
    return SandboxedRun(plan, command, Streams::Apart).Wait();
}

}  // namespace runner

#include "tools/Sandbox.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

constexpr int childStatusFd = 3;

using Arguments = std::vector<std::string>;

void Append(Arguments& to, std::initializer_list<std::string> more) {
    to.insert(to.end(), more);
}

// The programs and libraries of the machine, read-only. On a merged system /bin and the like are
// links into /usr and must be so inside, too.
void AppendSystem(Arguments& to) {
    Append(to, {"--ro-bind", "/usr", "/usr"});
    for (const std::string path : {"/bin", "/sbin", "/lib", "/lib32", "/lib64"}) {
        if (fs::is_symlink(path)) {
            Append(to, {"--symlink", fs::read_symlink(path), path});
        } else if (fs::exists(path)) {
            Append(to, {"--ro-bind", path, path});
        }
    }
    Append(to, {"--ro-bind-try", "/etc/ld.so.cache", "/etc/ld.so.cache"});
    Append(to, {"--ro-bind-try", "/etc/localtime", "/etc/localtime"});
    // The machine's own /proc: mounting a new one is forbidden inside many containers.
    Append(to, {"--ro-bind", "/proc", "/proc", "--dev", "/dev", "--tmpfs", "/tmp"});
}

struct Pipe {
    int readEnd;
    int writeEnd;
};

Pipe MakePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw SandboxError(std::string("No pipe to the driver - ") + std::strerror(errno));
    }
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    return {ends[0], ends[1]};
}

// Both standard streams to output, bubblewrap's account to childStatusFd, nothing to read.
void WireUp(posix_spawn_file_actions_t& actions, const Pipe& output, const Pipe& status) {
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output.writeEnd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output.writeEnd, STDERR_FILENO);
    posix_spawn_file_actions_adddup2(&actions, status.writeEnd, childStatusFd);
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

// 0, or the error number.
int Spawn(pid_t& pid, const Arguments& arguments, const Pipe& output, const Pipe& status) {
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    WireUp(actions, output, status);
    Detach(attributes);
    const int error = posix_spawnp(&pid, argv[0], &actions, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

// Takes what is there without waiting; false at the end of the stream.
bool DrainInto(int fd, std::string& text) {
    std::array<char, 4096> block{};
    ssize_t count = 0;
    while ((count = read(fd, block.data(), block.size())) > 0) {
        text.append(block.data(), static_cast<size_t>(count));
    }
    return count != 0;
}

std::string FirstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

bool Holds(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

}  // namespace

std::vector<std::string> SandboxArguments(const SandboxPlan& plan, const Arguments& driverArguments,
                                          int statusFd) {
    Arguments all = {plan.bwrap, "--die-with-parent", "--new-session", "--json-status-fd",
                     std::to_string(statusFd)};
    AppendSystem(all);
    Append(all, {"--dev-bind", plan.device, "/dev/ttyS0"});
    Append(all, {"--ro-bind", plan.ini, "/etc/voltis/voltis.ini"});
    Append(all, {"--bind", plan.logs, "/var/log/voltis"});
    Append(all, {"--bind", plan.folder, sandboxFolder, "--chdir", sandboxFolder});
    Append(all, {"--ro-bind", plan.driver, "/voltis", "--", "/voltis"});
    all.insert(all.end(), driverArguments.begin(), driverArguments.end());
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

SandboxedRun::SandboxedRun(const SandboxPlan& plan, const Arguments& driverArguments) {
    const Pipe output = MakePipe();
    const Pipe status = MakePipe();
    outputFd_ = output.readEnd;
    statusFd_ = status.readEnd;
    const int error =
        Spawn(pid_, SandboxArguments(plan, driverArguments, childStatusFd), output, status);
    close(output.writeEnd);
    close(status.writeEnd);
    if (error == 0) {
        endFd_ = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
        return;
    }
    close(outputFd_);
    close(statusFd_);
    if (error == ENOENT) {
        throw SandboxError(
            plan.bwrap +
            ": not found. voltisctl runs the driver in a sandbox made by bubblewrap; "
            "install it with `apt install bubblewrap`");
    }
    throw SandboxError(plan.bwrap + " could not be started - " + std::strerror(error));
}

SandboxedRun::~SandboxedRun() {
    Kill();
    close(outputFd_);
    close(statusFd_);
    close(endFd_);
}

bool SandboxedRun::Drain() {
    DrainInto(statusFd_, status_);
    return DrainInto(outputFd_, output_);
}

bool SandboxedRun::Ended() {
    if (pid_ != -1) Reap(WNOHANG);
    Drain();
    return pid_ == -1;
}

void SandboxedRun::Kill() {
    if (pid_ == -1) return;
    kill(pid_, SIGKILL);  // the driver dies with it
    Reap(0);
    Drain();
}

int SandboxedRun::ExitCode() const {
    // Bubblewrap names an exit code only when it came as far as starting the driver.
    if (WIFEXITED(waitStatus_) && !Holds(status_, "exit-code")) {
        throw SandboxError(SandboxRemedy(output_));
    }
    return WIFEXITED(waitStatus_) ? WEXITSTATUS(waitStatus_) : 128 + WTERMSIG(waitStatus_);
}

void SandboxedRun::Reap(int waitFlags) {
    if (waitpid(pid_, &waitStatus_, waitFlags) == pid_) pid_ = -1;
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/DeviceLock.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <optional>
#include <sstream>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "companion/runner/Files.h"

namespace fs = std::filesystem;

namespace runner {

namespace {

using Clock = std::chrono::steady_clock;

// Everybody may take over the file of a killed run, whoever made it. The sticky bit means nothing
// on a file: it is the mark of ours.
constexpr mode_t ourMode = 01666;
constexpr int pidWidth = 10;
// A child gives its standard streams and the sandbox's account the lowest numbers.
constexpr int lowestFd = 16;

// --- names -----------------------------------------------------------------------------------

std::string WithoutSlashes(std::string path) {
    std::replace(path.begin(), path.end(), '/', '_');
    return path;
}

// A device that is not plugged in has no path but the one that is written.
std::string RealPath(const std::string& device) {
    std::error_code ignored;
    const fs::path real = fs::weakly_canonical(device, ignored);
    return real.empty() ? device : real.string();
}

std::string LockNameOf(const std::string& device) {
    const std::string folder = "/dev/";
    return WithoutSlashes(device.substr(device.starts_with(folder) ? folder.size() : 1));
}

std::string NetworkName(std::string network) {
    std::replace(network.begin(), network.end(), ':', '_');
    return "net_" + WithoutSlashes(std::move(network));
}

// --- the file --------------------------------------------------------------------------------

[[noreturn]] void FailOn(const std::string& file) {
    throw std::system_error(errno, std::generic_category(), "lock file '" + file + "'");
}

int AboveChildsOwn(int fd) {
    if (fd == -1 || fd >= lowestFd) return fd;
    const int higher = fcntl(fd, F_DUPFD_CLOEXEC, lowestFd);
    close(fd);
    return higher;
}

// -1 for a file that is not there. Creating it is another step: in a folder that everybody may
// write, the kernel refuses O_CREAT for an existing file of another user.
int OpenExisting(const std::string& file) {
    constexpr int flags = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    int fd = open(file.c_str(), O_RDWR | flags);
    if (fd == -1 && errno == EACCES) fd = open(file.c_str(), O_RDONLY | flags);
    if (fd == -1 && errno != ENOENT) FailOn(file);
    return AboveChildsOwn(fd);
}

// -1 when somebody else has just created it.
int Create(const std::string& file) {
    const int fd = open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd == -1 && errno != EEXIST) FailOn(file);
    return AboveChildsOwn(fd);
}

bool IsAt(int fd, const std::string& file) {
    struct stat ours = {};
    struct stat there = {};
    if (fstat(fd, &ours) != 0 || lstat(file.c_str(), &there) != 0) return false;
    return ours.st_dev == there.st_dev && ours.st_ino == there.st_ino;
}

bool IsOurs(int fd) {
    struct stat status = {};
    return fstat(fd, &status) == 0 && (status.st_mode & S_ISVTX) != 0;
}

// The process that the file names; nothing when it names none.
std::optional<pid_t> PidIn(const std::string& text) {
    const long pid = std::strtol(text.c_str(), nullptr, 10);
    if (pid <= 0 || pid > std::numeric_limits<pid_t>::max()) return std::nullopt;
    return static_cast<pid_t>(pid);
}

std::optional<pid_t> PidIn(int fd) {
    std::array<char, 64> text{};
    const ssize_t count = pread(fd, text.data(), text.size() - 1, 0);
    return count <= 0 ? std::nullopt : PidIn(std::string(text.data()));
}

bool Lives(pid_t pid) {
    return kill(pid, 0) == 0 || errno == EPERM;
}

// Whether a program that knows no flock has the device.
bool BelongsToAnother(int fd) {
    if (IsOurs(fd)) return false;
    const std::optional<pid_t> pid = PidIn(fd);
    return pid && *pid != getpid() && Lives(*pid);
}

// What cannot be written, the file of another user's dead program, is held by the flock alone. The
// mode comes before the number, so that everybody may take over what a kill in between leaves.
void WritePid(int fd) {
    std::array<char, 32> line{};
    const int size = std::snprintf(line.data(), line.size(), "%*d\n", pidWidth, getpid());
    if (ftruncate(fd, 0) != 0) return;
    fchmod(fd, ourMode);
    [[maybe_unused]] const ssize_t ignored =
        pwrite(fd, line.data(), static_cast<std::size_t>(size), 0);
}

// --- what a killed run has left ------------------------------------------------------------------

std::string ProcessFolder(pid_t pid) {
    return "/proc/" + std::to_string(pid);
}

// The name of the process, and what follows it in its status: the state, and the parent.
struct ProcessStatus {
    std::string name;
    char state = 'X';
    pid_t parent = 0;
};

ProcessStatus StatusOf(pid_t pid) {
    std::string text;
    std::getline(std::ifstream(ProcessFolder(pid) + "/stat"), text);  // it may just have ended
    const std::size_t begin = text.find('(');
    const std::size_t end = text.rfind(')');
    if (end == std::string::npos) return {};
    ProcessStatus status;
    status.name = text.substr(begin + 1, end - begin - 1);
    std::istringstream(text.substr(end + 1)) >> status.state >> status.parent;
    return status;
}

bool IsDead(pid_t pid) {
    const char state = StatusOf(pid).state;
    return state == 'X' || state == 'Z';
}

// Entries that come and go meanwhile do no harm.
std::vector<fs::path> EntriesOf(const std::string& folder) {
    std::vector<fs::path> entries;
    std::error_code failed;
    for (fs::directory_iterator at(folder, failed), end; !failed && at != end; at.increment(failed))
        entries.push_back(at->path());
    return entries;
}

// False for a process of another user, whose files are not to be seen.
bool HasOpen(pid_t pid, const struct stat& file) {
    return std::ranges::any_of(EntriesOf(ProcessFolder(pid) + "/fd"), [&](const fs::path& entry) {
        struct stat open = {};
        const bool there = stat(entry.c_str(), &open) == 0;
        return there && open.st_dev == file.st_dev && open.st_ino == file.st_ino;
    });
}

void EndAndWait(int process) {
    constexpr int longestMs = 1000;
    syscall(SYS_pidfd_send_signal, process, SIGKILL, nullptr, 0);
    pollfd end = {process, POLLIN, 0};
    poll(&end, 1, longestMs);
}

// Half of a sandbox that was being made when the run was killed waits for the other half for ever,
// and has the lock. It has not become the driver, and nobody waits for it.
bool IsForsaken(pid_t pid, const struct stat& file) {
    const ProcessStatus status = StatusOf(pid);
    return status.name == "bwrap" && HasOpen(pid, file) && !HasOpen(status.parent, file);
}

// The descriptor comes first: the number may become that of another process at any time.
bool EndIfForsaken(pid_t pid, const struct stat& file) {
    const int process = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    if (process == -1) return false;
    const bool forsaken = IsForsaken(pid, file);
    if (forsaken) EndAndWait(process);
    close(process);
    return forsaken;
}

// Frees the lock of a run that was killed. True when it is worth another try.
bool EndForsaken(int fd) {
    const std::optional<pid_t> owner = PidIn(fd);
    struct stat file = {};
    if (!owner || !IsDead(*owner) || fstat(fd, &file) != 0) return false;
    bool ended = false;
    for (const fs::path& entry : EntriesOf("/proc")) {
        const std::optional<pid_t> pid = PidIn(entry.filename().string());
        if (pid && EndIfForsaken(*pid, file)) ended = true;
    }
    return ended;
}

// --- the message -----------------------------------------------------------------------------

std::string CommandOf(pid_t pid) {
    const std::string name = ReadFileIfAny("/proc/" + std::to_string(pid) + "/comm");
    return name.substr(0, name.find('\n'));
}

std::string Holder(const std::string& file) {
    std::optional<pid_t> pid;
    try {
        pid = PidIn(ReadFileIfAny(file));
    } catch (const std::runtime_error&) {  // not to be read by us
    }
    if (!pid) return "another process";
    const std::string process = "process " + std::to_string(*pid);
    if (!Lives(*pid)) return "what " + process + " has started before it ended";
    const std::string command = CommandOf(*pid);
    return command.empty() ? process : process + " (" + command + ")";
}

[[noreturn]] void FailBusy(const std::string& file, const LockWait& wait) {
    const auto seconds = std::chrono::duration<double>(wait.longest).count();
    std::array<char, 48> waited{};
    if (seconds > 0) std::snprintf(waited.data(), waited.size(), ", waited for %.3g s", seconds);
    throw DeviceBusy("the register is in use by " + Holder(file) + waited.data() + " (lock file '" +
                     file + "')");
}

// Those who have waited longer look more often, so that nobody is always overtaken.
Clock::duration Pause(Clock::duration waited) {
    using std::chrono::milliseconds;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(waited).count();
    return std::max(milliseconds(1), milliseconds(20 / (1 + seconds)));
}

}  // namespace

std::string LockFileOf(const Profile& profile, const std::string& folder) {
    const std::string name = profile.network.empty() ? LockNameOf(RealPath(profile.device))
                                                     : NetworkName(profile.network);
    return folder + "/LCK.." + name;
}

DeviceLock::DeviceLock(const std::string& file, const LockWait& wait)
    : file_(file), owner_(getpid()) {
    const Clock::time_point start = Clock::now();
    while (!Take()) {
        const Clock::duration waited = Clock::now() - start;
        if (waited >= wait.longest || !wait.goOn()) FailBusy(file, wait);
        std::this_thread::sleep_for(std::min(Pause(waited), wait.longest - waited));
    }
}

DeviceLock::~DeviceLock() {
    if (owner_ == getpid()) Remove();
    close(fd_);
}

// False when somebody else has it. Only who has the flock on the very file that has the name may
// write or remove it.
bool DeviceLock::Take() {
    do {
        if (fd_ != -1) close(fd_);
        fd_ = OpenExisting(file_);
        if (fd_ == -1) fd_ = Create(file_);
    } while (fd_ == -1);
    const auto lock = [this] { return flock(fd_, LOCK_EX | LOCK_NB) == 0; };
    const bool locked = lock() || (IsOurs(fd_) && EndForsaken(fd_) && lock());
    if (locked && !IsAt(fd_, file_)) return Take();
    if (locked && !BelongsToAnother(fd_)) {
        WritePid(fd_);
        return true;
    }
    close(std::exchange(fd_, -1));
    return false;
}

// What cannot be removed, in a folder where only its owner may, is emptied: a process that goes on
// living must not seem to have it.
void DeviceLock::Remove() const {
    if (!IsAt(fd_, file_) || unlink(file_.c_str()) == 0) return;
    [[maybe_unused]] const int ignored = ftruncate(fd_, 0);
}

}  // namespace runner

#include "companion/runner/DeviceLock.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

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

// What cannot be written, the file of another user's dead program, is held by the flock alone.
void WritePid(int fd) {
    std::array<char, 32> line{};
    const int size = std::snprintf(line.data(), line.size(), "%*d\n", pidWidth, getpid());
    if (ftruncate(fd, 0) != 0) return;
    if (pwrite(fd, line.data(), static_cast<std::size_t>(size), 0) != size) return;
    fchmod(fd, ourMode);
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
    const bool locked = flock(fd_, LOCK_EX | LOCK_NB) == 0;
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

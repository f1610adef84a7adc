// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "emulator/PtyServer.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace emulator {

namespace {

constexpr int bitsPerByte = 11;                     // start, eight, parity, stop
constexpr std::chrono::milliseconds reopenPoll{5};  // where the kernel does not tell of openings
constexpr std::chrono::hours forever{24};
constexpr std::chrono::microseconds wakeUpTime{100};  // which a timer may be late

[[noreturn]] void Throw(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

int Check(int result, const char* what) {
    if (result < 0) Throw(what);
    return result;
}

timespec ToTimespec(std::chrono::nanoseconds wait) {
    wait = std::max(wait, std::chrono::nanoseconds::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(wait);
    return {static_cast<time_t>(seconds.count()), static_cast<long>((wait - seconds).count())};
}

}  // namespace

PtyServer::PtyServer(FarEnd& line, PtyOptions options) : line_(line), options_(std::move(options)) {
    try {
        master_ = Check(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC),
                        "Cannot open a pseudo terminal");
        Check(grantpt(master_), "Cannot grant the pseudo terminal");
        Check(unlockpt(master_), "Cannot unlock the pseudo terminal");
        std::array<char, 128> name{};
        if (const int error = ptsname_r(master_, name.data(), name.size()); error != 0)
            throw std::system_error(error, std::generic_category(), "Cannot name the terminal");
        slavePath_ = name.data();
        termios settings{};
        Check(tcgetattr(master_, &settings), "Cannot read the terminal's settings");
        cfmakeraw(&settings);
        Check(tcsetattr(master_, TCSANOW, &settings), "Cannot set the terminal raw");
        ResetSettings();
        wake_ = Check(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "Cannot make an event");
        inotify_ = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);  // without it: polling
        if (inotify_ >= 0 &&
            inotify_add_watch(inotify_, slavePath_.c_str(), IN_OPEN | IN_CLOSE) < 0)
            close(std::exchange(inotify_, -1));
        MakeLink();
    } catch (...) {
        Close();
        throw;
    }
}

PtyServer::~PtyServer() {
    std::array<char, 256> target{};
    if (!options_.link.empty() &&
        readlink(options_.link.c_str(), target.data(), target.size() - 1) > 0 &&
        slavePath_ == target.data())
        unlink(options_.link.c_str());
    Close();
}

void PtyServer::Close() {
    for (int* fd : {&master_, &inotify_, &wake_})
        if (*fd >= 0) close(std::exchange(*fd, -1));
}

void PtyServer::LinkAt(const std::string& path) {
    options_.link = path;
    MakeLink();
}

void PtyServer::MakeLink() {
    if (options_.link.empty()) return;
    struct stat info {};
    if (lstat(options_.link.c_str(), &info) == 0 && S_ISLNK(info.st_mode))
        unlink(options_.link.c_str());
    if (symlink(slavePath_.c_str(), options_.link.c_str()) < 0)
        Throw("Cannot make the link '" + options_.link + "'");
}

// The time-outs stay as they are: somebody may have opened the pty again and be reading.
void PtyServer::ResetSettings() {
    termios settings{};
    Check(tcgetattr(master_, &settings), "Cannot read the terminal's settings");
    settings.c_cflag &= ~static_cast<tcflag_t>(PARODD);
    cfsetispeed(&settings, B9600);
    cfsetospeed(&settings, B9600);
    Check(tcsetattr(master_, TCSANOW, &settings), "Cannot reset the terminal");
}

// --- the loop ------------------------------------------------------------------------------------

void PtyServer::Run() {
    if (options_.bitsPerSecond > 0) prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    for (;;) {
        RunPosted();
        {
            const std::lock_guard lock(mutex_);
            if (std::exchange(stop_, false)) return;
        }
        PollOnce();
        RunTimers(Clock::now());
        Deliver(Clock::now());
    }
}

void PtyServer::Stop() {
    {
        const std::lock_guard lock(mutex_);
        stop_ = true;
    }
    eventfd_write(wake_, 1);
}

void PtyServer::Post(std::function<void()> action) {
    {
        const std::lock_guard lock(mutex_);
        posted_.push_back(std::move(action));
    }
    eventfd_write(wake_, 1);
}

void PtyServer::Watch(int fd, std::function<bool()> action) {
    watches_[fd] = std::move(action);
}

void PtyServer::After(std::chrono::milliseconds wait, std::function<void()> action) {
    timers_.emplace(Clock::now() + wait, std::move(action));
}

void PtyServer::RunTimers(Clock::time_point now) {
    while (!timers_.empty() && timers_.begin()->first <= now) {
        const std::function<void()> action = std::move(timers_.begin()->second);
        timers_.erase(timers_.begin());
        action();
    }
}

void PtyServer::RunPosted() {
    std::vector<std::function<void()>> posted;
    {
        const std::lock_guard lock(mutex_);
        posted.swap(posted_);
    }
    for (const auto& action : posted) action();
}

void PtyServer::PollOnce() {
    std::vector<pollfd> fds = {{wake_, POLLIN, 0}, {inotify_, POLLIN, 0}};
    fds.push_back({farEndOpen_ ? master_ : -1, POLLIN, 0});
    for (const auto& [fd, action] : watches_) fds.push_back({fd, POLLIN, 0});

    // A paced line wakes early and looks at the clock until the deadline is there.
    const auto early = options_.bitsPerSecond > 0 ? wakeUpTime : std::chrono::microseconds::zero();
    const timespec wait = ToTimespec(NextDeadline() - Clock::now() - early);
    if (ppoll(fds.data(), fds.size(), &wait, nullptr) < 0) {
        if (errno == EINTR) return;
        Throw("Cannot wait for the line");
    }
    eventfd_t ignored = 0;
    if (fds[0].revents != 0) eventfd_read(wake_, &ignored);
    if (fds[2].revents != 0) ReadLine();
    if (fds[1].revents != 0) ReadEvents();
    // A hang-up is looked at afresh: the far end may have been opened again in the meantime.
    const bool hungUp = HungUp();
    if (farEndOpen_ && hungUp) {
        farEndOpen_ = false;
        if (inotify_ < 0) FarEndClosed();
    } else if (!farEndOpen_ && !hungUp) {
        farEndOpen_ = true;
    }
    for (std::size_t i = 3; i < fds.size(); ++i)
        if (fds[i].revents != 0 && watches_.contains(fds[i].fd) && !watches_[fds[i].fd]())
            watches_.erase(fds[i].fd);
}

bool PtyServer::HungUp() const {
    pollfd state{master_, 0, 0};
    return poll(&state, 1, 0) > 0 && (state.revents & POLLHUP) != 0;
}

PtyServer::Clock::time_point PtyServer::NextDeadline() const {
    Clock::time_point next = Clock::now() + forever;
    if (!incoming_.empty()) next = std::min(next, incoming_.front().due);
    if (!outgoing_.empty()) next = std::min(next, outgoing_.front().due);
    if (!timers_.empty()) next = std::min(next, timers_.begin()->first);
    if (incoming_.empty() && line_.Pending()) next = std::min(next, lastByte_ + options_.gap);
    if (!farEndOpen_ && inotify_ < 0) next = std::min(next, Clock::now() + reopenPoll);
    return next;
}

void PtyServer::ReadEvents() {
    alignas(inotify_event) std::array<char, 4096> buffer;
    for (ssize_t size; (size = read(inotify_, buffer.data(), buffer.size())) > 0;) {
        for (ssize_t at = 0; at < size;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
            if ((event->mask & IN_CLOSE) != 0) FarEndClosed();
            at += static_cast<ssize_t>(sizeof(inotify_event)) + event->len;
        }
    }
}

// What was written before comes first.
void PtyServer::FarEndClosed() {
    ++closings_;
    ReadLine();
    ResetSettings();
    tellClosed_ = true;
}

// --- bytes ---------------------------------------------------------------------------------------

PtyServer::Clock::duration PtyServer::LineTime(std::size_t bytes) const {
    if (options_.bitsPerSecond <= 0) return Clock::duration::zero();
    const auto bits = static_cast<long long>(bytes) * bitsPerByte;
    return std::chrono::nanoseconds(bits * 1'000'000'000 / options_.bitsPerSecond);
}

void PtyServer::ReadLine() {
    std::array<std::uint8_t, 1024> buffer;
    for (ssize_t size; (size = read(master_, buffer.data(), buffer.size())) > 0;) {
        const auto count = static_cast<std::size_t>(size);
        lineFreeIn_ = std::max(lineFreeIn_, Clock::now()) + LineTime(count);
        incoming_.push_back({Bytes(buffer.begin(), buffer.begin() + size), lineFreeIn_});
    }
}

void PtyServer::Deliver(Clock::time_point now) {
    LoseOutgoing();
    const bool moved = DeliverIncoming(now);
    if (incoming_.empty() && std::exchange(tellClosed_, false)) line_.Closed();
    if (moved && beforeSending_) beforeSending_();
    while (!outgoing_.empty() && outgoing_.front().due <= now) {
        WriteLine(outgoing_.front().bytes);
        outgoing_.pop_front();
        line_.Sent();
    }
}

// What power has failed under is not sent when it is back, and keeps nothing else waiting.
void PtyServer::LoseOutgoing() {
    const int failures = line_.PowerFailures();
    if (std::exchange(powerFailures_, failures) == failures) return;
    outgoing_.clear();
    lineFreeOut_ = {};
    line_.Unsent();
}

// True when the line was told of something.
bool PtyServer::DeliverIncoming(Clock::time_point now) {
    bool moved = false;
    while (!incoming_.empty() && incoming_.front().due <= now) {
        const Chunk chunk = std::move(incoming_.front());
        incoming_.pop_front();
        lastByte_ = chunk.due;
        Send(line_.Feed(chunk.bytes), chunk.due);
        moved = true;
    }
    if (incoming_.empty() && line_.Pending() && lastByte_ + options_.gap <= now) {
        Send(line_.Idle(), now);
        moved = true;
    }
    return moved;
}

void PtyServer::Send(Bytes reply, Clock::time_point from) {
    if (reply.empty()) return;
    lineFreeOut_ = std::max(lineFreeOut_, from + line_.Delay()) + LineTime(reply.size());
    outgoing_.push_back({std::move(reply), lineFreeOut_});
}

// Nobody listens, or does not keep up: the bytes are lost, as on a line.
void PtyServer::WriteLine(const Bytes& bytes) {
    if (!farEndOpen_) return;
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t size = write(master_, bytes.data() + written, bytes.size() - written);
        if (size < 0 && errno == EINTR) continue;
        if (size <= 0) return;
        written += static_cast<std::size_t>(size);
    }
}

}  // namespace emulator

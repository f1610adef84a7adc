// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/server/Loop.h"

#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

namespace server {

using std::chrono::milliseconds;

namespace {

[[noreturn]] void FailOn(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

sigset_t OurSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, number);
    return signals;
}

}  // namespace

// What signals did before.
struct Loop::Former {
    sigset_t mask = {};
    struct sigaction pipe = {}, child = {};
};

Loop::Loop() : epoll_(epoll_create1(EPOLL_CLOEXEC)), former_(std::make_unique<Former>()) {
    const sigset_t signals = OurSignals();
    signals_ = Descriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!epoll_.IsOpen() || !signals_.IsOpen()) FailOn("epoll");
    Watch(signals_.Fd(), [this] { TakeSignals(); });
    sigprocmask(SIG_BLOCK, &signals, &former_->mask);
    struct sigaction ignored = {};
    ignored.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignored, &former_->pipe);
    // Where the parent ignores it, nobody would learn how a worker has ended.
    struct sigaction usual = {};
    usual.sa_handler = SIG_DFL;
    sigaction(SIGCHLD, &usual, &former_->child);
}

Loop::~Loop() {
    sigaction(SIGPIPE, &former_->pipe, nullptr);
    sigaction(SIGCHLD, &former_->child, nullptr);
    sigprocmask(SIG_SETMASK, &former_->mask, nullptr);
}

void Loop::Watch(int fd, Call call) {
    epoll_event readable = {};
    readable.events = EPOLLIN;
    readable.data.fd = fd;
    const bool isKnown = watched_.contains(fd);
    if (!isKnown && epoll_ctl(epoll_.Fd(), EPOLL_CTL_ADD, fd, &readable) != 0) FailOn("epoll");
    watched_[fd] = std::make_shared<Call>(std::move(call));
}

void Loop::Forget(int fd) {
    if (watched_.erase(fd) == 1) epoll_ctl(epoll_.Fd(), EPOLL_CTL_DEL, fd, nullptr);
}

Loop::TimerId Loop::After(milliseconds time, Call call) {
    const TimerId id = ++lastTimer_;
    order_.insert({Clock::now() + time, id});
    timers_.emplace(id, std::move(call));
    return id;
}

void Loop::Cancel(TimerId timer) {
    timers_.erase(timer);  // its place in the order does nothing any more
}

void Loop::AskForTimeout(std::function<std::optional<milliseconds>()> timeout) {
    timeout_ = std::move(timeout);
}

void Loop::AfterEach(Call call) {
    afterEach_ = std::move(call);
}

void Loop::TakeSignals() {
    signalfd_siginfo signal = {};
    while (read(signals_.Fd(), &signal, sizeof signal) == sizeof signal) {
        const Call call = signal.ssi_signo == SIGHUP ? onReload_ : onEnd_;
        if (call) call();
    }
}

int Loop::LongestWait() const {
    constexpr milliseconds longest{3'600'000};
    milliseconds wait = longest;
    if (!order_.empty())
        wait =
            std::min(wait, std::chrono::ceil<milliseconds>(order_.begin()->first - Clock::now()));
    if (const auto other = timeout_ ? timeout_() : std::nullopt) wait = std::min(wait, *other);
    return static_cast<int>(std::max(wait, milliseconds(0)).count());
}

// What is forgotten by a call is not called any more, although its event was there.
void Loop::Wait() {
    std::array<epoll_event, 64> events{};
    const int count =
        epoll_wait(epoll_.Fd(), events.data(), static_cast<int>(events.size()), LongestWait());
    if (count < 0 && errno != EINTR) FailOn("epoll");
    for (int i = 0; i < count; ++i) {
        const auto watched = watched_.find(events.at(static_cast<std::size_t>(i)).data.fd);
        if (watched == watched_.end()) continue;
        const std::shared_ptr<Call> call = watched->second;
        (*call)();
    }
}

// One that a timer makes is for the next time, even when it is due at once.
void Loop::CallTimers() {
    const Due last{Clock::now(), lastTimer_};
    while (!order_.empty() && *order_.begin() <= last) {
        const TimerId id = order_.begin()->second;
        order_.erase(order_.begin());
        const auto timer = timers_.extract(id);
        if (timer) timer.mapped()();
    }
}

void Loop::Run() {
    isLeft_ = false;
    while (!isLeft_) {
        Wait();
        CallTimers();
        const Call call = afterEach_;
        if (call) call();
    }
}

}  // namespace server

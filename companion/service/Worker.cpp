// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/service/Worker.h"

#include <poll.h>
#include <unistd.h>

#include <array>

namespace service {

namespace {

using std::chrono::milliseconds;

// Waits for a call or the end, so long at most. The end shows at once, whatever calls are before
// it.
bool HasEnded(const WorkerOptions& options, milliseconds longest) {
    std::array<pollfd, 2> news{{{options.wakeFd, POLLIN, 0}, {options.endFd, POLLIN, 0}}};
    poll(news.data(), news.size(), static_cast<int>(longest.count()));
    return (news[0].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0 || news[1].revents != 0;
}

bool HasEnded(const WorkerOptions& options) {
    return HasEnded(options, milliseconds(0));
}

// Before the journal is looked at, so that none is missed.
void ForgetCalls(int fd) {
    pollfd calls{fd, POLLIN, 0};
    std::array<char, 64> bytes{};
    while (poll(&calls, 1, 0) > 0 && (calls.revents & POLLIN) != 0) {
        if (read(fd, bytes.data(), bytes.size()) <= 0) return;
    }
}

// Nobody may be listening any more.
void Tell(int fd) {
    if (fd >= 0 && write(fd, "", 1) < 0) return;
}

// The register may be in use by the program that is printing.
void FindOut(job::Jobs& jobs, const runner::LockWait& wait) try {
    jobs.FindOut(wait);
} catch (const runner::DeviceBusy&) {
}

bool DoOne(job::Jobs& jobs, const WorkerOptions& options) {
    runner::LockWait wait;
    wait.longest = options.patience;
    wait.goOn = [&options] { return !HasEnded(options); };
    if (!jobs.DoNext(wait, {})) return false;
    Tell(options.tellFd);
    return true;
}

}  // namespace

void WorkOff(job::Jobs& jobs, const WorkerOptions& options) {
    while (!HasEnded(options)) {
        ForgetCalls(options.wakeFd);
        if (DoOne(jobs, options)) continue;
        if (HasEnded(options)) return;
        FindOut(jobs, {});
        HasEnded(options, options.idle);
    }
}

}  // namespace service

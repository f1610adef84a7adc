// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/service/Worker.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace service {

namespace {

// False at the end.
bool TakeCalls(int fd) {
    std::array<char, 64> calls{};
    const ssize_t size = read(fd, calls.data(), calls.size());
    return size > 0 || (size < 0 && errno == EINTR);
}

bool IsCalled(int fd, std::chrono::milliseconds longest) {
    pollfd news{fd, POLLIN, 0};
    return poll(&news, 1, static_cast<int>(longest.count())) > 0;
}

// Nobody may be listening any more.
void Tell(int fd) {
    if (fd >= 0 && write(fd, "", 1) < 0) return;
}

bool IsWanted(int fd) {
    return !IsCalled(fd, std::chrono::milliseconds(0)) || TakeCalls(fd);
}

// The register may be in use by the program that is printing.
void FindOut(job::Jobs& jobs, const runner::LockWait& wait) try {
    jobs.FindOut(wait);
} catch (const runner::DeviceBusy&) {
}

bool DoOne(job::Jobs& jobs, const WorkerOptions& options) {
    runner::LockWait wait;
    wait.longest = options.patience;
    if (!jobs.DoNext(wait, {})) return false;
    Tell(options.tellFd);
    return true;
}

}  // namespace

void WorkOff(job::Jobs& jobs, const WorkerOptions& options) {
    while (IsWanted(options.wakeFd)) {
        if (DoOne(jobs, options)) continue;
        FindOut(jobs, {});
        IsCalled(options.wakeFd, options.idle);
    }
}

}  // namespace service

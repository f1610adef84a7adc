// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/support/TestClock.h"

#include <sys/time.h>

#include <cstdlib>
#include <ctime>
#include <optional>

namespace {

std::optional<timeval> stoppedAt;

}  // namespace

void StopClockAt(long seconds, long microseconds) {
    stoppedAt = timeval{seconds, microseconds};
    setenv("TZ", "UTC0", 1);
    tzset();
}

// The driver's only source of the time of day. An executable's own function goes before the C
// library's.
extern "C" int gettimeofday(timeval* tv, void* /*tz*/) noexcept {
    if (stoppedAt) {
        *tv = *stoppedAt;
        return 0;
    }
    timespec now{};
    const int result = clock_gettime(CLOCK_REALTIME, &now);
    *tv = timeval{now.tv_sec, now.tv_nsec / 1000};
    return result;
}

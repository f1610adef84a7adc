// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/support/SleepRecorder.h"

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <stdexcept>

namespace {

std::function<void(unsigned int)> action = [](unsigned int) {};

/// Sleep asks for value x 10^7 ns modulo 2^32. 10^7 is 2^7 times an odd number: no two values below
/// 2^25 ask for the same time.
unsigned int ValueGivenToSleep(std::uint32_t nanoseconds) {
    for (std::uint32_t value = 0; value <= 0xFFFF; ++value) {
        if (value * 10'000'000u == nanoseconds) return value;
    }
    throw std::logic_error("a pause that no 16-bit value asks for");
}

}  // namespace

void OnSleep(std::function<void(unsigned int value)> newAction) {
    action = std::move(newAction);
}

// An executable's own function goes before the C library's.
extern "C" int nanosleep(const timespec* request, timespec* /*remaining*/) {
    action(ValueGivenToSleep(static_cast<std::uint32_t>(request->tv_nsec)));
    if (request->tv_sec == 0 && request->tv_nsec < 1'000'000'000) return 0;
    errno = EINVAL;
    return -1;
}

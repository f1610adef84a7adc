// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Makes every pause a line of the scripted conversation, and takes no time: an executable's own
// nanosleep, which Sleep calls, goes before the C library's.
#include <ctime>

#include "tests/support/ScriptedWire.h"

extern "C" int nanosleep(const timespec* request, timespec* /*rest*/) {
    ScriptedPause(static_cast<std::uint32_t>(request->tv_nsec));
    return 0;
}

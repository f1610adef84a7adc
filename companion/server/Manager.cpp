// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/server/Manager.h"

#include <systemd/sd-daemon.h>

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace server {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

void Tell(const std::string& what) {
    sd_notify(0, what.c_str());
}

// A line break would begin another assignment.
std::string LineOf(std::string text) {
    std::ranges::replace(text, '\n', ' ');
    return text;
}

void TellAgain(Loop& loop, milliseconds pause) {
    Tell("WATCHDOG=1");
    loop.After(pause, [&loop, pause] { TellAgain(loop, pause); });
}

}  // namespace

void TellReady(const std::string& status) {
    Tell("READY=1\nSTATUS=" + LineOf(status));
}

void TellReloading() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    Tell("RELOADING=1\nMONOTONIC_USEC=" +
         std::to_string(std::chrono::duration_cast<microseconds>(now).count()));
}

void TellStopping(const std::string& status) {
    Tell("STOPPING=1\nSTATUS=" + LineOf(status));
}

void KeepWatchdogQuiet(Loop& loop) {
    std::uint64_t longest = 0;
    if (sd_watchdog_enabled(0, &longest) <= 0) return;
    const auto pause = std::chrono::duration_cast<milliseconds>(microseconds(longest)) / 2;
    TellAgain(loop, std::max(pause, milliseconds(1)));
}

}  // namespace server

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the service manager (systemd) is told; without one, nothing happens.
#pragma once

#include <string>

#include "companion/server/Loop.h"

namespace server {

/// Ready to work, again after TellReloading(). The status is a line for people.
void TellReady(const std::string& status);
void TellReloading();
void TellStopping(const std::string& status);

/// Tells it that the loop still turns, twice as often as it wants to hear.
void KeepWatchdogQuiet(Loop& loop);

}  // namespace server

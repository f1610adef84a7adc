// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The root in which the driver finds a command file under the path that its caller knows.
#pragma once

#include <string>

#include "companion/runner/CommandPath.h"
#include "companion/runner/Sandbox.h"

namespace runner {

/// What of a run becomes what inside; all but place are paths outside.
struct PrivateRoot {
    CommandPlace place;
    std::string files;   ///< becomes place.folder, writable
    std::string logs;    ///< becomes /var/log/voltis, writable
    std::string ini;     ///< becomes /etc/voltis/voltis.ini
    std::string device;  ///< becomes /dev/ttyS0; empty: there is none
    std::string driver;  ///< keeps its path
};

/// Beside that there are only the machine's programs and libraries, read-only, and the folders that
/// the command file's path needs. RunError: the command file is where the driver could not start.
SandboxPlan PlanFor(const PrivateRoot& root);

}  // namespace runner

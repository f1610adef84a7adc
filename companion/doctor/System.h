// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the machine must have beside the port: folders to write to, room on the disk, and the right
// to make a sandbox.
#pragma once

#include <string>
#include <vector>

#include "companion/doctor/Finding.h"
#include "companion/doctor/Machine.h"

namespace doctor {

/// A folder above the path keeps the account from it. what: what is there, "the journal".
Findings CheckWay(const Machine& machine, const std::string& what, const std::string& path);
/// A configuration file.
Findings CheckConfiguration(const Machine& machine, const std::string& file);
/// The folder of the lock files.
Findings CheckLocks(const Machine& machine, const std::string& folder);
/// The folder of the command files, in which their results are written.
Findings CheckCommandFolder(const Machine& machine, const std::string& folder);
/// The folder of the site's logs, and the logs in it.
Findings CheckLogs(const Machine& machine, const std::string& folder);
/// The room on the disks of those folders. A folder that is not there has that of the one above.
Findings CheckSpace(const Machine& machine, const std::vector<std::string>& folders);
/// The file by which runs of the driver in that folder keep each other out.
Findings CheckMarker(const Machine& machine, const std::string& folder);
/// What the private root of a run needs. On this machine a sandbox is made, too.
Findings CheckSandbox(const Machine& machine);
/// The driver itself, as for `voltisctl run`; given: its path, or empty.
Findings CheckDriver(const std::string& given);

}  // namespace doctor

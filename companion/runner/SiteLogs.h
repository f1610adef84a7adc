// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A private run's lines in the site's own logs, as if the driver had written them there.
#pragma once

#include <string>

#include "companion/runner/RegisterRun.h"

namespace runner {

/// Appends the run's blocks to voltis.log and dbgerror.log in the folder, as the profile's
/// StandardLog and DbgErrorLog ask. Each block is one write, so that the blocks of runs at the same
/// time do not mix. Of a run in place nothing: the driver has done so itself. Returns what could
/// not be written, a line for each log, empty when all is well: a sale never fails because of this.
std::string AppendToSiteLogs(const Profile& profile, const RunResult& run,
                             const std::string& folder = siteLogFolder);

}  // namespace runner

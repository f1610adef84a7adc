// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The keys of the configuration, as parts of a manual page.
#pragma once

#include <string>

namespace manual {

/// A list of the keys that the driver reads.
std::string DriverKeys();
/// A list of those that only voltisctl reads.
std::string SiteKeys();

}  // namespace manual

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the service takes and answers, as parts of manual pages.
#pragma once

#include <string>

namespace manual {

/// A list of the keys of voltisd.conf.
std::string ServiceKeys();
/// A list of what can be asked, with what answers it.
std::string ServiceRoutes();
/// A list of the names of problems, with their statuses.
std::string ServiceProblems();

}  // namespace manual

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Where callers arrive.
#pragma once

#include <vector>

#include "companion/server/Listening.h"
#include "voltisd/Configuration.h"

namespace voltisd {

/// Those that the service manager has opened, and of the configuration's those of the kinds (Unix,
/// network) that it has not. ConfigurationError: there is none at all.
std::vector<server::ListeningSocket> SocketsOf(const Configuration& configuration,
                                               std::vector<server::ListeningSocket> given);

}  // namespace voltisd

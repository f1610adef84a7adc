// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Where callers arrive.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "companion/server/Listening.h"
#include "voltisd/Configuration.h"

namespace voltisd {

/// Throws what is wrong with an address.
using AddressCheck = std::function<void(const std::string& address, bool isLocal)>;

/// Those that the service manager has opened, and of the configuration's those of the kinds (Unix,
/// network) that it has not. ConfigurationError: there is none at all. Every address is checked
/// before anybody can arrive at one of the configuration's.
std::vector<server::ListeningSocket> SocketsOf(const Configuration& configuration,
                                               std::vector<server::ListeningSocket> given,
                                               const AddressCheck& check);

}  // namespace voltisd

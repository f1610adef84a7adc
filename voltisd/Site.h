// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the files of the configuration folder say, all together: read at the start, and again when
// somebody asks for it.
#pragma once

#include <optional>
#include <vector>

#include "companion/api/Settings.h"
#include "companion/gate/Gate.h"
#include "companion/runner/Profile.h"
#include "companion/server/HttpServer.h"
#include "voltisd/Configuration.h"
#include "voltisd/Place.h"

namespace voltisd {

struct Site {
    Configuration configuration;
    std::vector<runner::Profile> profiles;  // of the registers that are served
    std::optional<server::Tls> tls;
};

/// std::exception: one of the files cannot be read or makes no sense.
Site ReadSite(const Place& place);

/// Names, origins and TLS, for who asks.
http::AccessRules RulesOf(const Site& site);

}  // namespace voltisd

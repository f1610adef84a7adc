// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The service: its sockets, its journal, and a worker for each register.
#pragma once

#include "voltisd/Place.h"

namespace voltisd {

/// Serves until SIGTERM or SIGINT. std::exception: it cannot begin, and why.
void Serve(const Place& place);

/// Reads all that a start would read. std::exception: what is wrong.
void CheckConfiguration(const Place& place);

}  // namespace voltisd

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The process that works off the queue of one register.
#pragma once

#include <chrono>
#include <string>

#include "voltisd/Place.h"

namespace voltisd {

/// Until the server closes its end, or SIGTERM or SIGINT comes; a receipt that is being printed is
/// ended first. std::exception: it cannot go on.
void Work(const Place& place, const std::string& registerName, std::chrono::seconds patience);

}  // namespace voltisd

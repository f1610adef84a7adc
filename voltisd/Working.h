// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The process that works off the queue of one register.
#pragma once

#include <chrono>
#include <string>

#include "voltisd/Place.h"

namespace voltisd {

/// Until the server closes its end. std::exception: it cannot go on.
void Work(const Place& place, const std::string& registerName, std::chrono::seconds patience);

}  // namespace voltisd

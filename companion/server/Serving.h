// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The life of a server from its start to its end.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "companion/server/HttpServer.h"
#include "companion/server/Loop.h"
#include "companion/server/Workers.h"

namespace server {

struct EndTimes {
    /// For the receipts that are being printed.
    std::chrono::milliseconds receipts{90'000};
    /// For the last answers to reach those who asked.
    std::chrono::milliseconds answers{5'000};
};

/// Until SIGTERM or SIGINT. Then, in this order: no new connections, and no work for the workers;
/// they end, after the receipts that they are printing; who waited for one has the answer; all
/// others are answered with what is known, and streams end. The registers whose workers are still
/// printing after that time are returned: they go on.
std::vector<std::string> ServeUntilTheEnd(Loop& loop, HttpServer& server, Workers& workers,
                                          const EndTimes& times);

}  // namespace server

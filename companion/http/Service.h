// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What answers requests. The server asks one thing at a time, in one thread.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "companion/http/Message.h"

namespace http {

/// An answer that is not known yet.
struct Later {
    std::chrono::milliseconds longest{0};
    /// Called when something may have changed, until there is an answer; at the latest after that
    /// time, with last, and then there is one.
    std::function<std::optional<Response>(bool last)> ask;
};

/// An answer that goes on until the other end closes it, or the server ends.
struct Stream {
    std::string type;
    std::vector<std::pair<std::string, std::string>> headers = {};
    /// Called when something may have changed, and after what it returned was sent: what is to be
    /// sent now, perhaps nothing. What it throws ends the stream.
    std::function<std::string()> next;
    /// Sent when there was nothing for so long, so that both ends notice a broken line.
    std::string keepAlive;
    std::chrono::milliseconds pause{15'000};
};

using Reply = std::variant<Response, Later, Stream>;

class Service {
  public:
    virtual ~Service() = default;
    /// What it throws is answered with status 500, without its text.
    virtual Reply Answer(const Request& request) = 0;
};

}  // namespace http

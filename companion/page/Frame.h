// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What is around every page, and what browsers are told about all of them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "companion/http/Message.h"
#include "companion/page/Html.h"
#include "companion/page/Visit.h"

namespace page {

struct Content {
    std::string title;
    Html main;
    int status = 200;
    std::optional<std::int64_t> after = {};  // what was shown goes up to that event; none: not live
    std::string summary = {};                // said aloud when it has changed
};

/// visit: nullptr before somebody has logged in.
http::Response Document(const Content& content, const Visit* visit);

/// A page that says why there is no other.
http::Response Complaint(int status, const std::string& text, const Visit* visit);

/// Only what this service itself sends, in files of their own; in no frame.
void AddStrictHeaders(http::Response& response);

http::Response LeadTo(const std::string& path);

}  // namespace page

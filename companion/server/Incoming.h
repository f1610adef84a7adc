// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// From the pieces of a request, as they came over the line, to a request that can be relied on.
//
// What two readers could understand in two ways is refused, not mended: a header twice that must be
// there once, a body with two lengths, a path with a byte that is no UTF-8 or with "..". Otherwise
// somebody between the caller and this program could see another request than it does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "companion/http/Message.h"

namespace server {

/// What is more than that is refused.
struct RequestLimits {
    std::size_t body = 64UL * 1024;   // status 413
    std::size_t target = 8UL * 1024;  // path and query as they came; 414
    std::size_t head = 16UL * 1024;   // names and values of all headers; 431
    std::size_t headers = 64;         // 431
    std::size_t parameters = 32;      // of the query; 400
};

/// As it came.
struct Head {
    std::string method;
    std::string target;  // path and query
    std::vector<std::pair<std::string, std::string>> headers;
};

/// The request without its body, or why it is refused. Headers of the same name are one, with
/// commas between the values.
std::variant<http::Request, http::Response> RequestOf(const Head& head,
                                                      const RequestLimits& limits);

/// The length of the body that the request announces. Nothing: there is none, or it comes in
/// chunks.
std::optional<std::uint64_t> AnnouncedLength(const http::Request& request);

/// To a body that is too long.
http::Response TooLarge(const RequestLimits& limits);

}  // namespace server

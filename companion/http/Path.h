// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The parts of a request's path (RFC 3986 3.3).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace http {

/// The parts between the slashes, each decoded by itself, so that one may hold a slash: of
/// "/v1/jobs/a%2Fb" they are "v1", "jobs" and "a/b"; of "/" there is none. The path is as it was
/// sent, without the query. Nothing: it begins with no slash, or has a broken escape.
std::optional<std::vector<std::string>> SegmentsOf(std::string_view path);

/// The text as one part of a path: all but letters, digits, and - . _ ~ escaped.
std::string AsSegment(std::string_view text);

}  // namespace http

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Bodies of requests: a command file in several forms, and JSON objects.
#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <variant>

#include "companion/api/Refusals.h"
#include "companion/http/Message.h"

namespace api {

/// In bytes.
inline constexpr std::size_t longestBody = 65536;

/// The bytes of a command file as the driver is to get them: text/plain, with charset=utf-8 brought
/// into the code page, else as it is; or a JSON object with content and encoding. Or the refusal,
/// which has no word of the body.
std::variant<std::string, http::Response> CommandFileIn(const http::Request& request,
                                                        const std::string& codePage);

/// The JSON object that the body is, with no other members than these. Or the refusal.
std::variant<Json, http::Response> ObjectIn(const http::Request& request,
                                            const std::set<std::string>& allowed);

/// RFC 4648, with its padding and nothing else. Nothing: it is none.
std::optional<std::string> FromBase64(const std::string& text);

/// Whether all of it is UTF-8.
bool IsUtf8(const std::string& text);

}  // namespace api

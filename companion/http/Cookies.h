// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What a browser was given to keep and sends back (RFC 6265).
#pragma once

#include <optional>
#include <string>

namespace http {

/// The value of the cookie in a Cookie header, without quotes around it. Nothing: there is none, or
/// there are several of the name. Another host of the same domain may have set one of those, and
/// nothing tells which.
std::optional<std::string> CookieIn(const std::string& header, const std::string& name);

}  // namespace http

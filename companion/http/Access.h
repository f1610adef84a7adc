// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What a browser can be made to send by a page that is none of ours, and what keeps it out. A page
// of another origin may send requests to any address that its user reaches; and a name of its own
// may point to this machine, so that it is the same origin (DNS rebinding). So the name that was
// asked for must be one of ours (the Host header, RFC 9110 7.2), and the page, where a browser
// names it (Origin, RFC 6454; Sec-Fetch-Site, W3C Fetch Metadata), one of the same origin.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "companion/http/Message.h"

namespace http {

struct AccessRules {
    /// The names and addresses that this service is asked under, in small letters and without a
    /// port; an IPv6 address in brackets. Those of the loopback interface are always among them.
    std::set<std::string> hosts;
    /// Pages of these origins may use the service, too: "https://till.example".
    std::set<std::string> origins;
    bool tls = false;
};

/// The refusal, where there is one. Of requests by the Unix socket, which no page can reach, none
/// is refused here.
std::optional<Response> RefusalOf(const Request& request, const AccessRules& rules);

/// The name in a Host header: in small letters, without the port and a last dot. Nothing: it is
/// none.
std::optional<std::string> HostName(const std::string& header);

/// The headers that let a page of the origin that is named read the answer; none for the others.
/// Further ones when it asks first what it may do (OPTIONS).
void AllowOrigin(const Request& request, const AccessRules& rules, Response& response);

}  // namespace http

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/http/Access.h"

#include <algorithm>
#include <cctype>
#include <string_view>

#include "companion/http/Problem.h"

namespace http {

namespace {

std::string InSmallLetters(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char letter) {
        return letter < 0x80 ? static_cast<char>(std::tolower(letter)) : static_cast<char>(letter);
    });
    return text;
}

bool IsLoopback(const std::string& host) {
    return host == "localhost" || host == "127.0.0.1" || host == "[::1]";
}

bool AreAll(std::string_view text, std::string_view allowed) {
    return !text.empty() && text.find_first_not_of(allowed) == std::string_view::npos;
}

bool IsPort(std::string_view text) {
    constexpr std::size_t longest = 5;
    return text.empty() || (text.size() <= longest && AreAll(text, "0123456789"));
}

// Where the name ends and a port may begin.
std::size_t EndOfName(const std::string& header) {
    if (!header.starts_with('[')) return std::min(header.find(':'), header.size());
    const std::size_t bracket = header.find(']');
    return bracket == std::string::npos ? 0 : bracket + 1;
}

bool IsName(const std::string& name) {
    if (name.starts_with('[')) return AreAll(name, "[]0123456789abcdef:.");
    const bool hasEmptyPart =
        name.starts_with('.') || name.ends_with('.') || name.find("..") != std::string::npos;
    return !hasEmptyPart && AreAll(name, "abcdefghijklmnopqrstuvwxyz0123456789-._");
}

bool IsNavigation(const Request& request) {
    return request.method == "GET" && request.Header("sec-fetch-mode") == "navigate" &&
           !request.path.starts_with("/v1/");
}

bool IsOfAnotherOrigin(const Request& request, const AccessRules& rules) {
    const std::string origin = request.Header("origin");
    if (origin.empty()) return false;
    const std::string own = (rules.tls ? "https://" : "http://") + request.Header("host");
    return InSmallLetters(origin) != InSmallLetters(own);
}

bool IsSentByAForeignPage(const Request& request) {
    const std::string site = request.Header("sec-fetch-site");
    return !site.empty() && site != "same-origin" && site != "none" && !IsNavigation(request);
}

bool IsAllowed(const std::string& origin, const AccessRules& rules) {
    return rules.origins.contains(InSmallLetters(origin));
}

}  // namespace

std::optional<std::string> HostName(const std::string& header) {
    const std::string text = InSmallLetters(header);
    const std::size_t end = EndOfName(text);
    std::string name = text.substr(0, end);
    const std::string rest = text.substr(end);
    if (!rest.empty() && (rest[0] != ':' || !IsPort(rest.substr(1)))) return std::nullopt;
    if (name.ends_with('.')) name.pop_back();
    if (!IsName(name)) return std::nullopt;
    return name;
}

std::optional<Response> RefusalOf(const Request& request, const AccessRules& rules) {
    if (request.peer.IsLocal()) return std::nullopt;
    const std::optional<std::string> host = HostName(request.Header("host"));
    if (!host) return ProblemOf(400, "no-host", "The request names no host");
    if (!IsLoopback(*host) && !rules.hosts.contains(*host)) {
        return ProblemOf(421, "foreign-host",
                         "The request is for '" + *host + "', which is no name of this service");
    }
    if (IsAllowed(request.Header("origin"), rules)) return std::nullopt;
    if (IsOfAnotherOrigin(request, rules) || IsSentByAForeignPage(request))
        return ProblemOf(403, "foreign-origin", "A page of another origin may not do this");
    return std::nullopt;
}

void AllowOrigin(const Request& request, const AccessRules& rules, Response& response) {
    response.headers.emplace_back("Vary", "Origin");
    const std::string origin = request.Header("origin");
    if (!IsAllowed(origin, rules)) return;
    response.headers.emplace_back("Access-Control-Allow-Origin", origin);
    response.headers.emplace_back("Access-Control-Expose-Headers", "Location, Retry-After");
    if (request.method != "OPTIONS") return;
    response.headers.emplace_back("Access-Control-Allow-Methods", "GET, POST, DELETE");
    response.headers.emplace_back("Access-Control-Allow-Headers",
                                  "Authorization, Content-Type, Idempotency-Key, If-None-Match, "
                                  "Last-Event-ID, Prefer");
    response.headers.emplace_back("Access-Control-Max-Age", "600");
}

}  // namespace http

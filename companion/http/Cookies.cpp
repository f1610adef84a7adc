// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/http/Cookies.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace http {

namespace {

std::string_view WithoutBlanks(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(" \t") + 1 - begin);
}

std::string_view WithoutQuotes(std::string_view text) {
    const bool quoted = text.size() >= 2 && text.front() == '"' && text.back() == '"';
    return quoted ? text.substr(1, text.size() - 2) : text;
}

// The value, when the pair is one of that name.
std::optional<std::string> ValueOf(std::string_view pair, const std::string& name) {
    const std::size_t equals = pair.find('=');
    if (equals == std::string_view::npos) return std::nullopt;
    if (WithoutBlanks(pair.substr(0, equals)) != name) return std::nullopt;
    return std::string(WithoutQuotes(WithoutBlanks(pair.substr(equals + 1))));
}

}  // namespace

std::optional<std::string> CookieIn(const std::string& header, const std::string& name) {
    std::optional<std::string> found;
    for (std::size_t at = 0; at <= header.size();) {
        const std::size_t end = std::min(header.find(';', at), header.size());
        const auto value = ValueOf(std::string_view(header).substr(at, end - at), name);
        if (value && found) return std::nullopt;
        if (value) found = value;
        at = end + 1;
    }
    return found;
}

}  // namespace http

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/page/Assets.h"

#include <array>
#include <cstdint>
#include <string>

#include "companion/page/Frame.h"

namespace page {

namespace {

struct Asset {
    const char* name;
    const char* type;
    const std::string_view& text;
};
constexpr std::array assets = {
    Asset{"page.css", "text/css; charset=utf-8", styleSheet},
    Asset{"page.js", "text/javascript; charset=utf-8", script},
    Asset{"page.svg", "image/svg+xml", icon},
};

// FNV-1a: another text has another one, as good as always.
std::string TagOf(std::string_view text) {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    return "\"" + std::to_string(hash) + "\"";
}

http::Response ResponseFor(const Asset& asset, const http::Request& request) {
    const std::string tag = TagOf(asset.text);
    const bool known = request.Header("if-none-match") == tag;
    http::Response response = known ? http::Response{304, "", "", {}}
                                    : http::Response{200, asset.type, std::string(asset.text), {}};
    // To be asked for again each time: after an upgrade the new one goes with the new pages.
    response.headers = {{"Cache-Control", "no-cache"}, {"ETag", tag}};
    AddStrictHeaders(response);
    return response;
}

}  // namespace

std::optional<http::Response> AssetFor(const http::Request& request) {
    if (request.segments.size() != 1) return std::nullopt;
    for (const Asset& asset : assets)
        if (request.segments.front() == asset.name) return ResponseFor(asset, request);
    return std::nullopt;
}

}  // namespace page

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/JsonText.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <string_view>

#include "companion/runner/Utf8.h"

namespace {

constexpr char replacement[] = "\xef\xbf\xbd";

std::string Escaped(char c) {
    if (c == '"' || c == '\\') return {'\\', c};
    constexpr unsigned firstPrintable = 0x20;
    if (static_cast<unsigned char>(c) >= firstPrintable) return {c};
    std::array<char, 8> code{};
    std::snprintf(code.data(), code.size(), "\\u%04x", static_cast<unsigned>(c));
    return code.data();
}

}  // namespace

std::string JsonString(const std::string& text) {
    std::string json = "\"";
    for (std::string_view rest = text; !rest.empty();) {
        const std::size_t before = rest.size();
        const std::string_view all = rest;
        if (runner::NextCharacter(rest) == runner::noCharacter) {
            json += replacement;
            rest.remove_prefix(1);
            continue;
        }
        const std::string_view character = all.substr(0, before - rest.size());
        json += character.size() == 1 ? Escaped(character[0]) : std::string(character);
    }
    return json + "\"";
}

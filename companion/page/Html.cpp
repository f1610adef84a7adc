// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/page/Html.h"

#include "companion/runner/Utf8.h"

namespace page {

namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";

// Controls (HTML standard, 13.2.3.5).
bool IsForbidden(char32_t c) {
    if (c == '\n' || c == '\t') return false;
    return c < 0x20 || (c >= 0x7F && c <= 0x9F);
}

std::string_view EntityFor(char32_t c) {
    switch (c) {
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '"':
            return "&quot;";
        case '\'':
            return "&#39;";
        default:
            return "";
    }
}

}  // namespace

std::string Escaped(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    while (!text.empty()) {
        const std::string_view before = text;
        const char32_t c = runner::NextCharacter(text);
        if (c == runner::noCharacter) text.remove_prefix(1);
        if (c == runner::noCharacter || IsForbidden(c)) {
            escaped += replacement;
        } else if (const std::string_view entity = EntityFor(c); !entity.empty()) {
            escaped += entity;
        } else {
            escaped += before.substr(0, before.size() - text.size());
        }
    }
    return escaped;
}

Html FillForm(std::string_view form, std::span<const Value> values) {
    Html html;
    for (const Value& value : values) {
        const std::size_t at = form.find("{}");
        html.text_ += form.substr(0, at);
        html.text_ += value.Text();
        form.remove_prefix(at + 2);
    }
    html.text_ += form;
    return html;
}

}  // namespace page

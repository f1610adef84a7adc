// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/http/Form.h"

#include <strings.h>

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace http {

namespace {

constexpr char formType[] = "application/x-www-form-urlencoded";

bool IsForm(const std::string& type) {
    const std::string essence = type.substr(0, type.find_first_of("; \t"));
    return strcasecmp(essence.c_str(), formType) == 0;
}

int DigitOf(char letter) {
    if (letter >= '0' && letter <= '9') return letter - '0';
    if (letter >= 'a' && letter <= 'f') return letter - 'a' + 10;
    if (letter >= 'A' && letter <= 'F') return letter - 'A' + 10;
    return -1;
}

// Of "%2B" at that place; -1: there is none.
int ByteAt(std::string_view text, std::size_t at) {
    if (text[at] != '%' || at + 2 >= text.size()) return -1;
    const int high = DigitOf(text[at + 1]);
    const int low = DigitOf(text[at + 2]);
    return high < 0 || low < 0 ? -1 : high * 16 + low;
}

std::string Decoded(std::string_view text) {
    std::string all;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const int byte = ByteAt(text, at);
        if (byte < 0) {
            all += text[at] == '+' ? ' ' : text[at];
            continue;
        }
        all += static_cast<char>(byte);
        at += 2;
    }
    return all;
}

}  // namespace

std::optional<std::map<std::string, std::string>> FormOf(const Request& request) {
    if (!IsForm(request.Header("content-type"))) return std::nullopt;
    std::map<std::string, std::string> fields;
    for (std::string_view rest = request.body; !rest.empty();) {
        const std::string_view field = rest.substr(0, rest.find('&'));
        rest.remove_prefix(std::min(field.size() + 1, rest.size()));
        const std::string_view name = field.substr(0, field.find('='));
        const std::string_view value = field.substr(std::min(name.size() + 1, field.size()));
        if (!field.empty()) fields.emplace(Decoded(name), Decoded(value));
    }
    return fields;
}

std::string FieldOf(const Request& request, const std::string& name) {
    const auto form = FormOf(request);
    if (!form) return "";
    const auto field = form->find(name);
    return field == form->end() ? "" : field->second;
}

}  // namespace http

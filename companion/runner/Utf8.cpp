// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/Utf8.h"

#include <algorithm>
#include <cstddef>

namespace runner {

namespace {

struct Lead {
    unsigned mask;
    unsigned mark;
    std::size_t length;
    char32_t least;  // a smaller character has a shorter form
};
constexpr Lead leads[] = {
    {0x80, 0x00, 1, 0}, {0xe0, 0xc0, 2, 0x80}, {0xf0, 0xe0, 3, 0x800}, {0xf8, 0xf0, 4, 0x10000}};

bool IsCharacter(char32_t value, const Lead& lead) {
    return value >= lead.least && value <= 0x10ffff && (value < 0xd800 || value > 0xdfff);
}

// The bytes of the character, without what marks them; noCharacter when one is missing.
char32_t Assembled(std::string_view text, const Lead& lead) {
    if (text.size() < lead.length) return noCharacter;
    char32_t value = static_cast<unsigned char>(text[0]) & ~lead.mask & 0xffU;
    for (const char c : text.substr(1, lead.length - 1)) {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte & 0xc0U) != 0x80U) return noCharacter;
        value = value << 6U | (byte & 0x3fU);
    }
    return value;
}

}  // namespace

char32_t NextCharacter(std::string_view& text) {
    const auto first = static_cast<unsigned char>(text[0]);
    const auto* lead = std::ranges::find_if(
        leads, [&](const Lead& row) { return (first & row.mask) == row.mark; });
    if (lead == std::ranges::end(leads)) return noCharacter;
    const char32_t value = Assembled(text, *lead);
    if (value == noCharacter || !IsCharacter(value, *lead)) return noCharacter;
    text.remove_prefix(lead->length);
    return value;
}

}  // namespace runner

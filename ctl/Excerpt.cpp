// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/Excerpt.h"

#include <algorithm>
#include <string_view>

#include "companion/runner/Utf8.h"

namespace {

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        if (runner::NextCharacter(text) == runner::noCharacter) return false;
    }
    return true;
}

}  // namespace

std::vector<std::string> CellsOf(const std::string& text) {
    std::vector<std::string> cells;
    const bool utf8 = IsUtf8(text);
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (utf8 && (byte & 0xC0U) == 0x80U) {
            cells.back() += c;
        } else if (byte == '\t') {
            cells.emplace_back(" ");
        } else {
            const bool shown = byte >= 0x20 && byte != 0x7F && (byte < 0x80 || utf8);
            cells.emplace_back(1, shown ? c : '?');
        }
    }
    return cells;
}

std::string OnTerminal(const std::string& text) {
    std::string shown;
    for (const std::string& cell : CellsOf(text)) shown += cell;
    return shown;
}

std::string Excerpt(const std::string& text, int column) {
    constexpr std::size_t width = 76;
    constexpr std::size_t before = 50;
    const std::vector<std::string> cells = CellsOf(text);
    const auto offset = std::min(static_cast<std::size_t>(column) - 1, text.size());
    const std::string left = text.substr(0, offset);
    std::size_t caret = IsUtf8(left) ? CellsOf(left).size() : left.size();
    caret = std::min(caret, cells.size());
    const std::size_t begin = cells.size() > width && caret > before ? caret - before : 0;
    const std::size_t end = std::min(cells.size(), begin + width);
    std::string line;
    for (std::size_t i = begin; i < end; ++i) line += cells[i];
    return "  " + line + "\n  " + std::string(caret - begin, ' ') + "^\n";
}

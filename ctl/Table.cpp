// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/Table.h"

#include <algorithm>
#include <cstddef>
#include <iostream>

namespace {

// Letters of UTF-8, as nearly all terminals have it.
std::size_t WidthOf(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char letter) {
        return (static_cast<unsigned char>(letter) & 0xC0U) != 0x80U;
    }));
}

}  // namespace

std::string Shown(std::string text, const std::string& allowed) {
    std::replace_if(
        text.begin(), text.end(),
        [&](char letter) {
            const auto code = static_cast<unsigned char>(letter);
            return (code < 0x20 || code == 0x7F) && allowed.find(letter) == std::string::npos;
        },
        '?');
    return text;
}

void PrintTable(const std::vector<TableRow>& table) {
    std::vector<std::size_t> widths;
    for (const TableRow& row : table) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], WidthOf(row[i]));
    }
    for (const TableRow& row : table) {
        for (std::size_t i = 0; i + 1 < row.size(); ++i) {
            std::cout << row[i] << std::string(widths[i] + 2 - WidthOf(row[i]), ' ');
        }
        std::cout << row.back() << '\n';
    }
}

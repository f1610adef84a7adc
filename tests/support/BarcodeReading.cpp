// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/support/BarcodeReading.h"

namespace {

/// Every element, each character, as many times as count.
std::string Stretched(const std::string& text, std::size_t count) {
    std::string wide;
    for (const char c : text) wide.append(count, c);
    return wide;
}

}  // namespace

std::string Modules(const std::string& partial) {
    static const std::string widths = "0123456789";
    static const std::string longWidths = "-abcdefghijklmnopqrstuvwxyz";
    std::string modules;
    char ink = ' ';
    for (const char c : partial) {
        if (c == '+' || c == '-') continue;
        const std::string& table = widths.find(c) != std::string::npos ? widths : longWidths;
        modules.append(table.find(c), ink);
        ink = ink == ' ' ? '#' : ' ';
    }
    return modules;
}

std::string Drawn(const std::string& partial, std::size_t width, std::size_t margin) {
    const std::string modules = Modules(partial);
    const std::string bars = Stretched(modules, (width - 2 * margin) / modules.size());
    const std::size_t blank = width - bars.size();
    return std::string(blank / 2, ' ') + bars + std::string(blank - blank / 2, ' ');
}

std::string Dots(const BUF& line) {
    std::string dots;
    for (DWORD dot = 0; dot < 8 * line.GetSize(); ++dot) {
        dots += (line[dot / 8] >> (dot % 8)) % 2 != 0 ? '#' : ' ';
    }
    return dots;
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/ProgressBar.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>

namespace {

constexpr std::size_t barWidth = 20;
constexpr std::size_t longestTitle = 40;
constexpr char clearLine[] = "\r\x1b[K";

std::string Printable(std::string title) {
    title.resize(std::min(title.size(), longestTitle));
    std::ranges::replace_if(
        title,
        [](char letter) { return static_cast<unsigned char>(letter) < 0x20 || letter == 0x7F; },
        '?');
    return title;
}

}  // namespace

std::string ProgressText(std::size_t done, const std::vector<plan::Command>& all) {
    if (all.empty()) return "";
    done = std::min(done, all.size());
    const std::size_t filled = barWidth * done / all.size();
    const std::string title = done == 0 ? "" : "  " + Printable(all[done - 1].title);
    return "[" + std::string(filled, '#') + std::string(barWidth - filled, '.') + "] " +
           std::to_string(done) + " of " + std::to_string(all.size()) + title;
}

ProgressBar::ProgressBar() : drawing_(isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar() {
    if (!shown_.empty()) std::cerr << clearLine << std::flush;
}

void ProgressBar::Show(std::size_t done, const std::vector<plan::Command>& all) {
    const std::string text = ProgressText(done, all);
    if (!drawing_ || text == shown_) return;
    shown_ = text;
    std::cerr << clearLine << text << std::flush;
}

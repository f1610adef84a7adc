// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "voltisd/RefusalLog.h"

#include <algorithm>

namespace voltisd {

namespace {

constexpr std::size_t mostCallers = 1'000;
constexpr char everybodyElse[] = "";

}  // namespace

std::optional<std::string> RefusalLog::Take(const std::string& caller, const std::string& line,
                                            Time now) {
    const bool fits = minutes_.contains(caller) || minutes_.size() < mostCallers;
    const auto [minute, isNew] = minutes_.try_emplace(fits ? caller : everybodyElse);
    if (!isNew) {
        ++minute->second.further;
        return std::nullopt;
    }
    minute->second = {now + std::chrono::minutes(1), line, 0};
    next_ = std::min(next_, minute->second.end);
    return line;
}

std::vector<std::string> RefusalLog::TakeOver(Time now) {
    if (now < next_) return {};
    std::vector<std::string> lines;
    next_ = Time::max();
    std::erase_if(minutes_, [&](const auto& entry) {
        const Minute& minute = entry.second;
        const bool isOver = minute.end <= now;
        if (isOver && minute.further > 0)
            lines.push_back(minute.line + ", and " + std::to_string(minute.further) +
                            " more within a minute");
        if (!isOver) next_ = std::min(next_, minute.end);
        return isOver;
    });
    return lines;
}

}  // namespace voltisd

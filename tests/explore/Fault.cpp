// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/explore/Fault.h"

#include <array>
#include <charconv>
#include <sstream>
#include <stdexcept>

namespace explore {

namespace {

constexpr std::array<std::string_view, faultCount> words = {
    "none", "late", "later", "lost", "garbled", "noise", "power-fails", "refused", "drained"};

Step ParseStep(const std::string& word) {
    const std::size_t colon = word.find(':');
    std::size_t place = 0;
    const char* end = word.data() + (colon == std::string::npos ? 0 : colon);
    const auto read = std::from_chars(word.data(), end, place);
    const auto fault =
        colon == std::string::npos ? std::nullopt : FindFault(word.substr(colon + 1));
    if (read.ec != std::errc() || read.ptr != end || !fault || *fault == Fault::None)
        throw std::runtime_error("'" + word + "' is no PLACE:FAULT");
    return {place, *fault};
}

}  // namespace

std::string_view FaultWord(Fault fault) {
    return words.at(static_cast<std::size_t>(fault));
}

std::optional<Fault> FindFault(std::string_view word) {
    for (std::size_t i = 0; i < words.size(); ++i)
        if (words[i] == word) return static_cast<Fault>(i);
    return std::nullopt;
}

std::string ScheduleText(const Schedule& schedule) {
    std::string text;
    for (const Step& step : schedule) {
        text += (text.empty() ? "" : " ") + std::to_string(step.place) + ":";
        text += FaultWord(step.fault);
    }
    return text.empty() ? "none" : text;
}

Schedule ParseSchedule(std::string_view text) {
    Schedule schedule;
    std::istringstream all{std::string(text)};
    for (std::string word; all >> word;) {
        if (word == "none" && schedule.empty()) continue;
        schedule.push_back(ParseStep(word));
        if (schedule.size() > 1 && schedule[schedule.size() - 2].place >= schedule.back().place)
            throw std::runtime_error("'" + word + "' is not after the place before it");
    }
    return schedule;
}

}  // namespace explore

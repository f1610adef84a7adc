// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/trace/Clock.h"

#include <chrono>

namespace trace {

namespace {

constexpr Time msOfDay = 86'400'000;

// Rounded down, also before 1970.
Time DaysOf(Time time) {
    return (time >= 0 ? time : time - (msOfDay - 1)) / msOfDay;
}

void AddDigits(unsigned number, int count, std::string& text) {
    const std::size_t end = text.size() + static_cast<std::size_t>(count);
    text.resize(end);
    for (int i = 1; i <= count; ++i) {
        text[end - static_cast<std::size_t>(i)] = static_cast<char>('0' + number % 10);
        number /= 10;
    }
}

std::chrono::year_month_day DateOf(Time time) {
    return std::chrono::sys_days(std::chrono::days(DaysOf(time)));
}

}  // namespace

std::string ClockText(Time time) {
    const auto ms = static_cast<unsigned>(time - DaysOf(time) * msOfDay);
    std::string text;
    text.reserve(12);
    AddDigits(ms / 3'600'000, 2, text);
    text += ':';
    AddDigits(ms / 60'000 % 60, 2, text);
    text += ':';
    AddDigits(ms / 1000 % 60, 2, text);
    text += '.';
    AddDigits(ms % 1000, 3, text);
    return text;
}

std::string DateText(Time time) {
    const auto date = DateOf(time);
    std::string text;
    AddDigits(static_cast<unsigned>(date.day()), 2, text);
    text += '.';
    AddDigits(static_cast<unsigned>(date.month()), 2, text);
    text += '.';
    AddDigits(static_cast<unsigned>(static_cast<int>(date.year())), 4, text);
    return text;
}

std::string DateTimeText(Time time) {
    const auto date = DateOf(time);
    std::string text;
    AddDigits(static_cast<unsigned>(static_cast<int>(date.year())), 4, text);
    text += '-';
    AddDigits(static_cast<unsigned>(date.month()), 2, text);
    text += '-';
    AddDigits(static_cast<unsigned>(date.day()), 2, text);
    return text + 'T' + ClockText(time);
}

}  // namespace trace

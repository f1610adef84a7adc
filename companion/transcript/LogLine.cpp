// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/transcript/LogLine.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <system_error>

namespace transcript {

namespace {

constexpr std::string_view toRegister = "PC->ECR";
constexpr std::string_view fromRegister = "PC<-ECR";
constexpr std::string_view lostAnswer = "PC<-ECR: lost";
constexpr std::string_view thrownAway = "(ignored)";
constexpr std::string_view timePattern = "dd.dd.dddd dd:dd:dd.ddd  ";
static_assert(timePattern.size() == timeLength);

constexpr int noDigit = -1;

constexpr std::array<std::int8_t, 256> MakeHexDigits() {
    std::array<std::int8_t, 256> values{};
    values.fill(noDigit);
    for (const std::string_view digits : {"0123456789abcdef", "0123456789ABCDEF"}) {
        std::int8_t value = 0;
        for (const char digit : digits) values[static_cast<unsigned char>(digit)] = value++;
    }
    return values;
}
constexpr std::array<std::int8_t, 256> hexDigits = MakeHexDigits();

int HexDigit(char c) {
    return hexDigits[static_cast<unsigned char>(c)];
}

void SkipBlanks(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
}

bool Take(std::string_view& text, std::string_view word) {
    if (!text.starts_with(word)) return false;
    text.remove_prefix(word.size());
    return true;
}

template <typename Number>
std::optional<Number> TakeNumber(std::string_view& text) {
    SkipBlanks(text);
    Number number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc()) return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

// All of " 06 df 42"; false when something else is among the bytes.
bool TakeBytes(std::string_view text, std::vector<std::uint8_t>& bytes) {
    if (text.size() % 3 != 0) return false;
    bytes.resize(text.size() / 3);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const int high = HexDigit(text[3 * i + 1]);
        const int low = HexDigit(text[3 * i + 2]);
        if (text[3 * i] != ' ' || high == noDigit || low == noDigit) return false;
        bytes[i] = static_cast<std::uint8_t>(high * 16 + low);
    }
    return true;
}

// Eleven days: no wait is longer, and numbers like inf are none.
constexpr double longestMs = 1e9;

// What follows the direction: "   4 bytes in    6.3 ms : (ignored) d9 06 df 42".
bool ReadBlock(std::string_view text, LogLine& line) {
    const auto size = TakeNumber<int>(text);
    if (!size || !Take(text, " bytes ")) return false;
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) return false;
    std::string_view duration = text.substr(0, colon);
    line.ms = Take(duration, "in") ? TakeNumber<double>(duration) : std::nullopt;
    text.remove_prefix(colon + 1);
    std::string_view rest = text;
    SkipBlanks(rest);
    line.stale = Take(rest, thrownAway);
    if (line.stale) text = rest;
    if (line.ms && !(*line.ms >= 0 && *line.ms <= longestMs)) return false;
    return TakeBytes(text, line.bytes) && line.bytes.size() == static_cast<std::size_t>(*size);
}

int Digits(std::string_view text, std::size_t at, std::size_t count) {
    int number = 0;
    for (const char c : text.substr(at, count)) number = number * 10 + (c - '0');
    return number;
}

bool HasTime(std::string_view text) {
    if (text.size() < timeLength) return false;
    for (std::size_t i = 0; i < timeLength; ++i) {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        if (timePattern[i] == 'd' ? !digit : text[i] != timePattern[i]) return false;
    }
    const int day = Digits(text, 0, 2);
    const int month = Digits(text, 3, 2);
    return day >= 1 && day <= 31 && month >= 1 && month <= 12;
}

std::int64_t TimeOf(std::string_view text) {
    using namespace std::chrono;
    enum At : std::uint8_t {
        day = 0,
        month = 3,
        year = 6,
        hour = 11,
        minute = 14,
        second = 17,
        ms = 20
    };
    const sys_days date = std::chrono::year(Digits(text, At::year, 4)) /
                          Digits(text, At::month, 2) / Digits(text, At::day, 2);
    const std::int64_t seconds =
        (Digits(text, At::hour, 2) * 60 + Digits(text, At::minute, 2)) * 60 +
        Digits(text, At::second, 2);
    constexpr std::int64_t secondsOfDay = 86400;
    return (date.time_since_epoch().count() * secondsOfDay + seconds) * 1000 +
           Digits(text, At::ms, 3);
}

}  // namespace

void ReadLine(std::string_view text, LogLine& line) {
    if (text.ends_with('\r')) text.remove_suffix(1);  // of a log that was mailed
    line.text = text;
    if (text == lostAnswer) {
        line.kind = LineKind::Lost;
        return;
    }
    line.toRegister = Take(text, toRegister);
    if (line.toRegister || Take(text, fromRegister)) {
        line.kind = ReadBlock(text, line) ? LineKind::Block : LineKind::Damaged;
    } else if (HasTime(text)) {
        line.kind = LineKind::Message;
        line.at = TimeOf(text);
        line.text.remove_prefix(timeLength);
    } else {
        line.kind = LineKind::Other;
    }
}

}  // namespace transcript

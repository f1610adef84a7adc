// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/http/Path.h"

#include <cstddef>

namespace http {

namespace {

constexpr std::string_view digits = "0123456789ABCDEF";

std::optional<unsigned> HexDigitIn(char c) {
    if (c >= 'a' && c <= 'f') c = static_cast<char>(c - 'a' + 'A');
    const std::size_t at = digits.find(c);
    if (at == std::string_view::npos) return std::nullopt;
    return static_cast<unsigned>(at);
}

// Of a text that begins with two hexadecimal digits.
std::optional<char> ByteIn(std::string_view text) {
    constexpr unsigned base = 16;
    if (text.size() < 2) return std::nullopt;
    const auto high = HexDigitIn(text[0]);
    const auto low = HexDigitIn(text[1]);
    if (!high || !low) return std::nullopt;
    return static_cast<char>(*high * base + *low);
}

std::optional<std::string> SegmentOf(std::string_view segment) {
    std::string text;
    while (!segment.empty()) {
        const char c = segment[0];
        segment.remove_prefix(1);
        if (c != '%') {
            text += c;
            continue;
        }
        const auto byte = ByteIn(segment);
        if (!byte) return std::nullopt;
        text += *byte;
        segment.remove_prefix(2);
    }
    return text;
}

bool IsUnreserved(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~';
}

}  // namespace

std::optional<std::vector<std::string>> SegmentsOf(std::string_view path) {
    std::vector<std::string> segments;
    if (!path.starts_with('/')) return std::nullopt;
    if (path == "/") return segments;
    while (!path.empty()) {
        path.remove_prefix(1);
        const std::string_view part = path.substr(0, path.find('/'));
        auto segment = SegmentOf(part);
        if (!segment) return std::nullopt;
        segments.push_back(*std::move(segment));
        path.remove_prefix(part.size());
    }
    return segments;
}

std::string AsSegment(std::string_view text) {
    constexpr unsigned base = 16;
    std::string segment;
    for (const char c : text) {
        if (IsUnreserved(c)) {
            segment += c;
        } else {
            const auto code = static_cast<unsigned char>(c);
            segment += {'%', digits[code / base], digits[code % base]};
        }
    }
    return segment;
}

}  // namespace http

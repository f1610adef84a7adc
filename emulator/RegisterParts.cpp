// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "emulator/RegisterParts.h"

#include <cstdio>

namespace emulator {

std::optional<std::int64_t> ReadBcd(View bytes) {
    std::int64_t value = 0;
    for (std::uint8_t byte : bytes) {
        if ((byte >> 4) > 9 || (byte & 15) > 9) return std::nullopt;
        value = (value * 10 + (byte >> 4)) * 10 + (byte & 15);
    }
    return value;
}

void AppendBcd(Bytes& out, std::uint64_t value, std::size_t size) {
    Bytes digits(size);
    for (std::size_t i = size; i-- > 0; value /= 100)
        digits[i] = static_cast<std::uint8_t>((value / 10 % 10) << 4 | value % 10);
    out.insert(out.end(), digits.begin(), digits.end());
}

std::int64_t DivideRounded(std::int64_t value, std::int64_t divisor) {
    const std::int64_t half = divisor / 2;
    return (value < 0 ? value - half : value + half) / divisor;
}

std::string Numbered(const char* what, long long number, int digits) {
    char text[48];
    std::snprintf(text, sizeof text, "%s %0*lld", what, digits, number);
    return text;
}

std::string MoneyText(Money amount) {
    const Money size = amount < 0 ? -amount : amount;
    char text[32];
    std::snprintf(text, sizeof text, "%s%lld.%02lld", amount < 0 ? "-" : "",
                  static_cast<long long>(size / 100), static_cast<long long>(size % 100));
    return text;
}

}  // namespace emulator

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Frames of hexadecimal letters closed by a negated sum in two letters and an end byte.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "emulator/Wire.h"
#include "emulator/WireParts.h"

namespace emulator {

namespace {

constexpr std::uint8_t margayBusy = 27;
constexpr std::uint8_t requestBegin = 0x02;
constexpr std::uint8_t requestEnd = 0x03;
constexpr std::uint8_t dataEnd = 0x0D;
constexpr std::uint8_t fileEnd = 0x1A;

std::optional<unsigned> Digit(std::uint8_t letter, bool lowerToo) {
    if (letter >= '0' && letter <= '9') return letter - '0';
    if (letter >= 'A' && letter <= 'F') return letter - 'A' + 10;
    if (lowerToo && letter >= 'a' && letter <= 'f') return letter - 'a' + 10;
    return std::nullopt;
}

// The byte that two letters name.
std::optional<std::uint8_t> Pair(View letters, bool lowerToo) {
    const auto high = Digit(letters[0], lowerToo);
    const auto low = Digit(letters[1], lowerToo);
    if (!high || !low) return std::nullopt;
    return static_cast<std::uint8_t>(*high << 4 | *low);
}

void AppendPair(Bytes& frame, std::uint8_t byte) {
    constexpr char letters[] = "0123456789ABCDEF";
    frame.push_back(static_cast<std::uint8_t>(letters[byte >> 4]));
    frame.push_back(static_cast<std::uint8_t>(letters[byte & 15]));
}

// In a Margay frame the covered bytes and the byte in the check letters sum up to nothing.
bool GoodMargay(View frame) {
    const std::size_t covered = frame.size() - 3;
    const auto check = Pair(frame.subspan(covered, 2), false);
    return check && static_cast<std::uint8_t>(Sum(frame.first(covered)) + *check) == 0;
}

class MargayWire : public Wire {
  public:
    std::optional<Request> ParseRequest(View burst) const override {
        if (burst.size() != kRequestSize || burst[0] != requestBegin || burst[4] != requestEnd)
            return std::nullopt;
        if (!GoodMargay(burst)) return std::nullopt;
        return Request{Direction::Either, std::nullopt, burst[1]};
    }

    std::optional<Bytes> ParseData(View burst, std::size_t dataSize) const override {
        if (burst.size() != DataFrameSize(dataSize) || burst.back() != dataEnd ||
            !GoodMargay(burst))
            return std::nullopt;
        Bytes data;
        for (std::size_t i = 0; i < dataSize; ++i) {
            const auto byte = Pair(burst.subspan(2 * i, 2), true);
            if (!byte) return std::nullopt;
            data.push_back(*byte);
        }
        return data;
    }

    bool ParseEof(View burst, std::uint8_t total) const override {
        return IsSomeEof(burst) && Pair(burst, false) == total;
    }

    bool IsSomeEof(View burst) const override {
        return burst.size() == 3 && burst[2] == fileEnd && Pair(burst, false);
    }

    std::optional<Answer> ParseAnswer(View burst) const override {
        return burst.size() == 1 ? AnswerOf(burst[0]) : std::nullopt;
    }

    std::uint8_t TotalOf(View dataFrame) const override {
        return Negated(Sum(dataFrame.first(dataFrame.size() - 3)));
    }

    Bytes BuildAnswer(Answer answer) const override { return {CodeOf(answer, margayBusy)}; }

    Bytes BuildData(View data) const override {
        Bytes frame;
        for (std::uint8_t byte : data) AppendPair(frame, byte);
        AppendPair(frame, Negated(Sum(frame)));
        frame.push_back(dataEnd);
        return frame;
    }

    Bytes BuildEof(std::uint8_t total) const override {
        Bytes frame;
        AppendPair(frame, total);
        frame.push_back(fileEnd);
        return frame;
    }

    bool RequestStandsOut() const override { return true; }
    std::size_t DataFrameSize(std::size_t dataSize) const override { return 2 * dataSize + 3; }
};

}  // namespace

std::unique_ptr<Wire> MakeMargayWire() {
    return std::make_unique<MargayWire>();
}

}  // namespace emulator

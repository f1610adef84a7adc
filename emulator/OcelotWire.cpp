// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Binary frames closed by an XOR byte and a byte that brings the sum of the frame to zero.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "emulator/Wire.h"
#include "emulator/WireParts.h"

namespace emulator {

namespace {

constexpr std::uint8_t ocelotBusy = 11;
constexpr std::uint8_t sendRequest = 0xD0;
constexpr std::uint8_t readRequest = 0xD9;
constexpr std::uint8_t answerMark = 0xD9;

std::uint8_t Xor(View bytes) {
    unsigned all = 0;
    for (std::uint8_t byte : bytes) all ^= byte;
    return static_cast<std::uint8_t>(all);
}

// An Ocelot frame is good when its next to last byte is the XOR of those before it and all of its
// bytes sum up to nothing.
bool GoodOcelot(View frame) {
    return frame.size() > 2 && frame[frame.size() - 2] == Xor(frame.first(frame.size() - 2)) &&
           Sum(frame) == 0;
}

Bytes SealOcelot(Bytes frame) {
    frame.push_back(Xor(frame));
    frame.push_back(Negated(Sum(frame)));
    return frame;
}

class OcelotWire : public Wire {
  public:
    std::optional<Request> ParseRequest(View burst) const override {
        if (burst.size() != kRequestSize || !GoodOcelot(burst)) return std::nullopt;
        if (burst[0] == sendRequest) return Request{Direction::Send, burst[1], burst[2]};
        if (burst[0] == readRequest) return Request{Direction::Read, burst[1], burst[2]};
        return std::nullopt;
    }

    std::optional<Bytes> ParseData(View burst, std::size_t dataSize) const override {
        if (burst.size() != dataSize + 2 || !GoodOcelot(burst)) return std::nullopt;
        return Bytes(burst.begin(), burst.end() - 2);
    }

    bool ParseEof(View burst, std::uint8_t) const override { return IsSomeEof(burst); }

    bool IsSomeEof(View burst) const override {
        return burst.size() == 4 && burst[0] == 0xFF && burst[1] == 0xFF && GoodOcelot(burst);
    }

    std::optional<Answer> ParseAnswer(View burst) const override {
        if (burst.size() != 4 || burst[0] != answerMark || !GoodOcelot(burst)) return std::nullopt;
        return AnswerOf(burst[1]);
    }

    std::uint8_t TotalOf(View) const override { return 0; }

    Bytes BuildAnswer(Answer answer) const override {
        return SealOcelot({answerMark, CodeOf(answer, ocelotBusy)});
    }

    Bytes BuildData(View data) const override {
        return SealOcelot(Bytes(data.begin(), data.end()));
    }

    Bytes BuildEof(std::uint8_t) const override { return SealOcelot({0xFF, 0xFF}); }

    bool RequestStandsOut() const override { return false; }
    std::size_t DataFrameSize(std::size_t dataSize) const override { return dataSize + 2; }
};

}  // namespace

std::unique_ptr<Wire> MakeOcelotWire() {
    return std::make_unique<OcelotWire>();
}

}  // namespace emulator

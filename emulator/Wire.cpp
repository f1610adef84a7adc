// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "emulator/Wire.h"

#include <cstdint>
#include <memory>
#include <numeric>
#include <optional>

#include "emulator/WireParts.h"

namespace emulator {

namespace {

constexpr std::uint8_t ack = 6;
constexpr std::uint8_t nak = 21;

}  // namespace

std::uint8_t Sum(View bytes) {
    return static_cast<std::uint8_t>(std::accumulate(bytes.begin(), bytes.end(), 0U));
}

std::optional<Answer> AnswerOf(std::uint8_t code) {
    if (code == ack) return Answer::Ack;
    if (code == nak) return Answer::Nak;
    return std::nullopt;
}

std::uint8_t CodeOf(Answer answer, std::uint8_t busy) {
    if (answer == Answer::Busy) return busy;
    return answer == Answer::Ack ? ack : nak;
}

std::unique_ptr<Wire> MakeWire(WireFamily family) {
    return family == WireFamily::Ocelot ? MakeOcelotWire() : MakeMargayWire();
}

}  // namespace emulator

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// One fault per run: every byte of a sale, in both directions and both families of frames, is
// replaced by each of the 255 others, dropped, doubled, cut off and preceded by another byte, or by
// as many as an Ocelot answer has; and from every byte on the line is dead, or all noise; and in
// the whole run, each value of a byte arrives as another one, so that some frames never come
// through. And from every byte to the driver on, the transmission is late by one frame of the
// driver.
//
//   fault_bytes            a sample (--runs=N, --seed=N)
//   fault_bytes --full     all of them
#include <algorithm>
#include <random>

#include "tests/faults/DriverRun.h"
#include "tests/faults/SaleFaults.h"

namespace {

using namespace faults;
using emulator::WireFamily;

constexpr std::size_t sampleSize = sanitized ? 200 : 4000;

/// What can be mistaken for something: answers of both families, marks, letters, zeros and ones.
constexpr std::uint8_t insertedValues[] = {0x00, 0x02, 0x06, 0x0B, 0x0D, 0x15, 0x1A, 0x1B,
                                           0x30, 0x39, 0x46, 0xD0, 0xD1, 0xD9, 0xFF};

/// 13h makes NAK of ACK and the other way round.
constexpr std::uint8_t lastingNoise[] = {0x01, 0x13, 0x80, 0xFF};

struct Case {
    WireFamily family;
    Fault fault;
    std::size_t times = 1;
};

void AddCasesOfByte(std::vector<Case>& cases, WireFamily family, Direction direction,
                    std::size_t index) {
    const auto add = [&](Kind kind, int value) {
        cases.push_back({family, {direction, kind, static_cast<std::uint8_t>(value), index}});
    };
    for (int bits = 1; bits < 256; ++bits) add(Kind::Flip, bits);
    for (Kind kind : {Kind::Drop, Kind::Duplicate, Kind::Truncate, Kind::Silence}) add(kind, 0);
    for (int bits : lastingNoise) add(Kind::Noise, bits);
    for (int value : insertedValues) add(Kind::Insert, value);
    if (direction == Direction::ToDriver) add(Kind::Late, 0);
}

/// Noise that fills the place of a whole answer.
void AddAnswersOfNoise(std::vector<Case>& cases, std::size_t index) {
    constexpr std::size_t answerSize = 4;
    for (std::uint8_t value : insertedValues) {
        const Fault noise = {Direction::ToDriver, Kind::Insert, value, index};
        cases.push_back({WireFamily::Ocelot, noise, answerSize});
    }
}

void AppendCases(std::vector<Case>& cases, WireFamily family, const HealthyRun& healthy) {
    for (std::size_t i = 0; i < healthy.bytesToRegister; ++i)
        AddCasesOfByte(cases, family, Direction::ToRegister, i);
    for (std::size_t i = 0; i < healthy.bytesToDriver; ++i) {
        AddCasesOfByte(cases, family, Direction::ToDriver, i);
        if (family == WireFamily::Ocelot) AddAnswersOfNoise(cases, i);
    }
    for (Direction direction : {Direction::ToRegister, Direction::ToDriver}) {
        for (int value = 0; value < 256; ++value)
            cases.push_back(
                {family, {direction, Kind::Stuck, static_cast<std::uint8_t>(value), 0}});
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    const Options options = ParseOptions(argc, argv);
    const MeasuredSale ocelot(WireFamily::Ocelot, saleCommands);
    const MeasuredSale margay(WireFamily::Margay, saleCommands);
    std::vector<Case> cases;
    AppendCases(cases, WireFamily::Ocelot, ocelot.Healthy());
    AppendCases(cases, WireFamily::Margay, margay.Healthy());
    const std::size_t all = cases.size();
    if (!options.full) {
        std::mt19937_64 random(options.seed);
        std::shuffle(cases.begin(), cases.end(), random);
        cases.resize(std::min(all, options.runs != 0 ? options.runs : sampleSize));
    }

    const CampaignLimits limits{10, options.full ? 3000u : 280u};
    const Tally tally = RunCampaign(cases.size(), limits, [&](std::size_t i) {
        const Case& c = cases[i];
        const MeasuredSale& sale = c.family == WireFamily::Ocelot ? ocelot : margay;
        return sale.RunWith(std::vector<Fault>(c.times, c.fault));
    });
    return Report("fault_bytes, seed " + std::to_string(options.seed) + ", of " +
                      std::to_string(all) + " faults",
                  tally);
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Two, four and ten faults per run at random places, of random kinds, in both families of frames.
//
//   fault_random           a sample (--runs=N, --seed=N)
//   fault_random --full    many
#include <random>

#include "tests/faults/DriverRun.h"
#include "tests/faults/SaleFaults.h"

namespace {

using namespace faults;
using emulator::WireFamily;

constexpr std::size_t sampleSize = sanitized ? 150 : 3000;
constexpr std::size_t fullSize = 96000;
constexpr std::size_t faultCounts[] = {2, 4, 10};

using Random = std::mt19937_64;

std::size_t Below(Random& random, std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
}

/// Values that mean something are much more dangerous than others.
std::uint8_t AnyValue(Random& random) {
    static constexpr std::uint8_t telling[] = {0x06, 0x15, 0x0B, 0x1B, 0xD9, 0xD0, 0x1A, 0x0D};
    if (Below(random, 2) == 0) return telling[Below(random, std::size(telling))];
    return static_cast<std::uint8_t>(Below(random, 256));
}

/// Retries make a run longer than the healthy one: some of the faults are meant for those.
Fault AnyFault(Random& random, const HealthyRun& healthy) {
    static constexpr Kind kinds[] = {
        Kind::Substitute, Kind::Substitute, Kind::Flip,     Kind::Drop,     Kind::Drop,
        Kind::Duplicate,  Kind::Duplicate,  Kind::Truncate, Kind::Truncate, Kind::Insert,
        Kind::Insert,     Kind::Late,       Kind::Late,     Kind::Stuck,    Kind::Noise};
    const Kind kind = kinds[Below(random, std::size(kinds))];
    const bool toRegister = kind != Kind::Late && Below(random, 2) == 0;
    const Direction direction = toRegister ? Direction::ToRegister : Direction::ToDriver;
    const std::size_t bytes = toRegister ? healthy.bytesToRegister : healthy.bytesToDriver;
    return {direction, kind, AnyValue(random), Below(random, bytes + bytes / 2)};
}

/// Half of the runs have their faults close together, where one hides the other.
std::vector<Fault> AnyFaults(Random& random, const HealthyRun& healthy, std::size_t count) {
    constexpr std::size_t closeness = 40;
    std::vector<Fault> faults = {AnyFault(random, healthy)};
    const bool close = Below(random, 2) == 0;
    while (faults.size() < count) {
        Fault fault = AnyFault(random, healthy);
        if (close && fault.direction == faults[0].direction)
            fault.index = faults[0].index + Below(random, closeness);
        faults.push_back(fault);
    }
    return faults;
}

}  // namespace

int main(int argc, char* argv[]) {
    const Options options = ParseOptions(argc, argv);
    const MeasuredSale ocelot(WireFamily::Ocelot, saleCommands);
    const MeasuredSale margay(WireFamily::Margay, saleCommands);
    const std::size_t wanted = options.full ? fullSize : sampleSize;
    const std::size_t count = options.runs != 0 ? options.runs : wanted;

    const CampaignLimits limits{10, options.full ? 3000u : 280u};
    const Tally tally = RunCampaign(count, limits, [&](std::size_t i) {
        Random random(options.seed * 1'000'003 + i);
        const MeasuredSale& sale = i % 2 == 0 ? ocelot : margay;
        return sale.RunWith(AnyFaults(random, sale.Healthy(), faultCounts[i / 2 % 3]));
    });
    return Report("fault_random, seed " + std::to_string(options.seed), tally);
}

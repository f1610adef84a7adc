// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// One fault of the line in each run of the shipped driver: every byte of a sale, in both directions
// and both families of frames, is dropped, spoilt, doubled, cut off with what follows it, or held
// back beyond the time-out; or the register loses power in front of it and comes back. The verdict
// that its debug log leads to, and that of a status read after it, are judged as well.
//
//   system_line            a sample (--runs=N, --seed=N)
//   system_line --full     all of them
#include <cstdio>
#include <random>

#include "companion/job/Following.h"
#include "tests/faults/SaleFaults.h"
#include "tests/faults/Telling.h"
#include "tests/faults/system/Lanes.h"
#include "tests/faults/system/Promise.h"

namespace {

using namespace faults;
using emulator::WireFamily;
using std::chrono::milliseconds;

constexpr std::size_t sampleSize = sanitized ? 60 : 150;
constexpr unsigned lanes = 16;
constexpr milliseconds stallTime{400};  // more than any time-out of these runs

enum class Trouble { Drop, Spoil, Double, Cut, Stall, PowerBlink, PowerBreak };
constexpr Trouble troubles[] = {Trouble::Drop,      Trouble::Spoil, Trouble::Double,
                                Trouble::Cut,       Trouble::Stall, Trouble::PowerBlink,
                                Trouble::PowerBreak};
constexpr const char* names[] = {"dropped", "spoilt",       "doubled",     "cut off",
                                 "late",    "power blinks", "power breaks"};

struct Case {
    WireFamily family;
    Direction direction;
    std::size_t index;
    Trouble trouble;
    std::uint8_t value;  // Spoil: the byte arrives as this
};

void Prepare(FaultyPort& port, const Case& c) {
    switch (c.trouble) {
        case Trouble::Drop:
            return port.Spoil({c.direction, Kind::Drop, 0, c.index});
        case Trouble::Spoil:
            return port.Spoil({c.direction, Kind::Substitute, c.value, c.index});
        case Trouble::Double:
            return port.Spoil({c.direction, Kind::Duplicate, 0, c.index});
        case Trouble::Cut:
            return port.Spoil({c.direction, Kind::Truncate, 0, c.index});
        case Trouble::Stall:
            return port.Stall(c.direction, c.index, stallTime);
        case Trouble::PowerBlink:  // back before the next frame
            return port.CutPower(c.direction, c.index, milliseconds(1));
        case Trouble::PowerBreak:  // back after one frame or more was lost
            return port.CutPower(c.direction, c.index, milliseconds(350));
    }
}

/// Why a broken promise is excused, from what both ends saw.
std::optional<std::string> Excuse(const Case& c, const FaultyPort& port, const TillRun& told) {
    if (port.RegisterMisled()) return "the register took a spoilt frame";
    if (DriverMisled(c.family, BlocksRead(told.dbgLog), port.FramesOfRegister()))
        return "the driver took a spoilt frame";
    if (c.trouble == Trouble::Stall || port.Overtaken()) return "late";
    return std::nullopt;
}

std::string Describe(const Case& c) {
    return std::string(c.family == WireFamily::Margay ? "Margay" : "Ocelot") + ", byte " +
           std::to_string(c.index) +
           (c.direction == Direction::ToDriver ? " to the driver: " : " to the register: ") +
           names[static_cast<std::size_t>(c.trouble)];
}

// As voltisctl run does it: the status is read after a failure, or anything odd.
std::optional<std::string> WrongVerdict(const Case& c, const TillRun& told, FaultyPort& port,
                                        const Device& device, const Actions& expected) {
    runner::Profile profile;
    profile.protocolFormatting = c.family == WireFamily::Margay ? 1 : 0;
    std::vector<plan::Command> plan;
    for (const Action& action : expected) plan.push_back({action.command, 1, {}});
    const bool refusing = told.exitCode == 1 || told.exitCode == 2;
    verdict::Account account = job::Follow(profile, plan, {}, told.dbgLog,
                                           refusing ? job::End::Refusing : job::End::ByItself);
    if (auto wrong = WrongAbout(account.Conclude(), device.device, expected)) return wrong;
    if (told.exitCode == 0 && !account.Odd()) return std::nullopt;
    job::FollowStatusRead(account, Till(c.family, "GET_STATUS\n").Run(port).dbgLog);
    return WrongAbout(account.Conclude(), device.device, expected);
}

Outcome RunCase(const Case& c, const Actions& expected) {
    Till till(c.family, saleCommands);
    Device device(c.family);
    FaultyPort port(device);
    Prepare(port, c);
    const TillRun told = till.Run(port);
    const Spoken spoken = Listen(c.family, device.device.GetModel(), port.FromDriver());
    auto broken = BrokenPromise(told, device, 0, port, expected);
    if (!broken && told.markerLeft) broken = "the marker was not removed";
    if (!broken && !BrokenLogLine(told.dbgLog + told.stdLog).empty()) broken = "a broken log";
    if (!broken)
        if (const auto wrong = WrongVerdict(c, told, port, device, expected))
            broken = "the verdict is wrong: " + *wrong;
    if (!broken) return WellDone(told, spoken);
    if (const auto excuse = Excuse(c, port, told))
        return Judged(Verdict::Excused, told.exitCode, spoken.frames, *excuse);
    return Judged(Verdict::Violation, told.exitCode, spoken.frames, Describe(c) + ": " + *broken);
}

void AddCases(std::vector<Case>& cases, WireFamily family, Direction direction,
              const emulator::Bytes& bytes, std::mt19937_64& random) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        for (Trouble trouble : troubles) {
            const auto other = static_cast<std::uint8_t>(bytes[i] ^ (1 + random() % 255));
            cases.push_back({family, direction, i, trouble, other});
        }
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    const Options options = ParseOptions(argc, argv);
    std::mt19937_64 random(options.seed);
    std::vector<Case> cases;
    const HealthySales healthy(saleCommands);
    for (WireFamily family : bothFamilies) {
        AddCases(cases, family, Direction::ToRegister, healthy.Of(family).fromDriver, random);
        AddCases(cases, family, Direction::ToDriver, healthy.Of(family).fromRegister, random);
    }
    const std::size_t all = cases.size();
    KeepSome(cases, options.runs != 0 ? options.runs : (options.full ? 0 : sampleSize),
             options.seed);
    const Tally tally = RunInLanes(
        cases.size(), lanes, options.full ? 3000 : 150,
        [&](std::size_t i) { return RunCase(cases[i], healthy.Of(cases[i].family).actions); });
    return Report("system_line, seed " + std::to_string(options.seed) + ", of " +
                      std::to_string(all) + " faults",
                  tally);
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The driver is killed in the middle of a sale, at bytes of the line and at system calls, and
// started again with the same file on the same register.
//
//   system_kill            a sample (--runs=N, --seed=N)
//   system_kill --full     at every byte that goes to the driver, every frame and every call
#include <signal.h>

#include <fstream>
#include <stdexcept>

#include "tests/faults/system/Lanes.h"
#include "tests/faults/system/Promise.h"
#include "tests/faults/system/SystemCalls.h"

namespace {

using namespace faults;
using emulator::WireFamily;

constexpr std::size_t sampleSize = sanitized ? 30 : 120;
constexpr unsigned lanes = 12;
constexpr int killed = 128 + SIGKILL;
constexpr char traceFile[] = "trace";

/// Where a run is killed: at a byte of the line or, when there is one, at a system call.
struct Case {
    WireFamily family;
    Direction direction;
    std::size_t index;
    std::optional<SystemCall> call;
};

/// Notes the driver's process in the till's folder and becomes the driver.
std::vector<std::string> NotingProcess(const Till& till) {
    return {"sh", "-c", "echo $$ > " + till.Beside("pid") + "; exec \"$@\"", "sh"};
}

void KillDriver(const Till& till) {
    pid_t pid = 0;
    std::ifstream(till.Beside("pid")) >> pid;
    if (pid <= 1 || kill(pid, SIGKILL) != 0) throw std::runtime_error("cannot kill the driver");
}

TillRun RunToDeath(Till& till, FaultyPort& port, const Case& c) {
    if (c.call) {
        till.wrapper = Injecting(*c.call, {"signal=KILL", false}, till.Beside(traceFile));
    } else {
        till.wrapper = NotingProcess(till);
        port.At(c.direction, c.index, [&till] { KillDriver(till); });
    }
    const TillRun told = till.Run(port);
    till.wrapper.clear();
    return told;
}

std::optional<std::string> BrokenDeath(const TillRun& told, const Actions& actions,
                                       const Actions& expected) {
    if (!told.inTime) return "was not killed";
    if (told.exitCode != killed) return "ended by itself";
    const std::string line = BrokenLogLine(told.stdLog) + BrokenLogLine(told.dbgLog);
    if (!line.empty()) return "a broken log: " + line;
    if (!IsBeginning(actions, expected)) return "what was done is no beginning of the file";
    return std::nullopt;
}

/// The next run after a receipt was left open does nothing and says so; after anything else it is
/// as if nothing had happened.
std::optional<std::string> BrokenNextRun(const TillRun& told, const Device& device,
                                         std::size_t journalBefore, bool wasOpen,
                                         const FaultyPort& port, const Actions& expected) {
    if (const auto broken = BrokenPromise(told, device, journalBefore, port, expected))
        return "next run: " + *broken;
    if (told.markerLeft) return "next run: the marker was not removed";
    if (!BrokenLogLine(told.stdLog + told.dbgLog).empty()) return "next run: a broken log";
    const std::string code = ResultValue(*told.result, "ErrorCode");
    const bool right = wasOpen ? told.exitCode == 2 && code == "105" : told.exitCode == 0;
    if (!right) return "next run: exit code " + std::to_string(told.exitCode) + ", code " + code;
    if (wasOpen && !ActionsSince(device.device, journalBefore).empty())
        return "next run: went on with the receipt";
    return std::nullopt;
}

std::string Describe(const Case& c) {
    if (c.call) return c.call->name + " no. " + std::to_string(c.call->number);
    return "byte " + std::to_string(c.index) +
           (c.direction == Direction::ToDriver ? " to the driver" : " to the register");
}

Outcome RunCase(const Case& c, const Actions& expected) {
    Till till(c.family);
    Device device(c.family);
    TillRun told;
    {
        FaultyPort port(device);
        told = RunToDeath(till, port, c);
    }
    auto broken = BrokenDeath(told, ActionsSince(device.device, 0), expected);
    const bool wasOpen = device.device.ReceiptInProgress();
    const std::size_t journalBefore = device.device.Journal().size();
    FaultyPort port(device);
    if (!broken) {
        told = till.Run(port);
        broken = BrokenNextRun(told, device, journalBefore, wasOpen, port, expected);
    }
    const Spoken spoken = Listen(c.family, device.device.GetModel(), port.FromDriver());
    if (!broken) return WellDone(told, spoken);
    return Judged(Verdict::Violation, told.exitCode, spoken.frames, Describe(c) + ": " + *broken);
}

// --- the points ------------------------------------------------------------------------------

void AddBytes(std::vector<Case>& cases, WireFamily family, const HealthySale& healthy) {
    for (std::size_t i = 0; i < healthy.fromRegister.size(); ++i)
        cases.push_back({family, Direction::ToDriver, i, {}});
    // The driver hands over whole frames: a few bytes of them are enough.
    for (std::size_t i = 0; i < healthy.fromDriver.size(); i += 4)
        cases.push_back({family, Direction::ToRegister, i, {}});
}

void AddCalls(std::vector<Case>& cases, WireFamily family) {
    Till till(family);
    till.wrapper = RecordingCalls(till.Beside(traceFile));
    RunHealthy(till, family);
    for (const SystemCall& call : RecordedCalls(till.Beside(traceFile), "/voltis.ini")) {
        if (call.name != "exit_group") cases.push_back({family, Direction::ToRegister, 0, call});
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    const Options options = ParseOptions(argc, argv);
    std::vector<Case> cases;
    const HealthySales healthy(Till::shortSale);
    for (WireFamily family : bothFamilies) AddBytes(cases, family, healthy.Of(family));
    AddCalls(cases, WireFamily::Ocelot);
    const std::size_t all = cases.size();
    KeepSome(cases, options.runs != 0 ? options.runs : (options.full ? 0 : sampleSize),
             options.seed);
    const Tally tally = RunInLanes(
        cases.size(), lanes, options.full ? 3000 : 150,
        [&](std::size_t i) { return RunCase(cases[i], healthy.Of(cases[i].family).actions); });
    return Report("system_kill, seed " + std::to_string(options.seed) + ", of " +
                      std::to_string(all) + " points, the runs after the killed ones",
                  tally);
}

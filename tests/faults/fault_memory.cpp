// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Memory runs out: of all allocations of a whole sale run, from the first line of main to the end
// of the process, the n-th fails, once or from then on. Runs itself in a sandbox, where the
// driver's real folders are its own.
//
//   fault_memory           a sample of the n (--runs=N, --seed=N)
//   fault_memory --full    every n
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <random>

#include "companion/workbench/Defaults.h"
#include "tests/faults/DriverRun.h"
#include "tests/faults/SaleFaults.h"
#include "tests/support/InsideSandbox.h"

// The entry's main, renamed in its library.
int VoltisMain(int argc, char* argv[]);

// --- the allocator -------------------------------------------------------------------------------

namespace {

/// In front of every block.
struct alignas(std::max_align_t) Header {
    bool ofDriver;
};

struct {
    bool watching = false;     // the driver is at work
    std::size_t count = 0;     // of its allocations, the failed ones included
    std::size_t failAt = 0;    // this one fails; 0: none
    bool fromThenOn = false;   // and all after it
    std::size_t failures = 0;  // that the driver has met
    long live = 0;             // blocks that it has not freed
} memory;

bool IsOfDriver() {
    return memory.watching && !faults::OutsideDriver::Now();
}

bool FailsNow() {
    ++memory.count;
    if (memory.failAt == 0 || memory.count < memory.failAt) return false;
    return memory.fromThenOn || memory.count == memory.failAt;
}

}  // namespace

void* operator new(std::size_t size) {
    const bool ofDriver = IsOfDriver();
    if (ofDriver && FailsNow()) {
        ++memory.failures;
        throw std::bad_alloc();
    }
    auto* header = static_cast<Header*>(std::malloc(sizeof(Header) + size));
    if (header == nullptr) throw std::bad_alloc();
    header->ofDriver = ofDriver;
    memory.live += ofDriver;
    return header + 1;
}

void operator delete(void* block) noexcept {
    if (block == nullptr) return;
    Header* header = static_cast<Header*>(block) - 1;
    memory.live -= header->ofDriver;
    std::free(header);
}

void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}

// --- one run -------------------------------------------------------------------------------------

namespace {

using namespace faults;
using emulator::WireFamily;

constexpr std::size_t sampleSize = sanitized ? 150 : 3000;  // without sanitizers: all of them
constexpr char configurationFile[] = "/etc/voltis/voltis.ini";

struct Case {
    std::size_t failAt;
    bool fromThenOn;
};

/// What the child that runs knows; the verdict waits here until nothing of the driver is left.
struct {
    const Actions* expected = nullptr;
    std::string resultFile;
    Outcome* outcome = nullptr;
    std::size_t* allocations = nullptr;  // where the healthy run leaves their number
} child;

Outcome Judge(int exitCode) {
    const Told told{exitCode, false, ReadWholeFile(child.resultFile)};
    const int frames = TheLine()->FramesFromDriver();
    Told judged = told;
    // Without memory there may be no result file, but never a wrong one, and none only after an
    // error.
    if (told.result.empty() && exitCode != 0)
        judged.result = "[VOLTIS]\nResultCode=" + std::to_string(exitCode);
    const auto broken = BrokenPromise(judged, *TheLine(), *child.expected);
    if (broken) return Judged(Verdict::Violation, exitCode, frames, broken->what);
    return Judged(exitCode == 0 ? Verdict::Ok : Verdict::Failed, exitCode, frames);
}

// The first to be called when the process ends: the register is still there.
void JudgeAtExit(int exitCode, void*) {
    const OutsideDriver outside;
    memory.watching = false;
    static Outcome outcome;
    outcome = Judge(exitCode);
    child.outcome = &outcome;
}

// The last: all objects of static storage are gone, so what is left over has been lost.
void ConcludeAtExit() {
    if (child.outcome == nullptr) return;
    if (child.allocations != nullptr) *child.allocations = memory.count;
    Outcome outcome = *child.outcome;
    if (memory.live != 0 && !memory.fromThenOn && outcome.verdict != Verdict::Violation) {
        outcome.verdict = Verdict::Violation;
        std::snprintf(outcome.note, sizeof outcome.note, "%ld blocks were never freed",
                      memory.live);
    }
    if (outcome.verdict == Verdict::Violation) {
        const std::string note = outcome.note;
        std::snprintf(outcome.note, sizeof outcome.note, "%s; allocation %zu failed%s",
                      note.c_str(), memory.failAt, memory.fromThenOn ? " and all after it" : "");
    }
    Conclude(outcome);
}

// Registered before anything of static storage exists, so it runs after the end of all of it.
__attribute__((constructor(101))) void RegisterConcludeAtExit() {
    std::atexit(ConcludeAtExit);
}

[[noreturn]] void RunWholeDriver(const Case& memoryCase, WireFamily family, const Actions& expected,
                                 const TempDir& shop) {
    child.expected = &expected;
    child.resultFile = shop.File("result.txt");
    TheLine() = std::make_unique<FaultyLine>(family, DefaultRegister(family), FaultPlan());
    std::filesystem::remove(child.resultFile);
    on_exit(JudgeAtExit, nullptr);

    static std::string program = "voltis";
    static std::string commandFile = shop.File("cmd.txt");
    char* argv[] = {program.data(), commandFile.data(), nullptr};
    memory.failAt = memoryCase.failAt;
    memory.fromThenOn = memoryCase.fromThenOn;
    memory.watching = true;
    VoltisMain(2, argv);
    abort();  // it does not return
}

// --- the campaign --------------------------------------------------------------------------------

void WriteConfiguration(WireFamily family) {
    std::ofstream(configurationFile) << workbench::SettingsFor(family).Text();
}

std::vector<Case> CasesOf(std::size_t allocations, const Options& options) {
    std::vector<Case> cases;
    for (std::size_t n = 1; n <= allocations; ++n) {
        cases.push_back({n, false});
        cases.push_back({n, true});
    }
    if (options.full) return cases;
    std::mt19937_64 random(options.seed);
    std::shuffle(cases.begin(), cases.end(), random);
    cases.resize(std::min(cases.size(), options.runs != 0 ? options.runs : sampleSize));
    return cases;
}

int TestFamily(WireFamily family, const char* name, const Options& options) {
    const RunFolder commands(family, saleCommands);
    const HealthyRun healthy = RunHealthy(commands, family);
    const TempDir folder;
    folder.Write("cmd.txt", saleCommands);
    std::filesystem::current_path(folder.Path());
    WriteConfiguration(family);

    const CampaignLimits oneByOne{30, 1500, 1};  // they share the driver's logs
    SharedCount allocations;
    const Tally first = RunCampaign(1, oneByOne, [&](std::size_t) -> Outcome {
        child.allocations = allocations.Get();
        RunWholeDriver({0, false}, family, healthy.actions, folder);
    });
    if (first.ok != 1) return Report(std::string("fault_memory, ") + name + ", healthy", first);

    const std::vector<Case> cases = CasesOf(*allocations.Get(), options);
    const Tally tally = RunCampaign(cases.size(), oneByOne, [&](std::size_t i) -> Outcome {
        RunWholeDriver(cases[i], family, healthy.actions, folder);
    });
    return Report(std::string("fault_memory, ") + name + ", seed " + std::to_string(options.seed) +
                      ", " + std::to_string(*allocations.Get()) + " allocations",
                  tally);
}

}  // namespace

int main(int argc, char* argv[]) {
    const Options options = ParseOptions(argc, argv);
    GoInsideSandbox(argc, argv);
    const int ocelot = TestFamily(WireFamily::Ocelot, "Ocelot frames", options);
    const int margay = TestFamily(WireFamily::Margay, "Margay frames", options);
    return ocelot + margay == 0 ? 0 : 1;
}

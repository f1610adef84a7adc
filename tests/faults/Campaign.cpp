// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/faults/Campaign.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

// Only a build with coverage counters has it.
extern "C" void __gcov_dump() __attribute__((weak));

namespace faults {

namespace {

constexpr std::size_t keptComplaints = 20;

/// A child and the memory that it shares with its parent.
struct Slot {
    pid_t pid = 0;
    std::size_t run = 0;
    Outcome* outcome = nullptr;
};

Outcome* ownOutcome = nullptr;  // in a child: its place for the verdict

void* Share(std::size_t size) {
    void* shared = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared != MAP_FAILED) return shared;
    perror("mmap");
    exit(EXIT_FAILURE);
}

std::vector<Slot> MakeSlots(unsigned atOnce) {
    const long processors = std::clamp(sysconf(_SC_NPROCESSORS_ONLN), 2L, 16L);
    std::vector<Slot> slots(atOnce != 0 ? atOnce : static_cast<std::size_t>(processors));
    auto* outcomes = static_cast<Outcome*>(Share(slots.size() * sizeof(Outcome)));
    for (std::size_t i = 0; i < slots.size(); ++i) slots[i].outcome = &outcomes[i];
    return slots;
}

void StartRun(Slot& slot, std::size_t index, unsigned seconds,
              const std::function<Outcome(std::size_t)>& run) {
    slot.run = index;
    new (slot.outcome) Outcome;
    slot.pid = fork();
    if (slot.pid < 0) {
        perror("fork");
        exit(EXIT_FAILURE);
    }
    if (slot.pid != 0) return;
    ownOutcome = slot.outcome;
    alarm(seconds);
    Conclude(run(index));
}

void Collect(std::vector<Slot>& slots, Tally& tally) {
    int status = 0;
    const pid_t pid = wait(&status);
    const auto slot =
        std::find_if(slots.begin(), slots.end(), [&](const Slot& s) { return s.pid == pid; });
    if (pid <= 0 || slot == slots.end()) return;
    slot->pid = 0;
    if (WIFSIGNALED(status)) {
        *slot->outcome = Judged(Verdict::Violation, 128 + WTERMSIG(status), 0,
                                std::string("killed: ") + strsignal(WTERMSIG(status)));
    } else if (WEXITSTATUS(status) != 0) {
        *slot->outcome = Judged(Verdict::Violation, WEXITSTATUS(status), 0, "the process failed");
    }
    tally.Add(slot->run, *slot->outcome);
}

template <typename Value>
void AppendCounts(std::string& text, const std::map<Value, std::size_t>& counts,
                  std::string (*name)(const Value&)) {
    const char* separator = " (";
    for (const auto& [value, count] : counts) {
        text += separator + name(value) + ": " + std::to_string(count);
        separator = ", ";
    }
    if (!counts.empty()) text += ")";
}

}  // namespace

Outcome Judged(Verdict verdict, int exitCode, int frames, const std::string& note) {
    Outcome outcome{verdict, exitCode, frames, {}};
    note.copy(outcome.note, sizeof outcome.note - 1);
    return outcome;
}

void Tally::Add(std::size_t run, const Outcome& outcome) {
    ++runs;
    mostFrames = std::max(mostFrames, outcome.frames);
    switch (outcome.verdict) {
        case Verdict::Ok:
            ++ok;
            break;
        case Verdict::Failed:
            ++failedByCode[outcome.exitCode];
            break;
        case Verdict::Excused:
            ++excusedByReason[outcome.note];
            break;
        case Verdict::Violation:
            Complain("run " + std::to_string(run) + " (exit code " +
                     std::to_string(outcome.exitCode) + "): " + outcome.note);
            break;
    }
}

void Tally::Complain(const std::string& text) {
    ++violations;
    if (complaints.size() < keptComplaints) complaints.push_back(text);
}

std::size_t Tally::Failed() const {
    std::size_t sum = 0;
    for (const auto& [code, count] : failedByCode) sum += count;
    return sum;
}

std::string Tally::Text() const {
    std::size_t excused = 0;
    for (const auto& [reason, count] : excusedByReason) excused += count;
    std::string text = std::to_string(runs) + " runs: " + std::to_string(ok) + " ok, " +
                       std::to_string(Failed()) + " failed cleanly";
    AppendCounts<int>(text, failedByCode, [](const int& code) { return std::to_string(code); });
    text += ", " + std::to_string(excused) + " excused";
    AppendCounts<std::string>(text, excusedByReason,
                              [](const std::string& reason) { return reason; });
    return text + ", " + std::to_string(violations) + " violations; at most " +
           std::to_string(mostFrames) + " frames out";
}

SharedCount::SharedCount() : count_(new (Share(sizeof(std::size_t))) std::size_t(0)) {}

SharedCount::~SharedCount() {
    munmap(count_, sizeof *count_);
}

Tally RunCampaign(std::size_t count, const CampaignLimits& limits,
                  const std::function<Outcome(std::size_t)>& run) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::seconds(limits.secondsInAll);
    std::vector<Slot> slots = MakeSlots(limits.atOnce);
    Tally tally;
    std::size_t started = 0;
    fflush(nullptr);  // a child must not write what its parent has yet to write
    while (tally.runs < count) {
        for (Slot& slot : slots) {
            if (slot.pid == 0 && started < count)
                StartRun(slot, started++, limits.secondsPerRun, run);
        }
        Collect(slots, tally);
        if (Clock::now() < deadline) continue;
        tally.Complain("out of time after " + std::to_string(tally.runs) + " of " +
                       std::to_string(count) + " runs");
        break;
    }
    for (const Slot& slot : slots) {
        if (slot.pid != 0) waitpid(slot.pid, nullptr, 0);  // its own alarm ends it
    }
    munmap(slots.front().outcome, slots.size() * sizeof(Outcome));
    return tally;
}

void Conclude(const Outcome& outcome) {
    *ownOutcome = outcome;
    if (__gcov_dump != nullptr) __gcov_dump();
    _exit(0);
}

int Report(const std::string& what, const Tally& tally) {
    printf("%s: %s\n", what.c_str(), tally.Text().c_str());
    for (const std::string& complaint : tally.complaints) printf("  %s\n", complaint.c_str());
    fflush(stdout);
    return tally.violations == 0 ? 0 : 1;
}

Options ParseOptions(int argc, char* argv[]) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--full") {
            options.full = true;
        } else if (argument.starts_with("--seed=")) {
            options.seed = std::strtoull(argument.c_str() + 7, nullptr, 10);
        } else if (argument.starts_with("--runs=")) {
            options.runs = std::strtoull(argument.c_str() + 7, nullptr, 10);
        } else {
            fprintf(stderr, "Usage: %s [--full] [--seed=N] [--runs=N]\n", argv[0]);
            exit(2);
        }
    }
    return options;
}

}  // namespace faults

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Many days of a shop, each from a seed: what the journal says is compared with the tapes after
// every turn, and in the end nothing may be lost, or printed twice, or out of turn.
//
//   queue_histories                  a sample (--histories=N, --seed=N)
//   queue_histories --full           1,000,000, by a process for each processor (--processes=N)
//   queue_histories --seed=N --histories=1   replays one
//   queue_histories --defect=WORD    with no-lock, last-first, no-queue or gives-up: that is broken
//                                    on purpose; succeeds when it is noticed
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/service/Histories.h"
#include "tests/support/Sanitized.h"

namespace {

constexpr std::uint64_t sampleSize = sanitized ? 100 : 500;
constexpr std::uint64_t fullSize = 1'000'000;
constexpr std::uint64_t daysOfADisk = 50;

struct Options {
    std::uint64_t seed = 1;
    std::uint64_t histories = sampleSize;
    unsigned processes = 1;
    Defect defect = Defect::None;
};

std::optional<Defect> DefectOf(const std::string& word) {
    if (word == "no-lock") return Defect::NoLock;
    if (word == "last-first") return Defect::LastFirst;
    if (word == "no-queue") return Defect::NoQueue;
    if (word == "gives-up") return Defect::GivesUp;
    return std::nullopt;
}

bool Take(const std::string& argument, Options& options) {
    const std::string value = argument.substr(argument.find('=') + 1);
    if (argument == "--full") {
        options.histories = fullSize;
        options.processes = std::max(1U, std::thread::hardware_concurrency());
    } else if (argument.starts_with("--processes="))
        options.processes = static_cast<unsigned>(std::stoul(value));
    else if (argument.starts_with("--seed="))
        options.seed = std::stoull(value);
    else if (argument.starts_with("--histories="))
        options.histories = std::stoull(value);
    else if (argument.starts_with("--defect=") && DefectOf(value))
        options.defect = *DefectOf(value);
    else
        return false;
    return true;
}

// 0: all is as expected.
int RunHistories(const Options& options) {
    Counts counts;
    std::unique_ptr<Disk> disk;
    const std::uint64_t end = options.seed + options.histories;
    for (std::uint64_t seed = options.seed; seed < end; ++seed) {
        if (!disk || seed % daysOfADisk == 0) disk = std::make_unique<Disk>(seed);
        History history(*disk, seed, options.defect);
        const std::string blame = history.Run();
        for (const auto& [what, count] : history.Seen()) counts[what] += count;
        if (blame.empty()) continue;
        std::printf("seed %llu: %s\n", static_cast<unsigned long long>(seed), blame.c_str());
        return options.defect == Defect::None ? 1 : 0;
    }
    std::printf("queue_histories: %llu histories from seed %llu",
                static_cast<unsigned long long>(options.histories),
                static_cast<unsigned long long>(options.seed));
    for (const auto& [what, count] : counts) std::printf(", %zu %s", count, what.c_str());
    std::printf(", 0 violations\n");
    return options.defect == Defect::None ? 0 : 1;
}

// Each has its share of the seeds.
int RunInProcesses(Options options) {
    const std::uint64_t share = options.histories / options.processes;
    std::vector<pid_t> children;
    for (unsigned i = 0; i < options.processes; ++i, options.seed += share) {
        options.histories = share;
        const pid_t child = fork();
        if (child == 0) std::exit(RunHistories(options));
        children.push_back(child);
    }
    int failed = 0;
    for (const pid_t child : children) {
        int status = 1;
        if (waitpid(child, &status, 0) != child || status != 0) failed = 1;
    }
    return failed;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        if (!Take(argv[i], options)) return std::fprintf(stderr, "what is %s?\n", argv[i]), 2;
    }
    return options.processes > 1 ? RunInProcesses(options) : RunHistories(options);
}

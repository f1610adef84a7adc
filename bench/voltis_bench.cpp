// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Measures the driver and prints every figure in one table:
//   voltis_bench [--quick] [--only SECTION] [--json FILE] [--plot FOLDER]
// The exit code is 1 when a figure misses its limit. --quick measures too little to judge by time,
// but everything once. The sections: start, line, processor, run, check, trace, reading, parts,
// growth.
//
// It runs itself again in a sandbox with an /etc/voltis, a /var/log/voltis and a /dev/ttyS0 of its
// own, where the driver is measured without anything between.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "bench/Parts.h"
#include "bench/Plot.h"
#include "bench/Replay.h"
#include "bench/Report.h"
#include "bench/Spawn.h"
#include "bench/WholeRuns.h"
#include "companion/runner/Sandbox.h"
#include "companion/runner/TempDir.h"

namespace {

namespace fs = std::filesystem;
using emulator::WireFamily;

constexpr char insideMark[] = "VOLTIS_BENCH_SANDBOX";

struct Options {
    bool quick = false;
    std::string only;  // a section; empty: all of them
    std::string json;
    std::string plotFolder;
};

/// False when they are wrong. Paths become absolute.
bool ParseOptions(const std::vector<std::string>& words, Options& options) {
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i] == "--quick") {
            options.quick = true;
        } else if (words[i] == "--only" && i + 1 < words.size()) {
            options.only = words[++i];
        } else if (words[i] == "--json" && i + 1 < words.size()) {
            options.json = fs::absolute(words[++i]);
        } else if (words[i] == "--plot" && i + 1 < words.size()) {
            options.plotFolder = fs::absolute(words[++i]);
        } else {
            return false;
        }
    }
    return options.only.empty() || options.plotFolder.empty();  // a picture needs all sections
}

CommandLine WordsFor(const Options& options) {
    CommandLine words = {fs::read_symlink("/proc/self/exe")};
    if (options.quick) words.push_back("--quick");
    if (!options.only.empty()) words.insert(words.end(), {"--only", options.only});
    if (!options.json.empty()) words.insert(words.end(), {"--json", options.json});
    if (!options.plotFolder.empty()) words.insert(words.end(), {"--plot", options.plotFolder});
    return words;
}

int RunInside(const Options& options) {
    const runner::TempDir folder;
    for (const char* part : {"config", "logs", "work"}) fs::create_directory(folder.File(part));
    runner::SandboxPlan plan;
    plan.root = runner::Root::Machine;
    plan.config = folder.File("config");
    plan.logs = folder.File("logs");
    plan.workDir = folder.File("work");
    plan.bwrapArguments = {"--setenv", insideMark, "1"};
    return ExitCodeOf(runner::SandboxCommandLine(plan, WordsFor(options)));
}

void AddParts(Report& report, const PartTimes& parts, const Effort& effort) {
    const std::string group = "In process";
    for (const auto& [name, ns] : parts) report.Add({group, name, ns, "ns"});
    const auto of = [&parts](const std::string& name, int size) {
        return parts.at(name + "/" + std::to_string(size));
    };
    const int small = 1000;
    const int large = effort.sizes.back();
    if (!effort.judged) return;
    report.Add({group, "reading, against fgets and strtok",
                of("Read", large) / of("ReadPlain", large), "times", Limit::AtMost, 6});
    report.Add({group, "commands checked in a second", 1e9 / of("Check", large), "", Limit::AtLeast,
                250000});
    for (const char* part : {"Check", "ExecuteOcelot", "ExecuteMargay"}) {
        report.Add({group, part + std::string(", 100000 commands against 1000"),
                    of(part, large) / of(part, small), "times", Limit::AtMost, 1.15});
    }
}

/// What the sections work with, and what they leave for the pictures.
struct Bench {
    Effort effort;
    bool quick;
    Report report = {};
    Pictures pictures = {};
};

constexpr WireFamily bothFamilies[] = {WireFamily::Ocelot, WireFamily::Margay};

struct Section {
    const char* name;
    void (*measure)(Bench& bench);
};

constexpr Section sections[] = {
    {"start", [](Bench& bench) { MeasureStart(bench.report, bench.effort); }},
    {"line",
     [](Bench& bench) {
         for (const WireFamily family : bothFamilies)
             bench.pictures.sales.push_back(MeasureLine(bench.report, bench.effort, family));
     }},
    {"processor",
     [](Bench& bench) {
         for (const WireFamily family : bothFamilies)
             MeasureProcessor(bench.report, bench.effort, family);
     }},
    {"run", [](Bench& bench) { MeasureCompanion(bench.report, bench.effort); }},
    {"check", [](Bench& bench) { MeasureCheck(bench.report, bench.effort); }},
    {"trace", [](Bench& bench) { MeasureTrace(bench.report, bench.effort); }},
    {"reading", [](Bench& bench) { MeasureFreshReading(bench.report, bench.effort); }},
    {"parts",
     [](Bench& bench) {
         bench.pictures.parts = MeasureParts(bench.quick);
         AddParts(bench.report, bench.pictures.parts, bench.effort);
     }},
    {"growth",
     [](Bench& bench) { bench.pictures.runs = MeasureGrowth(bench.report, bench.effort); }},
};

int Measure(const Options& options) {
    Bench bench{options.quick ? QuickEffort() : Effort(), options.quick};
    printf("%s\n", Machine().c_str());
    bool measured = false;
    for (const Section& section : sections) {
        if (!options.only.empty() && options.only != section.name) continue;
        section.measure(bench);
        measured = true;
    }
    if (!measured) throw std::runtime_error("there is no section " + options.only);
    if (!options.json.empty()) bench.report.WriteJson(options.json);
    if (!options.plotFolder.empty()) Draw(bench.pictures, options.plotFolder);
    return bench.report.AllHeld() ? EXIT_SUCCESS : EXIT_FAILURE;
}

int ReplayExchange(const std::string& path, const std::string& device) {
    try {
        Replay(path, device);
        return EXIT_SUCCESS;
    } catch (const std::exception& failure) {
        fprintf(stderr, "voltis_bench: %s\n", failure.what());
        return EXIT_FAILURE;
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.size() == 3 && words[0] == "--read") {
        printf("%f\n", TimeOneReading(words[1] == "driver", words[2].c_str()));
        return EXIT_SUCCESS;
    }
    if (words.size() == 3 && words[0] == "--replay") return ReplayExchange(words[1], words[2]);
    Options options;
    if (!ParseOptions(words, options)) {
        fprintf(stderr,
                "Usage: voltis_bench [--quick] [--only SECTION] [--json FILE] [--plot FOLDER]\n");
        return 2;
    }
    try {
        return getenv(insideMark) == nullptr ? RunInside(options) : Measure(options);
    } catch (const std::exception& failure) {
        fprintf(stderr, "voltis_bench: %s\n", failure.what());
        return EXIT_FAILURE;
    }
}

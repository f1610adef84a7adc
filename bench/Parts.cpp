// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "bench/Parts.h"

#include <benchmark/benchmark.h>
#include <time.h>

#include <cstdlib>
#include <fstream>
#include <vector>

#include "Decimal.h"
#include "FiscalCommandFile.h"
#include "IniFile.h"
#include "Linux/ComPort.h"
#include "LogFile.h"
#include "ProtocolFormatting.h"
#include "bench/CommandFiles.h"
#include "bench/InProcess.h"

namespace {

using benchmark::State;
using emulator::WireFamily;

constexpr char aSale[] = "SALE: DEPTNR=1; PRICE=12.34; QNTY=1";

/// The file of that many commands, written once.
std::string FileOf(std::int64_t commands) {
    const std::string name = "receipt-" + std::to_string(commands) + ".txt";
    if (!std::ifstream(name)) std::ofstream(name) << Receipt(static_cast<int>(commands));
    return name;
}

void CountCommands(State& state) {
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void Read(State& state) {
    const std::string name = FileOf(state.range(0));
    for (auto _ : state) benchmark::DoNotOptimize(FiscalCommandFile(name).GetCommandCount());
    CountCommands(state);
}

void ReadPlain(State& state) {
    const std::string name = FileOf(state.range(0));
    for (auto _ : state) benchmark::DoNotOptimize(ReadPlainly(name.c_str()));
    CountCommands(state);
}

void Check(State& state) {
    FiscalCommandFile file(FileOf(state.range(0)));
    ConnectInProcess(WireFamily::Ocelot);
    for (auto _ : state) CheckPass(file);
    DisconnectInProcess();
    CountCommands(state);
}

void Execute(State& state, WireFamily family) {
    FiscalCommandFile file(FileOf(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();  // a register with a new roll of paper
        ConnectInProcess(family);
        state.ResumeTiming();
        ExecutePass(file);
        state.PauseTiming();
        DisconnectInProcess();
        state.ResumeTiming();
    }
    CountCommands(state);
}

void ParseOne(State& state) {
    const std::string line = aSale;
    for (auto _ : state) benchmark::DoNotOptimize(FiscalCommand(line));
}

void PackMoney(State& state) {
    const std::string text = "12345.67";
    for (auto _ : state) {
        Decimal amount(text);
        amount.ShiftDecDotR(2);
        benchmark::DoNotOptimize(Dec2BCD(amount, 4));
    }
}

void DataFrame(State& state, ProtocolFormatting family) {
    SelectFormatting(family, false);
    const BUF payload(std::string(28, 'x'));
    for (auto _ : state) benchmark::DoNotOptimize(BuildDataFrame(payload));
}

void LogLine(State& state) {
    LogFile log("lines.log");
    log.StartFragment();
    for (auto _ : state) log.AddMessage("PC->ECR   5 bytes in    0.0 ms : d0 01 b3 62 1a", true);
    log.EndFragment(false);
}

void Lookup(State& state) {
    std::ofstream("lookup.ini") << "[VOLTIS]\nComNumber=1\nResultFileName=result.txt\n"
                                   "StandardLog=1\nDbgErrorLog=1\nCodePage=RIM\n";
    IniFile::SetFile("lookup.ini", false);
    IniFile::SetSection("VOLTIS", false);
    for (auto _ : state) benchmark::DoNotOptimize(IniFile::GetNumber("DbgErrorLog", 0));
}

/// Keeps the medians.
class Medians : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.aggregate_name != "median") continue;
            // Of the runs with items, the counter holds commands per second of processor time.
            const auto items = run.counters.find("items_per_second");
            times_[run.run_name.str()] =
                items != run.counters.end() ? 1e9 / items->second.value : run.GetAdjustedCPUTime();
        }
    }
    const PartTimes& Times() const { return times_; }

  private:
    PartTimes times_;
};

void RegisterParts(bool quick) {
    const std::vector<std::int64_t> sizes =
        quick ? std::vector<std::int64_t>{10, 1000}
              : std::vector<std::int64_t>{10, 100, 1000, 10000, 100000};
    const auto bySize = [&sizes](const char* name, auto part) {
        auto* registered = benchmark::RegisterBenchmark(name, part);
        for (std::int64_t size : sizes) registered->Arg(size);
    };
    bySize("Read", Read);
    bySize("ReadPlain", ReadPlain);
    bySize("Check", Check);
    bySize("ExecuteOcelot", [](State& state) { Execute(state, WireFamily::Ocelot); });
    bySize("ExecuteMargay", [](State& state) { Execute(state, WireFamily::Margay); });
    benchmark::RegisterBenchmark("ParseOne", ParseOne);
    benchmark::RegisterBenchmark("PackMoney", PackMoney);
    benchmark::RegisterBenchmark("DataFrameOcelot",
                                 [](State& state) { DataFrame(state, ProtocolFormatting_Ocelot); });
    benchmark::RegisterBenchmark("DataFrameMargay",
                                 [](State& state) { DataFrame(state, ProtocolFormatting_Margay); });
    benchmark::RegisterBenchmark("LogLine", LogLine);
    benchmark::RegisterBenchmark("Lookup", Lookup);
}

double ProcessorUs() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

}  // namespace

PartTimes MeasureParts(bool quick) {
    std::vector<std::string> words = {
        "parts", "--benchmark_repetitions=11", "--benchmark_report_aggregates_only=true",
        "--benchmark_enable_random_interleaving=true",
        quick ? "--benchmark_min_time=0.001" : "--benchmark_min_time=0.1"};
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    int argc = static_cast<int>(argv.size());
    benchmark::Initialize(&argc, argv.data());
    RegisterParts(quick);
    Medians medians;
    benchmark::RunSpecifiedBenchmarks(&medians);
    return medians.Times();
}

double TimeOneReading(bool byDriver, const char* fileName) {
    const double begin = ProcessorUs();
    if (!byDriver) {
        if (ReadPlainly(fileName) == 0) exit(EXIT_FAILURE);
        return ProcessorUs() - begin;
    }
    const FiscalCommandFile file(fileName);
    return ProcessorUs() - begin;
}

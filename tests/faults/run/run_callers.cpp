// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Several callers of `voltisctl run` at once: two of one job, and twenty on three registers.
//
//   run_callers            a sample (--runs=N pairs, --seed=N)
//   run_callers --full     200 pairs, and the twenty callers ten times
#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <random>
#include <string>
#include <thread>

#include "tests/faults/run/Caller.h"
#include "tests/faults/run/RunSite.h"
#include "tests/faults/run/Truth.h"
#include "tests/faults/system/Lanes.h"

namespace {

using namespace faults;
using emulator::WireFamily;

constexpr std::size_t pairs = 200;
constexpr std::size_t pairsOfSample = 10;
constexpr unsigned lanes = 6;
constexpr std::size_t crowds = 10;
constexpr std::size_t crowdsOfSample = 1;
constexpr std::size_t callersOfCrowd = 20;
constexpr std::size_t registers = 3;
constexpr int pairWaits = 20;
constexpr int crowdWaits = 60;
constexpr unsigned longest = 600;

// --- two callers of one job ----------------------------------------------------------------------

std::optional<std::string> WrongOfPair(RunSite& site, const Call& call, const Actions& expected) {
    const Actions done = site.Done();
    if (done != expected) return "the job was not done once";
    if (const auto untruth = Untruth(call, {done.size(), expected.size(), site.Row("job")}))
        return untruth;
    return call.exitCode == 0 ? site.Complaints() : "not told that it was printed";
}

Outcome RunPair(std::uint64_t seed, const Actions& expected) {
    // From together to one run's length apart.
    std::mt19937_64 random(seed);
    const auto apart = std::chrono::milliseconds(random() % 4 == 0 ? 0 : random() % 200);
    RunSite site(WireFamily::Ocelot);
    site.Serve();
    const runner::CommandLine line = site.RunLine("job", saleOfThree, "default", pairWaits);
    Caller first(line, site.ResultFile("job"));
    std::this_thread::sleep_for(apart);
    Caller second(line, site.ResultFile("job"));
    const Call calls[] = {first.Wait(), second.Wait()};
    for (const Call& call : calls) {
        if (const auto wrong = WrongOfPair(site, call, expected))
            return Judged(Verdict::Violation, call.exitCode, 0, *wrong + "\n" + call.output);
    }
    const bool oneIsReplayed = calls[0].told->replayed != calls[1].told->replayed;
    return Judged(oneIsReplayed ? Verdict::Ok : Verdict::Violation, 0, 0, "both or none replayed");
}

// --- many callers on several registers -----------------------------------------------------------

std::string JobName(std::size_t number) {
    return "job" + std::to_string(100 + number);  // of one length
}

std::string RegisterName(std::size_t number) {
    return "r" + std::to_string(number % registers + 1);
}

std::string SaleOf(const std::string& job) {
    return "SALE: DEPTNR=1; NAME=" + job + "; PRICE=2.50; QNTY=2\nTENDER: AMOUNT=5.00\n";
}

std::size_t SalesOf(const Actions& done, const std::string& job) {
    return static_cast<std::size_t>(std::ranges::count_if(done, [&](const Action& action) {
        return !std::ranges::search(action.payload, job).empty();
    }));
}

std::optional<std::string> WrongOfCaller(RunSite& site, std::size_t number, const Call& call) {
    constexpr std::size_t commands = 2;
    const std::size_t sales = SalesOf(site.Done(number % registers), JobName(number));
    if (sales != 1) return "done " + std::to_string(sales) + " times";
    const Truth truth = {commands, commands, site.Row(JobName(number))};
    if (const auto untruth = Untruth(call, truth)) return untruth;
    if (call.exitCode != 0) return "not told that it was printed";
    if (call.seconds > crowdWaits) return "told after " + std::to_string(call.seconds) + " s";
    if (truth.row->state != journal::State::Done) return "not done in the journal";
    return std::nullopt;
}

Outcome RunCrowd(std::atomic<long>& longestMs) {
    constexpr std::size_t commands = 2;
    RunSite site(WireFamily::Ocelot, registers);
    site.Serve();
    std::deque<Caller> callers;
    for (std::size_t i = 0; i < callersOfCrowd; ++i)
        callers.emplace_back(
            site.RunLine(JobName(i), SaleOf(JobName(i)), RegisterName(i), crowdWaits),
            site.ResultFile(JobName(i)));
    for (std::size_t i = 0; i < callersOfCrowd; ++i) {
        const Call call = callers[i].Wait();
        longestMs = std::max(longestMs.load(), static_cast<long>(call.seconds * 1000));
        if (const auto wrong = WrongOfCaller(site, i, call))
            return Judged(Verdict::Violation, call.exitCode, 0,
                          JobName(i) + ": " + *wrong + "\n" + call.output);
    }
    std::size_t done = 0;
    for (std::size_t i = 0; i < registers; ++i) done += site.Done(i).size();
    if (done != callersOfCrowd * commands) return Judged(Verdict::Violation, 0, 0, "more was done");
    if (const auto complaint = site.Complaints())
        return Judged(Verdict::Violation, 0, 0, *complaint);
    return Judged(Verdict::Ok, 0, 0);
}

Actions Healthy() {
    RunSite site(WireFamily::Ocelot);
    site.Serve();
    Caller(site.RunLine("job", saleOfThree, "default", 0), site.ResultFile("job")).Wait();
    return site.Done();
}

}  // namespace

int main(int argc, char* argv[]) {
    const Options options = ParseOptions(argc, argv);
    const Actions expected = Healthy();
    const std::size_t wanted = options.full ? pairs : pairsOfSample;
    const Tally two =
        RunInLanes(options.runs != 0 ? options.runs : wanted, lanes, longest,
                   [&](std::size_t i) { return RunPair(options.seed + i, expected); });
    std::atomic<long> longestMs = 0;
    const Tally twenty = RunInLanes(options.full ? crowds : crowdsOfSample, 1, longest,
                                    [&](std::size_t) { return RunCrowd(longestMs); });
    const std::string name = "run_callers, seed " + std::to_string(options.seed);
    const int pairsFailed = Report(name + ", two callers of one job", two);
    const int crowdsFailed = Report(name + ", 20 callers on 3 registers, the last told after " +
                                        std::to_string(longestMs) + " ms",
                                    twenty);
    return pairsFailed + crowdsFailed == 0 ? 0 : 1;
}

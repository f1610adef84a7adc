// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl run` of one job, during which it is killed, the driver is killed, or a system call
// fails; then the same job again, twice. The register must have done a beginning of it, once, and
// everything that was told must be true.
//
//   run_faults            a sample (--runs=N, --seed=N)
//   run_faults --full     at every system call and at every chunk of bytes on the line
#include <array>
#include <atomic>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/faults/run/Caller.h"
#include "tests/faults/run/RunSite.h"
#include "tests/faults/run/Truth.h"
#include "tests/faults/system/Lanes.h"
#include "tests/faults/system/SystemCalls.h"

namespace {

using namespace faults;
using emulator::WireFamily;

constexpr std::size_t sampleSize = 60;
constexpr unsigned lanes = 12;
constexpr unsigned secondsOfFull = 3000;
constexpr unsigned secondsOfSample = 150;
constexpr int waitSeconds = 20;
constexpr char job[] = "job";
constexpr char traceFile[] = "trace";
constexpr std::size_t never = static_cast<std::size_t>(-1);

/// A kill a little after a chunk went over the line.
struct Strike {
    std::size_t chunk = never;
    Victim victim = Victim::Both;
    std::chrono::milliseconds delay{0};
};

/// What happens to one call.
struct Trouble {
    Strike strike;
    std::optional<SystemCall> call;  // of `run` itself, and what happens in its place
    Injection injection;
};

/// One job, its first calls in trouble.
struct Case {
    WireFamily family;
    std::vector<Trouble> troubles;
};

/// What the second call and the first one told, over all cases.
class Counts {
  public:
    void Add(const std::string& what, const Call& call) {
        const std::lock_guard lock(mutex_);
        ++counts_[what + " " + (call.told ? call.told->verdict : "nothing")];
    }
    void AddMissed() {
        const std::lock_guard lock(mutex_);
        ++counts_["in no trouble"];
    }
    std::string Text() const {
        std::string text;
        for (const auto& [what, count] : counts_)
            text += (text.empty() ? "" : ", ") + what + " " + std::to_string(count);
        return text;
    }

  private:
    std::mutex mutex_;
    std::map<std::string, std::size_t> counts_;
};

// --- one call ------------------------------------------------------------------------------------

/// A site and the calls of the one job there.
class Sale {
  public:
    explicit Sale(WireFamily family) : site_(family) {
        site_.OnChunk([this] { NextChunk(); });
        site_.Serve();
    }

    Call Run(const Trouble& trouble = {}) {
        runner::CommandLine line = site_.RunLine(job, saleOfThree, "default", waitSeconds);
        if (trouble.call)
            Prepend(line, Injecting(*trouble.call, trouble.injection, Trace(), Processes::First));
        return Run(line, trouble.strike);
    }
    /// The system calls of a run without trouble.
    std::vector<SystemCall> Record() {
        runner::CommandLine line = site_.RunLine(job, saleOfThree, "default", waitSeconds);
        Prepend(line, RecordingCalls(Trace(), Processes::First));
        Run(line, {});
        std::vector<SystemCall> calls = RecordedCalls(Trace(), "/voltis.ini");
        std::erase_if(calls, [](const SystemCall& call) { return call.name == "exit_group"; });
        return calls;
    }

    std::size_t Chunks() const { return chunks_; }
    /// The last call's trouble took place.
    bool Struck() const { return struck_ || !InjectedCalls(Trace()).empty(); }
    RunSite& Site() { return site_; }

  private:
    static void Prepend(runner::CommandLine& line, const runner::CommandLine& wrapper) {
        line.insert(line.begin(), wrapper.begin(), wrapper.end());
    }
    std::string Trace() const { return site_.File(traceFile); }

    Call Run(const runner::CommandLine& line, const Strike& strike) {
        chunks_ = 0;
        struck_ = false;
        Caller caller(line, site_.ResultFile(job));
        {
            const std::lock_guard lock(mutex_);
            strike_ = strike;
            caller_ = &caller;
        }
        const Call call = caller.Wait();
        std::thread late;
        {
            const std::lock_guard lock(mutex_);
            caller_ = nullptr;
            late.swap(late_);
        }
        if (late.joinable()) late.join();
        return call;
    }

    // On the register's thread.
    void NextChunk() {
        const std::size_t chunk = chunks_++;
        const std::lock_guard lock(mutex_);
        if (caller_ == nullptr || chunk != strike_.chunk) return;
        if (strike_.delay.count() == 0) {
            struck_ = caller_->Kill(strike_.victim);
            return;
        }
        late_ = std::thread([this, strike = strike_, caller = caller_] {
            std::this_thread::sleep_for(strike.delay);
            struck_ = caller->Kill(strike.victim);
        });
    }

    std::atomic<std::size_t> chunks_ = 0;  // of the last call
    std::atomic<bool> struck_ = false;
    std::mutex mutex_;  // of the next three
    Strike strike_;
    Caller* caller_ = nullptr;
    std::thread late_;
    RunSite site_;  // its registers call back
};

// --- one case ------------------------------------------------------------------------------------

std::string Words(Victim victim) {
    return victim == Victim::Run ? "run" : victim == Victim::Driver ? "driver" : "both";
}

std::string Describe(const Trouble& trouble) {
    if (trouble.call)
        return trouble.call->name + " no. " + std::to_string(trouble.call->number) + " " +
               trouble.injection.what + (trouble.injection.forEver ? " for ever" : "");
    return Words(trouble.strike.victim) + " killed at chunk " +
           std::to_string(trouble.strike.chunk) + " + " +
           std::to_string(trouble.strike.delay.count()) + " ms";
}

std::string Describe(const Case& c) {
    std::string text = c.family == WireFamily::Ocelot ? "ocelot" : "margay";
    for (const Trouble& trouble : c.troubles) text += ", " + Describe(trouble);
    return text;
}

std::optional<std::string> Wrong(Sale& sale, const Call& call, const Actions& expected) {
    const Actions done = sale.Site().Done();
    if (!IsBeginning(done, expected)) return "what was done is no beginning of the file";
    if (const auto untruth = Untruth(call, {done.size(), expected.size(), sale.Site().Row(job)}))
        return *untruth + "\n" + call.output;
    return sale.Site().Complaints();
}

/// The job again, and once more to see that the answer stays. Not printed means: try again.
Outcome RunAgain(Sale& sale, const Case& c, const Actions& expected, Counts& counts) {
    Call again = sale.Run();
    counts.Add("then", again);
    auto wrong = Wrong(sale, again, expected);
    std::string refused;
    if (!wrong && again.told && again.told->verdict == journal::notPrinted) {
        refused = again.told->message;
        again = sale.Run();
        wrong = Wrong(sale, again, expected);
    }
    const Call replay = sale.Run();
    if (!wrong) wrong = Contradiction(again, replay);
    if (!wrong) wrong = Wrong(sale, replay, expected);
    if (wrong)
        return Judged(Verdict::Violation, again.exitCode, 0, Describe(c) + ", then: " + *wrong);
    if (!refused.empty())
        return Judged(Verdict::Excused, 2, 0, "by a third call: " + refused.substr(0, 60));
    return Judged(again.exitCode == 0 ? Verdict::Ok : Verdict::Failed, again.exitCode, 0);
}

Outcome RunCase(const Case& c, const Actions& expected, Counts& counts) {
    Sale sale(c.family);
    bool struck = false;
    for (const Trouble& trouble : c.troubles) {
        const Call call = sale.Run(trouble);
        struck = struck || sale.Struck();
        counts.Add("first", call);
        if (const auto wrong = Wrong(sale, call, expected))
            return Judged(Verdict::Violation, call.exitCode, 0, Describe(c) + ": " + *wrong);
    }
    if (!struck) counts.AddMissed();
    return RunAgain(sale, c, expected, counts);
}

// --- the points ----------------------------------------------------------------------------------

struct Healthy {
    Actions actions;
    std::size_t chunks = 0;
};

Healthy RunHealthy(WireFamily family) {
    Sale sale(family);
    const Call call = sale.Run();
    const Healthy healthy = {sale.Site().Done(), sale.Chunks()};
    constexpr std::size_t commands = 4;
    if (call.exitCode != 0 || healthy.actions.size() != commands)
        throw std::runtime_error("the run without trouble: " + call.output);
    return healthy;
}

/// Kills of everybody, at the chunks of a whole call.
void AddChunks(std::vector<Case>& cases, WireFamily family, std::size_t chunks) {
    constexpr int delays = 4;
    for (const Victim victim : {Victim::Run, Victim::Driver, Victim::Both}) {
        for (std::size_t chunk = 0; chunk < chunks; ++chunk) {
            for (int ms = 0; ms < delays; ++ms) {
                const Strike strike = {chunk, victim, std::chrono::milliseconds(ms)};
                cases.push_back({family, {{strike, {}, {}}}});
            }
        }
    }
}

/// A kill at each of the calls, after other trouble.
void AddKills(std::vector<Case>& cases, const std::vector<Trouble>& before,
              const std::vector<SystemCall>& calls) {
    for (const SystemCall& call : calls) {
        std::vector<Trouble> troubles = before;
        troubles.push_back({{}, call, {"signal=KILL", false}});
        cases.push_back({WireFamily::Ocelot, troubles});
    }
}

bool Writes(const SystemCall& call) {
    static const std::vector<std::string> names = {
        "write",  "pwrite64", "writev", "fsync", "fdatasync", "ftruncate", "fallocate",
        "rename", "mkdir",    "unlink", "rmdir", "unlinkat",  "fchmod",    "flock"};
    if (call.name == "openat") return call.text.find("O_CREAT") != std::string::npos;
    return std::ranges::find(names, call.name) != names.end();
}

void AddFailures(std::vector<Case>& cases, const std::vector<Trouble>& before,
                 const std::vector<SystemCall>& calls) {
    for (const SystemCall& call : calls) {
        if (!Writes(call)) continue;
        for (const char* error : {"error=ENOSPC", "error=EIO", "error=EROFS"}) {
            for (const bool forEver : {false, true}) {
                std::vector<Trouble> troubles = before;
                troubles.push_back({{}, call, {error, forEver}});
                cases.push_back({WireFamily::Ocelot, troubles});
            }
        }
    }
}

std::vector<SystemCall> CallsAfter(const std::vector<Trouble>& before) {
    Sale sale(WireFamily::Ocelot);
    for (const Trouble& trouble : before) sale.Run(trouble);
    return sale.Record();
}

}  // namespace

int main(int argc, char* argv[]) {
    const Options options = ParseOptions(argc, argv);
    const std::array<Healthy, 2> healthy = {RunHealthy(WireFamily::Ocelot),
                                            RunHealthy(WireFamily::Margay)};
    const auto of = [&](WireFamily family) { return healthy.at(static_cast<std::size_t>(family)); };
    std::vector<Case> cases;
    for (const WireFamily family : {WireFamily::Ocelot, WireFamily::Margay})
        AddChunks(cases, family, of(family).chunks);
    // The second call, too, when everything was killed before the first command, and in the middle.
    const std::size_t chunks = of(WireFamily::Ocelot).chunks;
    for (const auto& before : {std::vector<Trouble>{},
                               {{{chunks / 4, Victim::Both, {}}, {}, {}}},
                               {{{chunks / 2, Victim::Both, {}}, {}, {}}}}) {
        const std::vector<SystemCall> calls = CallsAfter(before);
        AddKills(cases, before, calls);
        AddFailures(cases, before, calls);
    }
    const std::size_t all = cases.size();
    KeepSome(cases, options.runs != 0 ? options.runs : (options.full ? 0 : sampleSize),
             options.seed);
    Counts counts;
    const Tally tally = RunInLanes(
        cases.size(), lanes, options.full ? secondsOfFull : secondsOfSample,
        [&](std::size_t i) { return RunCase(cases[i], of(cases[i].family).actions, counts); });
    return Report("run_faults, seed " + std::to_string(options.seed) + ", of " +
                      std::to_string(all) + " points; " + counts.Text(),
                  tally);
}

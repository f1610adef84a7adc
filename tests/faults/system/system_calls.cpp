// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// One system call of a sale fails in each run of the shipped driver, once or from then on, with
// each error that it may have, or does less than it was asked for.
//
//   system_calls            a sample with every kind of call in it (--runs=N, --seed=N)
//   system_calls --full     all of them
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <set>
#include <stdexcept>

#include "tests/faults/system/Lanes.h"
#include "tests/faults/system/Promise.h"
#include "tests/faults/system/SystemCalls.h"

namespace {

using namespace faults;
constexpr auto family = emulator::WireFamily::Ocelot;

constexpr std::size_t sampleSize = 200;
constexpr unsigned lanes = 12;
constexpr char portDevice[] = "/dev/ttyS0";
constexpr char traceFile[] = "trace";

struct Error {
    const char* name;
    int number;
};

const std::map<std::string, std::vector<Error>> errorsOf = {
    {"openat", {{"EACCES", EACCES}, {"EMFILE", EMFILE}, {"EINTR", EINTR}, {"EIO", EIO}}},
    {"read", {{"EIO", EIO}, {"EINTR", EINTR}, {"EAGAIN", EAGAIN}}},
    {"write", {{"EIO", EIO}, {"ENOSPC", ENOSPC}, {"EINTR", EINTR}, {"EAGAIN", EAGAIN}}},
    {"ioctl", {{"EIO", EIO}, {"EINTR", EINTR}, {"ENOTTY", ENOTTY}}},
    {"fcntl", {{"EINVAL", EINVAL}, {"EBADF", EBADF}}},
    {"close", {{"EIO", EIO}, {"EINTR", EINTR}}},
    {"newfstatat", {{"EIO", EIO}, {"ENOMEM", ENOMEM}}},
    {"lseek", {{"EINVAL", EINVAL}, {"EIO", EIO}}},
    {"unlink", {{"EROFS", EROFS}, {"EACCES", EACCES}}},
    {"ftruncate", {{"EIO", EIO}, {"EROFS", EROFS}}},
    {"clock_nanosleep", {{"EINTR", EINTR}, {"EINVAL", EINVAL}}},
    {"brk", {{"ENOMEM", ENOMEM}}},
    {"mmap", {{"ENOMEM", ENOMEM}}},
};

/// How the logs are kept decides which calls there are.
enum class Logs { Kept, CutBack };

struct Case {
    Logs logs;
    std::size_t call;  // of the record
    Injection injection;
    int error;  // 0: none, it only did less
};

struct Plan {
    HealthySale healthy;
    std::vector<SystemCall> records[2];
    std::size_t firstStatusRead = 0;  // of the run with its logs kept: the calls up to its end
    std::vector<Case> cases;

    const std::vector<SystemCall>& RecordOf(const Case& c) const {
        return records[static_cast<std::size_t>(c.logs)];
    }
    const SystemCall& CallOf(const Case& c) const { return RecordOf(c)[c.call]; }
};

void Configure(Till& till, Logs logs) {
    if (logs == Logs::CutBack) till.Ini("StandardLog", "0").Ini("DbgErrorLog", "1");
}

// --- the plan --------------------------------------------------------------------------------

bool Has(const SystemCall& call, const char* text) {
    return call.text.find(text) != std::string::npos;
}

/// Before and after setting them, the C library looks at the settings and ignores it when it
/// cannot. Of several looks in a row only the first may be the driver's own, and none is where it
/// opens the port.
void MarkLibraryChecks(std::vector<SystemCall>& calls) {
    const auto isSetting = [](const SystemCall& c) { return Has(c, "TCGETS") || Has(c, "TCSETS"); };
    for (auto begin = calls.begin(); begin != calls.end();) {
        const auto end = std::find_if_not(begin, calls.end(), isSetting);
        const bool opens =
            std::any_of(begin, end, [](const SystemCall& c) { return Has(c, "TCSETSF"); });
        for (auto call = begin; call != end; ++call) {
            const bool checks = Has(*call, "TCGETS") && (opens || call != begin);
            if (checks) call->text = "a check of the C library";
        }
        begin = std::find_if(end, calls.end(), isSetting);
    }
}

void RecordRun(Plan& plan, Logs logs) {
    Till till(family);
    Configure(till, logs);
    till.wrapper = RecordingCalls(till.Beside(traceFile));
    plan.healthy = RunHealthy(till, family);
    plan.records[static_cast<std::size_t>(logs)] =
        RecordedCalls(till.Beside(traceFile), "/voltis.ini");
    MarkLibraryChecks(plan.records[static_cast<std::size_t>(logs)]);
}

/// The driver ignores what goes wrong while it looks whether there is a register at all.
void FindFirstStatusRead(Plan& plan) {
    const auto& calls = plan.records[static_cast<std::size_t>(Logs::Kept)];
    const auto end = std::ranges::find_if(calls, [](const SystemCall& call) {
        return Has(call, "  ---------------------------------------");
    });
    if (end == calls.end()) throw std::runtime_error("no status read in the record");
    plan.firstStatusRead = static_cast<std::size_t>(end - calls.begin());
}

void AddErrors(Plan& plan, Logs logs, std::size_t index) {
    const SystemCall& call = plan.records[static_cast<std::size_t>(logs)][index];
    const auto errors = errorsOf.find(call.name);
    if (errors == errorsOf.end()) return;
    for (const Error& error : errors->second) {
        for (bool forEver : {false, true}) {
            const std::string what = std::string("error=") + error.name;
            plan.cases.push_back({logs, index, {what, forEver}, error.number});
        }
    }
}

/// Nothing goes out though a part is said to have gone, and nothing comes in.
void AddShortfalls(Plan& plan, std::size_t index) {
    const SystemCall& call = plan.records[0][index];
    if (call.target != portDevice) return;
    std::vector<const char*> shortfalls;
    if (call.name == "write") shortfalls = {"retval=0", "retval=1", "retval=3"};
    if (call.name == "read") shortfalls = {"retval=0"};
    for (const char* what : shortfalls) plan.cases.push_back({Logs::Kept, index, {what, false}, 0});
}

Plan MakePlan() {
    Plan plan;
    RecordRun(plan, Logs::CutBack);
    RecordRun(plan, Logs::Kept);
    FindFirstStatusRead(plan);
    for (std::size_t i = 0; i < plan.records[0].size(); ++i) {
        AddErrors(plan, Logs::Kept, i);
        AddShortfalls(plan, i);
    }
    const auto& cutBack = plan.records[static_cast<std::size_t>(Logs::CutBack)];
    for (std::size_t i = 0; i < cutBack.size(); ++i) {
        const std::string& name = cutBack[i].name;
        if (name == "ftruncate" || name == "unlink" || name == "lseek")
            AddErrors(plan, Logs::CutBack, i);
    }
    return plan;
}

/// A sample has something of every kind of call on every kind of file.
void KeepSample(Plan& plan, std::size_t wanted, std::uint64_t seed) {
    std::vector<Case> all = std::move(plan.cases);
    KeepSome(all, all.size() - 1, seed);  // shuffled
    std::map<std::string, std::vector<Case>> kinds;
    for (const Case& c : all) {
        const SystemCall& call = plan.CallOf(c);
        kinds[call.name + " " + call.target].push_back(c);
    }
    plan.cases.clear();
    for (std::size_t round = 0; plan.cases.size() < wanted; ++round) {
        const std::size_t before = plan.cases.size();
        for (const auto& [kind, cases] : kinds) {
            if (round < cases.size()) plan.cases.push_back(cases[round]);
        }
        if (plan.cases.size() == before) break;
    }
}

// --- what is expected ------------------------------------------------------------------------

/// Each till has folders of its own.
std::string FileName(const SystemCall& call) {
    return call.target.substr(call.target.find_last_of('/') + 1);
}

bool IsAbout(const SystemCall& call, const char* file) {
    return call.target.ends_with(file);
}

/// How the message about a failure of the call has to begin; empty when the driver has to go on as
/// if nothing had happened.
std::string MessageOf(const SystemCall& call) {
    if (call.target == portDevice) {
        if (call.name == "openat") return "Unable to open serial port";
        if (call.name == "read") return "Serial port read error";
        if (call.name == "write") return "Serial port write error";
        if (call.name == "close") return "Failed to close serial port";
        if (Has(call, "TCGETS")) return "Cannot read serial port timeouts";
        if (Has(call, "TCSETSF")) return "Cannot set new serial port settings";
        if (Has(call, "TCSETS")) return "Cannot write serial port timeouts";
    }
    if (IsAbout(call, "cmd.txt") && call.name == "openat") return "Can't open file 'cmd.txt'";
    if (IsAbout(call, "cmd.txt") && call.name == "read") return "Can't read file 'cmd.txt'";
    return "";
}

bool IsConfiguration(const SystemCall& call) {
    return IsAbout(call, "/voltis.ini") && call.name != "close";
}

bool IsMemory(const SystemCall& call) {
    return call.name == "brk" || call.name == "mmap";
}

/// Opening for appending means going to the end.
bool OpensLog(const SystemCall& call) {
    const bool seeksEnd = call.name == "lseek" && Has(call, "SEEK_END");
    return IsAbout(call, ".log") && (call.name == "openat" || seeksEnd);
}

/// The calls of a healthy run that fail in this one; there may be others in their wake.
std::vector<SystemCall> Affected(const Plan& plan, const Case& c) {
    const SystemCall& first = plan.CallOf(c);
    if (!c.injection.forEver) return {first};
    std::vector<SystemCall> calls;
    for (const SystemCall& call : plan.RecordOf(c)) {
        if (call.name == first.name && call.number >= first.number) calls.push_back(call);
    }
    return calls;
}

template <typename Predicate>
bool Any(const std::vector<SystemCall>& calls, Predicate predicate) {
    return std::ranges::any_of(calls, predicate);
}

/// A value that cannot be looked up has its default, and the port has none.
std::set<std::string> Messages(const std::vector<SystemCall>& affected, int error) {
    std::set<std::string> messages;
    for (const SystemCall& call : affected) {
        const std::string message = MessageOf(call);
        if (!message.empty()) messages.insert(message + " - " + strerror(error));
        if (IsConfiguration(call)) messages.insert("Serial port number is missing");
    }
    return messages;
}

/// Without non-blocking reads stale input is waited for, and without blocking ones nothing is.
bool ChangesBlocking(const SystemCall& call) {
    return call.name == "fcntl";
}

/// True when the run has to succeed all the same.
bool MustSucceed(const std::vector<SystemCall>& affected, int error) {
    return error != 0 && Messages(affected, error).empty() && !Any(affected, OpensLog) &&
           !Any(affected, IsMemory) && !Any(affected, ChangesBlocking);
}

/// True when the run may succeed although the call matters.
bool MaySucceed(const Plan& plan, const Case& c) {
    const SystemCall& call = plan.CallOf(c);
    if (IsConfiguration(call) || IsMemory(call) || ChangesBlocking(call) || c.error == 0)
        return true;
    // Where nothing stale is waiting, this is what happens anyway.
    const auto happensAnyway = [&](const SystemCall& affected) {
        return affected.name == "read" && Has(affected, "EAGAIN") && c.error == EAGAIN;
    };
    if (std::ranges::all_of(Affected(plan, c), happensAnyway)) return true;
    return !c.injection.forEver && c.call < plan.firstStatusRead;
}

std::optional<std::string> UnexpectedEnd(const Plan& plan, const Case& c, const TillRun& told,
                                         const FaultyPort& port) {
    const std::vector<SystemCall> affected = Affected(plan, c);
    const std::string message = ResultValue(told.result.value_or(""), "Message");
    const bool success = told.exitCode == 0;
    if (MustSucceed(affected, c.error)) {
        if (!success) return "failed for nothing: " + message;
        if (port.FromDriver() != plan.healthy.fromDriver) return "something else on the wire";
        return std::nullopt;
    }
    if (OpensLog(plan.CallOf(c))) {
        const bool right = told.exitCode == 2 && !told.result && port.FromDriver().empty();
        return right ? std::nullopt : std::optional("went on without its logs");
    }
    if (success) return MaySucceed(plan, c) ? std::nullopt : std::optional("OK in spite of it");
    const bool anyMessage = c.error == 0 || Any(affected, IsMemory) || message.empty() ||
                            Any(affected, ChangesBlocking) ||
                            (!c.injection.forEver && c.call < plan.firstStatusRead);
    if (anyMessage) return std::nullopt;
    if (!Messages(affected, c.error).contains(message)) return "unexpected message: " + message;
    return std::nullopt;
}

Allowance AllowanceFor(const std::vector<SystemCall>& affected) {
    Allowance allowance;
    allowance.resultFileMayLack = Any(affected, [](const SystemCall& call) {
        return IsAbout(call, "result.txt") || IsConfiguration(call) || IsMemory(call) ||
               OpensLog(call);
    });
    allowance.writesMayFail =
        Any(affected, [](const SystemCall& call) { return call.target == portDevice; });
    return allowance;
}

// --- the runs --------------------------------------------------------------------------------

std::string Describe(const SystemCall& call, const Case& c) {
    return FileName(call) + ": " + call.name + " no. " + std::to_string(call.number) + " " +
           c.injection.what + (c.injection.forEver ? " for ever" : "");
}

std::optional<std::string> Judge(const Plan& plan, const Case& c, const TillRun& told,
                                 const Device& device, const FaultyPort& port) {
    const auto broken =
        BrokenPromise(told, device, 0, port, plan.healthy.actions, AllowanceFor(Affected(plan, c)));
    if (broken) return broken;
    const std::string line = BrokenLogLine(told.stdLog) + BrokenLogLine(told.dbgLog);
    if (!line.empty()) return "a broken log: " + line;
    if (told.markerLeft && plan.CallOf(c).name != "unlink") return "the marker was not removed";
    return UnexpectedEnd(plan, c, told, port);
}

Outcome RunCase(const Plan& plan, const Case& c) {
    const SystemCall& call = plan.CallOf(c);
    Till till(family);
    Configure(till, c.logs);
    till.wrapper = Injecting(call, c.injection, till.Beside(traceFile));
    Device device(family);
    FaultyPort port(device);
    const TillRun told = till.Run(port);
    const Spoken spoken = Listen(family, device.device.GetModel(), port.FromDriver());

    const auto injected = InjectedCalls(till.Beside(traceFile));
    auto broken = Judge(plan, c, told, device, port);
    if (injected.empty() || FileName(injected.front()) != FileName(call))
        broken = "the call did not fail as planned";
    if (!broken) return WellDone(told, spoken);
    return Judged(Verdict::Violation, told.exitCode, spoken.frames,
                  Describe(call, c) + ": " + *broken);
}

}  // namespace

int main(int argc, char* argv[]) {
    const Options options = ParseOptions(argc, argv);
    Plan plan = MakePlan();
    const std::size_t all = plan.cases.size();
    if (!options.full)
        KeepSample(plan, options.runs != 0 ? options.runs : sampleSize, options.seed);
    const Tally tally = RunInLanes(plan.cases.size(), lanes, options.full ? 3000 : 150,
                                   [&](std::size_t i) { return RunCase(plan, plan.cases[i]); });
    return Report("system_calls, seed " + std::to_string(options.seed) + ", of " +
                      std::to_string(all) + " failures of " +
                      std::to_string(plan.records[0].size()) + " calls",
                  tally);
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Logs and result files that cannot be written: whatever becomes of them, the driver and the
// register say to each other what they say in a healthy run, and the exit code is that of a healthy
// run.
//
//   system_disk            a sample of the writes (--runs=N of them, --seed=N)
//   system_disk --full     every size, every error at every write
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>

#include "tests/faults/system/Lanes.h"
#include "tests/faults/system/Promise.h"
#include "tests/faults/system/SystemCalls.h"

namespace {

using namespace faults;
using emulator::WireFamily;
namespace fs = std::filesystem;

constexpr auto family = WireFamily::Ocelot;
constexpr std::size_t writesInSample = 12;  // of those that fail from there on
constexpr unsigned lanes = 12;
constexpr int sectorSize = 512;  // the unit of ulimit -f
constexpr char logPlace[] = "/var/log/voltis";
constexpr char traceFile[] = "trace";

enum class ResultFile { Right, MayLack };

struct Case {
    std::string name;
    std::function<void(Till&, FaultyPort&)> prepare;
    ResultFile resultFile = ResultFile::Right;
    bool starts = true;  // false: the driver has to end with 2 and to leave the register alone
};
using Cases = std::vector<Case>;

std::vector<std::string> Shell(const std::string& before) {
    return {"sh", "-c", before + "; exec \"$@\"", "sh"};
}

/// In the place of the folder: a disk of that size, with so much of it taken.
void SmallDisk(Till& till, const std::string& place, int size, int taken) {
    till.sandbox.insert(till.sandbox.end(), {"--size", std::to_string(size), "--tmpfs", place});
    till.wrapper = Shell("head -c " + std::to_string(taken) + " /dev/zero > " + place + "/other");
}

// --- the logs --------------------------------------------------------------------------------

void AddFullDisks(Cases& cases) {
    constexpr int page = 4096;
    for (int pages = 2; pages <= 8; ++pages) {
        cases.push_back(
            {"logs on a disk with " + std::to_string(pages - 1) + " pages left",
             [pages](Till& till, FaultyPort&) { SmallDisk(till, logPlace, pages * page, page); }});
        cases.push_back({"logs on a full disk of " + std::to_string(pages) + " pages",
                         [pages](Till& till, FaultyPort&) {
                             SmallDisk(till, logPlace, pages * page, pages * page);
                         }});
    }
}

/// No file may grow beyond a limit: a disk that is full at that very byte.
void AddLimits(Cases& cases, std::size_t longestLog) {
    const int most = static_cast<int>(longestLog) / sectorSize + 1;
    for (int sectors = 0; sectors <= most; ++sectors) {
        const std::string limit = std::to_string(sectors);
        cases.push_back(
            {"files limited to " + limit + " sectors",
             [limit](Till& till, FaultyPort&) { till.wrapper = Shell("ulimit -f " + limit); },
             sectors == 0 ? ResultFile::MayLack : ResultFile::Right});
    }
}

/// From that write on nothing reaches the file any more. The other log, the port and the result
/// file are as ever.
void AddFailingWrites(Cases& cases, const std::vector<SystemCall>& calls) {
    std::map<std::string, int> writes;  // by file: those alone count below
    for (const SystemCall& call : calls) {
        if (call.name != "write" || !call.target.ends_with(".log")) continue;
        const std::string file = call.target;
        const std::string number = std::to_string(++writes[file]);
        for (const char* error : {"EROFS", "ENOSPC", "EDQUOT", "EIO"}) {
            const std::string inject =
                std::string("inject=write:error=") + error + ":when=" + number + "+";
            cases.push_back({file + " from write no. " + number + " on " + error,
                             [file, inject](Till& till, FaultyPort&) {
                                 till.wrapper = Strace(
                                     {"-o", till.Beside(traceFile), "-P", file, "-e", inject});
                             }});
        }
    }
}

void AddLostLogs(Cases& cases, const HealthySale& healthy) {
    for (std::size_t i = 0; i < healthy.fromRegister.size(); i += 16) {
        cases.push_back(
            {"log folder gone at byte " + std::to_string(i), [i](Till& till, FaultyPort& port) {
                 port.At(Direction::ToDriver, i, [&till] { fs::remove_all(till.Log("")); });
             }});
        cases.push_back({"log folder read-only from byte " + std::to_string(i) + " on",
                         [i](Till& till, FaultyPort& port) {
                             port.At(Direction::ToDriver, i, [&till] {
                                 fs::permissions(till.Log(""), fs::perms(0555));
                                 for (const char* log : {"voltis.log", "dbgerror.log"})
                                     fs::permissions(till.Log(log), fs::perms(0444));
                             });
                         }});
    }
    cases.push_back({"log folder read-only from the start",
                     [](Till& till, FaultyPort&) {
                         till.sandbox = {"--ro-bind", till.Log(""), logPlace};
                     },
                     ResultFile::MayLack, false});
    cases.push_back({"no log folder",
                     [](Till& till, FaultyPort&) {
                         till.sandbox = {"--tmpfs", "/var/log"};
                     },
                     ResultFile::MayLack, false});
}

/// Logs that are not kept are cut back and removed at the end.
void LeaveLogsUnkept(Till& till, const std::string& call, const std::string& error) {
    // A log is opened with the first of these.
    const std::string when = call == "lseek" ? "5+" : "1+";
    till.Ini("StandardLog", "0").Ini("DbgErrorLog", "1");
    till.wrapper = Strace({"-o", till.Beside(traceFile), "-e", "trace=" + call, "-e",
                           "inject=" + call + ":error=" + error + ":when=" + when});
}

void AddUnkeptLogs(Cases& cases) {
    for (const std::string call : {"ftruncate", "unlink", "lseek"}) {
        for (const std::string error : {"EROFS", "EIO"}) {
            cases.push_back(
                {"unkept logs, " + call + " " + error,
                 [call, error](Till& till, FaultyPort&) { LeaveLogsUnkept(till, call, error); }});
        }
    }
}

// --- the result file -------------------------------------------------------------------------

void AddResultFiles(Cases& cases) {
    const auto add = [&](const std::string& name, std::function<void(Till&, FaultyPort&)> prepare) {
        cases.push_back({name, std::move(prepare), ResultFile::MayLack});
    };
    add("read-only folder of the commands", [](Till& till, FaultyPort&) {
        till.sandbox = {"--ro-bind", till.Work(""), till.Work("")};
    });
    add("a folder in the place of the result file",
        [](Till& till, FaultyPort&) { fs::create_directory(till.Work("result.txt")); });
    add("a read-only file in the place of the result file", [](Till& till, FaultyPort&) {
        std::ofstream(till.Work("old.txt")) << "of an earlier run";
        till.sandbox = {"--ro-bind", till.Work("old.txt"), till.Work("result.txt")};
    });
    for (int taken : {0, 1, 2}) {
        add("a disk with " + std::to_string(2 - taken) + " pages left for the result file",
            [taken](Till& till, FaultyPort&) {
                const std::string copy = till.Beside("cmd.txt");
                fs::copy_file(till.Work("cmd.txt"), copy);
                SmallDisk(till, till.Work(""), 8192, taken * 4096);
                till.sandbox.insert(till.sandbox.end(), {"--symlink", copy, till.Work("cmd.txt")});
            });
    }
}

// --- the runs --------------------------------------------------------------------------------

std::optional<std::string> Broken(const Case& c, const TillRun& told, const FaultyPort& port,
                                  const Device& device, const HealthySale& healthy) {
    Allowance allowance;
    allowance.resultFileMayLack = c.resultFile == ResultFile::MayLack;
    if (const auto broken = BrokenPromise(told, device, 0, port, healthy.actions, allowance))
        return broken;
    if (!c.starts) {
        const bool right = told.exitCode == 2 && port.FromDriver().empty() && !told.result;
        return right ? std::nullopt : std::optional("went on without its logs");
    }
    if (told.exitCode != 0) return "exit code " + std::to_string(told.exitCode);
    if (port.FromDriver() != healthy.fromDriver) return "something else went to the register";
    if (port.FromRegister() != healthy.fromRegister) return "something else came from the register";
    return std::nullopt;
}

Outcome RunCase(const Case& c, const HealthySale& healthy) {
    Till till(family);
    Device device(family);
    FaultyPort port(device);
    c.prepare(till, port);
    const TillRun told = till.Run(port);
    const Spoken spoken = Listen(family, device.device.GetModel(), port.FromDriver());
    auto broken = Broken(c, told, port, device, healthy);
    const std::string trace = till.Beside(traceFile);
    if (fs::exists(trace) && InjectedCalls(trace).empty()) broken = "nothing failed";
    if (fs::exists(till.Log(""))) fs::permissions(till.Log(""), fs::perms(0755));
    if (broken)
        return Judged(Verdict::Violation, told.exitCode, spoken.frames, c.name + ": " + *broken);
    return WellDone(told, spoken);
}

}  // namespace

int main(int argc, char* argv[]) {
    const Options options = ParseOptions(argc, argv);
    Till till(family);
    till.wrapper = RecordingCalls(till.Beside(traceFile));
    const HealthySale healthy = RunHealthy(till, family);
    const auto calls = RecordedCalls(till.Beside(traceFile), "/voltis.ini");

    Cases writes, others;
    AddFailingWrites(writes, calls);
    AddFullDisks(others);
    AddLimits(others, fs::file_size(till.Log("dbgerror.log")));
    AddLostLogs(others, healthy);
    AddUnkeptLogs(others);
    AddResultFiles(others);
    const std::size_t all = writes.size() + others.size();
    const std::size_t wanted =
        options.runs != 0 ? options.runs : (options.full ? 0 : writesInSample);
    KeepSome(writes, wanted, options.seed);
    others.insert(others.end(), writes.begin(), writes.end());

    const Tally tally = RunInLanes(others.size(), lanes, options.full ? 3000 : 150,
                                   [&](std::size_t i) { return RunCase(others[i], healthy); });
    return Report("system_disk, seed " + std::to_string(options.seed) + ", of " +
                      std::to_string(all) + " disks",
                  tally);
}

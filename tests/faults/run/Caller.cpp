// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/faults/run/Caller.h"

#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "tests/support/TempDir.h"

namespace faults {

namespace {

using Clock = std::chrono::steady_clock;
using nlohmann::json;

constexpr std::chrono::seconds longestCall{90};

runner::SandboxPlan Outside() {
    runner::SandboxPlan plan;
    plan.root = runner::Root::None;
    return plan;
}

// --- processes -----------------------------------------------------------------------------------

void AddDescendants(pid_t of, std::vector<pid_t>& all) {
    const std::string process = "/proc/" + std::to_string(of);
    std::ifstream children(process + "/task/" + std::to_string(of) + "/children");
    for (pid_t child = 0; children >> child;) {
        all.push_back(child);
        AddDescendants(child, all);
    }
}

std::vector<pid_t> DescendantsOf(pid_t process) {
    std::vector<pid_t> all;
    AddDescendants(process, all);
    return all;
}

// 0: there is none.
pid_t DriverBelow(pid_t run) {
    for (const pid_t process : DescendantsOf(run)) {
        if (ReadWholeFile("/proc/" + std::to_string(process) + "/comm") == "voltis\n")
            return process;
    }
    return 0;
}

// --- what is told ----------------------------------------------------------------------------

std::optional<Told> Read(const std::string& output) {
    const json object = json::parse(output.substr(0, output.find('\n')), nullptr, false);
    if (!object.is_object()) return std::nullopt;
    Told told;
    told.verdict = object.at("verdict");
    const json& commands = object.at("commands");
    told.atLeast = commands.at("at_least");
    if (!commands.at("of").is_null()) {  // else nobody has counted
        told.of = commands.at("of");
        told.atMost = commands.at("at_most");
    }
    told.exitCode = object.at("exit_code");
    told.replayed = object.at("replayed");
    const json& driver = object.at("driver");
    if (driver.is_object()) told.message = driver.at("message");
    told.message = object.value("reason", told.message);
    return told;
}

}  // namespace

Caller::Caller(const runner::CommandLine& command, std::string result)
    : process_(Outside(), command, runner::Streams::Apart),
      result_(std::move(result)),
      start_(Clock::now()) {}

bool Caller::Ended() {
    const std::lock_guard lock(mutex_);
    return process_.Ended();
}

bool Caller::Kill(Victim victim) {
    const std::lock_guard lock(mutex_);
    if (process_.Pid() == -1) return false;
    const bool driver = victim != Victim::Run && KillDriver();
    if (victim == Victim::Driver) return driver;
    return kill(process_.Pid(), SIGKILL) == 0;
}

// Its number may be another process's as soon as it has ended: the descriptor is not.
bool Caller::KillDriver() const {
    const pid_t driver = DriverBelow(process_.Pid());
    if (driver == 0) return false;
    const int fd = static_cast<int>(syscall(SYS_pidfd_open, driver, 0));
    if (fd == -1) return false;
    const bool same = DriverBelow(process_.Pid()) == driver;
    const bool killed = same && syscall(SYS_pidfd_send_signal, fd, SIGKILL, nullptr, 0) == 0;
    close(fd);
    return killed;
}

void Caller::KillAll() {
    const std::lock_guard lock(mutex_);
    if (process_.Pid() == -1) return;
    for (const pid_t process : DescendantsOf(process_.Pid())) kill(process, SIGKILL);
    process_.Kill();
}

Call Caller::Wait() {
    Call call;
    while (!Ended() && Clock::now() - start_ < longestCall) {
        pollfd end = {process_.EndFd(), POLLIN, 0};
        constexpr int stepMs = 20;  // what waits in a full pipe is taken in between
        poll(&end, 1, stepMs);
    }
    call.inTime = Ended();
    if (!call.inTime) KillAll();
    const runner::ProgramResult end = process_.Wait();
    call.seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    call.exitCode = end.exitCode;
    call.output = end.out + end.err;
    call.told = Read(end.out);
    call.result = ReadWholeFile(result_);
    return call;
}

}  // namespace faults

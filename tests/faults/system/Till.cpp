// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/faults/system/Till.h"

#include <filesystem>

#include "companion/runner/Sandbox.h"
#include "companion/workbench/Defaults.h"
#include "tests/support/Programs.h"

namespace faults {

namespace {

constexpr char marker[] = "voltis.started.tmp";
// Long enough for a busy machine, and two of the device's units.
constexpr char timeOut[] = "200";

}  // namespace

const char Till::shortSale[] =
    "SALE: DEPTNR=1; NAME=Tea; PRICE=2.50; QNTY=2\n"
    "DISCOUNT: PERCENTS=10; TYPE=SALE\n"
    "TENDER: MEDIA=CASH; AMOUNT=5.00\n";

Till::Till(emulator::WireFamily family, const std::string& commands)
    : folder_(workbench::SettingsFor(family)) {
    for (const char* key : {"CmdTimeout_Default", "CmdTimeout_Tender", "CmdTimeout_Report"})
        Ini(key, timeOut);
    folder_.Files().Write("cmd.txt", commands);
}

Till& Till::Ini(const std::string& key, const std::string& value) {
    folder_.settings.value().Set(key, value);
    return *this;
}

TillRun Till::Run(FaultyPort& port) {
    runner::SandboxPlan plan = folder_.Prepare(port.DevicePath());
    plan.root = runner::Root::Machine;
    plan.workDir = folder_.Files().Path();
    plan.bwrapArguments = sandbox;
    runner::CommandLine command = wrapper;
    command.insert(command.end(), {VoltisPath(), "cmd.txt"});

    TillRun told;
    const auto begin = std::chrono::steady_clock::now();
    runner::SandboxedRun program(plan, command, runner::Streams::Apart);
    told.inTime = port.Serve(program.Pid(), longestRun);
    if (told.inTime) {
        const runner::ProgramResult end = program.Wait();
        told.exitCode = end.exitCode;
        told.complaint = end.err;
    }
    told.took = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - begin);
    told.result = folder_.Result();
    told.stdLog = folder_.StandardLog();
    told.dbgLog = folder_.DebugLog();
    told.markerLeft = std::filesystem::exists(Work(marker));
    return told;
}

}  // namespace faults

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/support/Shop.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <utility>

#include "companion/workbench/DriverRun.h"
#include "tests/support/Programs.h"

Shop::Shop(std::string_view model, std::uint8_t version)
    : Shop(workbench::RegisterOf(model, version)) {}

Shop::Shop(emulator::RegisterConfig config) : Shop(config, config.model->family) {}

Shop::Shop(emulator::RegisterConfig config, emulator::WireFamily family)
    : folder_(workbench::SettingsFor(family)),
      workDir_(Folder().Path()),
      station_(std::move(config), family) {}

Shop& Shop::Ini(const std::string& key, const std::string& value) {
    folder_.settings.value().Set(key, value);
    return *this;
}

Shop& Shop::WithoutIni(const std::string& key) {
    folder_.settings.value().Remove(key);
    return *this;
}

Shop& Shop::WithoutIniFile() {
    folder_.settings.reset();
    return *this;
}

Shop& Shop::WorkIn(const std::string& folder) {
    workDir_ = std::filesystem::path(Folder().Path()) / folder;
    return *this;
}

Shop& Shop::Sandbox(const std::vector<std::string>& bwrapArguments) {
    bwrapArguments_ = bwrapArguments;
    return *this;
}

Shop& Shop::StartBy(const std::string& script) {
    startScript_ = script;
    return *this;
}

RunOutcome Shop::Run(const std::vector<std::string>& arguments) {
    runner::SandboxPlan plan = folder_.Prepare(station_.server.SlavePath());
    plan.root = runner::Root::Machine;
    plan.workDir = workDir_;
    plan.bwrapArguments = bwrapArguments_;
    runner::CommandLine command;
    if (!startScript_.empty()) command = {"sh", "-c", startScript_, "sh"};
    command.push_back(VoltisPath());
    command.insert(command.end(), arguments.begin(), arguments.end());

    const workbench::Since since(station_.device);
    workbench::DriverRun run(station_, plan, command, runner::Streams::Apart);
    const runner::ProgramResult program = run.Process().Wait();
    run.Finish();
    EXPECT_EQ(program.err, "");
    EXPECT_EQ(since.Complaints(), std::vector<std::string>());
    return {program.exitCode,   program.out,   folder_.Result(), folder_.StandardLog(),
            folder_.DebugLog(), since.Lines(), since.Journal()};
}

RunOutcome Shop::Execute(const std::string& commands) {
    Folder().Write("cmd.txt", commands);
    return Run({"cmd.txt"});
}

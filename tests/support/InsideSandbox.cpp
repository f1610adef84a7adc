// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/support/InsideSandbox.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "companion/runner/Sandbox.h"

void GoInsideSandbox(int argc, char* argv[]) {
    static constexpr char insideMark[] = "VOLTIS_TEST_SANDBOX";
    if (getenv(insideMark) != nullptr) return;
    runner::CommandLine command = {std::filesystem::read_symlink("/proc/self/exe")};
    command.insert(command.end(), argv + 1, argv + argc);
    runner::SandboxPlan plan;
    plan.root = runner::Root::Machine;
    plan.bwrapArguments = {"--setenv", insideMark, "1"};
    try {
        runner::BecomeSandboxed(plan, command);
    } catch (const runner::SandboxError& failure) {
        fprintf(stderr, "%s\n", failure.what());
        exit(EXIT_FAILURE);
    }
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/Sandbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/support/TempDir.h"

using runner::insideDriver;
using runner::ProgramResult;
using runner::RunSandboxed;
using runner::SandboxCommandLine;
using runner::SandboxedRun;
using runner::SandboxPlan;
using runner::SandboxRemedy;
using testing::AllOf;
using testing::HasSubstr;

namespace {

SandboxPlan OnTheMachine() {
    SandboxPlan plan;
    plan.root = runner::Root::Machine;
    return plan;
}

}  // namespace

TEST(SandboxCommandLine, GiveTheDriverItsOwnFixedPaths) {
    SandboxPlan plan;
    plan.driver = "/b/voltis";
    plan.files = "/t/files";
    plan.ini = "/t/voltis.ini";
    plan.logs = "/t/logs";
    plan.device = "/dev/pts/7";
    std::string line;
    for (const std::string& word : SandboxCommandLine(plan, {insideDriver, "/try/a b.txt"}, 3))
        line += word + "|";
    EXPECT_EQ(line.find("bwrap|"), 0U) << line;
    EXPECT_THAT(line, HasSubstr("|--dev-bind|/dev/pts/7|/dev/ttyS0|"));
    EXPECT_THAT(line, HasSubstr("|--ro-bind|/t/voltis.ini|/etc/voltis/voltis.ini|"));
    EXPECT_THAT(line, HasSubstr("|--bind|/t/logs|/var/log/voltis|"));
    EXPECT_THAT(line, HasSubstr("|--bind|/t/files|/try|--chdir|/try|"));
    EXPECT_THAT(line, HasSubstr("|--ro-bind|/b/voltis|/voltis|--|/voltis|/try/a b.txt|"));
}

TEST(SandboxRemedy, NamesTheSettingsForForbiddenNamespaces) {
    for (const char* said : {"bwrap: No permissions to create new namespace, likely because ...",
                             "bwrap: setting up uid map: Permission denied",
                             "bwrap: Creating new namespace failed: Operation not permitted"}) {
        EXPECT_THAT(SandboxRemedy(said),
                    AllOf(HasSubstr(said), HasSubstr("kernel.unprivileged_userns_clone=1"),
                          HasSubstr("AppArmor")));
    }
}

TEST(SandboxRemedy, RepeatsWhatElseBubblewrapSays) {
    EXPECT_EQ(SandboxRemedy("bwrap: Can't find source path /x: No such file\nmore"),
              "The sandbox could not be made: bwrap: Can't find source path /x: No such file");
}

TEST(RunSandboxed, ReturnsExitCodeAndBothOutputs) {
    const ProgramResult result =
        RunSandboxed(OnTheMachine(), {"sh", "-c", "echo out; echo err >&2; exit 101"});
    EXPECT_EQ(result.exitCode, 101);
    EXPECT_EQ(result.out, "out\n");
    EXPECT_EQ(result.err, "err\n");
}

TEST(RunSandboxed, GivesTheProgramItsOwnFolders) {
    const TempDir folder;
    SandboxPlan plan = OnTheMachine();
    plan.config = folder.File("etc");
    plan.logs = folder.File("log");
    plan.workDir = folder.Path();
    std::filesystem::create_directory(plan.config);
    std::filesystem::create_directory(plan.logs);
    folder.Write("etc/voltis.ini", "text");

    const ProgramResult result =
        RunSandboxed(plan, {"sh", "-c", "cp /etc/voltis/voltis.ini /var/log/voltis/copy; pwd"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, folder.Path() + "\n");
    EXPECT_EQ(ReadWholeFile(folder.File("log/copy")), "text");
}

TEST(RunSandboxed, HasEmptyWritableFoldersByDefault) {
    const ProgramResult result =
        RunSandboxed(OnTheMachine(),
                     {"sh", "-c", "ls -A /etc/voltis /var/log/voltis && touch /var/log/voltis/a"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "/etc/voltis:\n\n/var/log/voltis:\n");
}

TEST(RunSandboxed, TakesFurtherArguments) {
    SandboxPlan plan = OnTheMachine();
    plan.bwrapArguments = {"--dev-bind", "/dev/zero", "/dev/ttyS0"};
    const ProgramResult result = RunSandboxed(plan, {"head", "-c", "3", "/dev/ttyS0"});
    EXPECT_EQ(result.out, std::string(3, '\0')) << result.err;
}

TEST(SandboxedRun, DiesWithItsSandbox) {
    const TempDir folder;
    const std::string pidFile = folder.File("pid");
    const std::string script =
        "echo $$ >" + pidFile + ".new; mv " + pidFile + ".new " + pidFile + "; exec sleep 60";
    SandboxedRun program(OnTheMachine(), {"sh", "-c", script});
    for (int i = 0; i < 5000 && !std::filesystem::exists(pidFile); ++i) usleep(1000);
    ASSERT_TRUE(std::filesystem::exists(pidFile));
    kill(program.Pid(), SIGKILL);
    EXPECT_EQ(program.Wait().exitCode, 128 + SIGKILL);
    const pid_t inner = std::stoi(ReadWholeFile(pidFile));
    for (int i = 0; i < 1000 && kill(inner, 0) == 0; ++i) usleep(1000);
    // Gone, or a zombie that was not collected yet.
    const std::string status = ReadWholeFile("/proc/" + std::to_string(inner) + "/stat");
    EXPECT_TRUE(status.empty() || status.find(") Z ") != std::string::npos) << status;
}

#include "tests/support/Sandbox.h"

#include <gtest/gtest.h>

#include <csignal>

#include "tests/support/TempDir.h"

TEST(RunInSandbox, ReturnsExitCodeAndBothOutputs) {
    const ProgramResult result = RunInSandbox({"sh", "-c", "echo out; echo err >&2; exit 101"}, {});
    EXPECT_EQ(result.exitCode, 101);
    EXPECT_EQ(result.out, "out\n");
    EXPECT_EQ(result.err, "err\n");
}

TEST(RunInSandbox, GivesTheProgramItsOwnFolders) {
    const TempDir folder;
    SandboxOptions options;
    options.configDir = folder.File("etc");
    options.logDir = folder.File("log");
    options.workDir = folder.Path();
    std::filesystem::create_directory(options.configDir);
    std::filesystem::create_directory(options.logDir);
    folder.Write("etc/voltis.ini", "text");

    const ProgramResult result =
        RunInSandbox({"sh", "-c", "cp /etc/voltis/voltis.ini /var/log/voltis/copy; pwd"}, options);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, folder.Path() + "\n");
    EXPECT_EQ(ReadWholeFile(folder.File("log/copy")), "text");
}

TEST(RunInSandbox, HasEmptyWritableFoldersByDefault) {
    const ProgramResult result = RunInSandbox(
        {"sh", "-c", "ls -A /etc/voltis /var/log/voltis && touch /var/log/voltis/a"}, {});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "/etc/voltis:\n\n/var/log/voltis:\n");
}

TEST(RunInSandbox, TakesFurtherArguments) {
    SandboxOptions options;
    options.bwrapArguments = {"--dev-bind", "/dev/zero", "/dev/ttyS0"};
    const ProgramResult result = RunInSandbox({"head", "-c", "3", "/dev/ttyS0"}, options);
    EXPECT_EQ(result.out, std::string(3, '\0')) << result.err;
}

TEST(SandboxedProgram, DiesWithItsSandbox) {
    const TempDir folder;
    const std::string pidFile = folder.File("pid");
    const std::string script =
        "echo $$ >" + pidFile + ".new; mv " + pidFile + ".new " + pidFile + "; exec sleep 60";
    SandboxedProgram program({"sh", "-c", script}, {});
    for (int i = 0; i < 5000 && !std::filesystem::exists(pidFile); ++i) usleep(1000);
    ASSERT_TRUE(std::filesystem::exists(pidFile));
    kill(program.Pid(), SIGKILL);
    EXPECT_EQ(program.Wait().exitCode, 128 + SIGKILL);
    const pid_t inner = std::stoi(ReadWholeFile(pidFile));
    for (int i = 0; i < 1000 && kill(inner, 0) == 0; ++i) usleep(1000);
    // Gone, or a zombie that nobody has collected yet.
    const std::string status = ReadWholeFile("/proc/" + std::to_string(inner) + "/stat");
    EXPECT_TRUE(status.empty() || status.find(") Z ") != std::string::npos) << status;
}

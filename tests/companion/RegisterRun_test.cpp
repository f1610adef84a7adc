// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/RegisterRun.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>

#include "companion/runner/Device.h"
#include "companion/runner/DeviceLock.h"
#include "companion/workbench/ResultFile.h"
#include "tests/companion/Till.h"
#include "tests/support/TempDir.h"

namespace fs = std::filesystem;

using runner::DeviceError;
using runner::RegisterRun;
using runner::RunError;
using runner::RunRequest;
using runner::RunResult;
using runner::SandboxError;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using workbench::ResultValue;

namespace {

// The working directory, until the end.
class WorkIn {
  public:
    explicit WorkIn(const fs::path& folder) : before_(fs::current_path()) {
        fs::current_path(folder);
    }
    ~WorkIn() { fs::current_path(before_); }
    WorkIn(const WorkIn&) = delete;
    WorkIn& operator=(const WorkIn&) = delete;

  private:
    fs::path before_;
};

template <typename Error>
std::string WhyNot(const RunRequest& request) {
    try {
        RegisterRun(request).Wait();
    } catch (const Error& failure) {
        return failure.what();
    }
    return "(it ran)";
}

bool Soon(const std::function<bool()>& condition) {
    for (int i = 0; i < 5000 && !condition(); ++i) usleep(1000);
    return condition();
}

std::string Script(const TempDir& folder, const std::string& text) {
    const std::string path = folder.Write("script", "#!/bin/sh\n" + text + "\n");
    chmod(path.c_str(), 0755);
    return path;
}

}  // namespace

TEST(RegisterRun, PrintsAndReturnsAllThatTheDriverTells) {
    Till till;
    const std::string file = till.Files().File("sale.txt");
    const RunResult result = till.Run(till.Request(file));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.killedBySignal, 0);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.resultText.value_or(""),
              "[VOLTIS]\nResultCode=0\nMessage=OK\nLastReceiptNo=1");
    EXPECT_EQ(till.Device().ReceiptNumber(), 1);
    const std::string commandLine = "Command line : \"" VOLTIS_PATH "\" " + file + "\n";
    EXPECT_THAT(result.standardLog, HasSubstr(commandLine));
    EXPECT_THAT(result.debugLog, AllOf(HasSubstr(commandLine), HasSubstr("PC->ECR")));
    EXPECT_GT(result.seconds, 0);
}

TEST(RegisterRun, KeepsEverythingInItsFolder) {
    Till till;
    const RunResult result = till.Run(till.Request("/pos/sale.txt"));
    EXPECT_EQ(ReadWholeFile(till.File("run/command")), oneSale);
    EXPECT_EQ(ReadWholeFile(till.File("run/result/answer.txt")), result.resultText);
    EXPECT_EQ(ReadWholeFile(till.File("run/logs/dbgerror.log")), result.debugLog);
    EXPECT_EQ(runner::DebugLogOf(till.File("run")), result.debugLog);
    EXPECT_THAT(ReadWholeFile(till.File("run/voltis.ini")), HasSubstr("DbgErrorLog=2"));
}

// An empty log would mean that nothing was sent.
TEST(DebugLogOf, IsNotEmptyWhereItCannotBeSeen) {
    const TempDir run;
    EXPECT_EQ(runner::DebugLogOf(run.Path()), "");
    fs::create_directory(run.File("logs"));
    run.Write("logs/dbgerror.log", "a conversation");
    chmod(run.Path().c_str(), 0755);
    chmod(run.File("logs").c_str(), 0);
    const pid_t child = fork();
    if (child == 0) {
        constexpr uid_t nobody = 65534;
        if (geteuid() == 0 && setuid(nobody) != 0) _exit(2);
        try {
            runner::DebugLogOf(run.Path());
        } catch (const std::runtime_error&) {
            _exit(0);
        }
        _exit(1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    chmod(run.File("logs").c_str(), 0700);
}

TEST(RegisterRun, LeavesNothingOfAnEarlierRun) {
    Till till;
    till.Run(till.Request("/pos/sale.txt"));
    const RunResult second = till.Run(till.Request("/pos/other.txt", "GET_STATUS\n"));
    EXPECT_THAT(second.debugLog, AllOf(HasSubstr("/pos/other.txt"), Not(HasSubstr("sale.txt"))));
    EXPECT_FALSE(fs::exists(till.File("run/result/sale.txt")));
}

TEST(RegisterRun, RunsTheBytesAndNotTheFile) {
    Till till;
    const std::string file = till.Files().Write("sale.txt", "NONSENSE\n");
    EXPECT_EQ(till.Run(till.Request(file)).exitCode, 0);
    EXPECT_EQ(ReadWholeFile(file), "NONSENSE\n");
    EXPECT_EQ(fs::exists(till.Files().File("answer.txt")), false);
}

TEST(RegisterRun, SpeaksTheFramesOfItsRegister) {
    Till till("margay");
    EXPECT_EQ(till.Run(till.Request("/pos/sale.txt")).exitCode, 0);
}

TEST(RegisterRun, HasAResultEvenWhereTheSiteWantsNone) {
    Till till;
    till.Configure("");
    EXPECT_EQ(ResultValue(*till.Run(till.Request("/pos/sale.txt")).resultText, "Message"), "OK");
}

TEST(RegisterRun, TakesNoCommandFileForItsResult) {
    Till till;
    till.Configure("ResultFileName=same.txt\n");
    EXPECT_THAT(*till.Run(till.Request("/pos/same.txt")).resultText, StartsWith("[VOLTIS]"));
    const RunResult none = till.Run(till.Request("/pos/same.txt", "EXIT\n"));
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_FALSE(none.resultText);
}

// --- the command file's path -------------------------------------------------------------------

// A mistake in the file, so that the driver names it.
class CommandPathOfARun : public testing::TestWithParam<const char*> {};

TEST_P(CommandPathOfARun, IsTheOneThatTheMessagesName) {
    Till till;
    const std::string file = GetParam();
    const RunResult result = till.Run(till.Request(file, "SALE DEPTNR=1\n"));
    EXPECT_EQ(result.exitCode, 1) << result.output << result.debugLog;
    EXPECT_EQ(
        ResultValue(result.resultText.value_or(""), "Message"),
        "Missing ':' after fiscal command (file : '" + runner::DriversPath(file) + "' line : 1)");
    EXPECT_THAT(result.standardLog, HasSubstr("\" " + file + "\n"));
}

INSTANTIATE_TEST_SUITE_P(
    Places, CommandPathOfARun,
    testing::Values("/pos/sale.txt", "/usr/local/sale.txt", "/usr/sale.txt", "/usr/share/sale.txt",
                    "/bin/sale.txt", "/etc/sale.txt", "/etc/voltis/sale.txt", "/tmp/sale.txt",
                    "/tmp/a/b/sale.txt", "/dev/shm/sale.txt", "/dev/sale.txt", "/var/log/sale.txt",
                    "/var/log/voltis/sale.txt", "/home/pos/with blanks/a sale.txt",
                    "/pos/it's \"quoted\".txt", "/pos/\xc4\x81\xff\xfe.txt", "/pos/win\\sale.txt",
                    "//sale.txt", "/pos/./x/../sale.txt", "/../pos/sale.txt", "/pos/-S", "sale.txt",
                    "./sale.txt", "sub/sale.txt", "../sale.txt", "a b/../../c/sale.txt",
                    "win\\sale.txt", "\\sub\\sale.txt"));

TEST(RegisterRunPath, IsRelativeToTheWorkingDirectoryOfTheCaller) {
    Till till;
    for (const char* folder : {"/", "/usr", "/tmp", "/dev/shm", "/etc", "/usr/local/share"}) {
        const WorkIn work(folder);
        const RunResult result = till.Run(till.Request("sale.txt"));
        EXPECT_EQ(result.exitCode, 0) << folder << result.output << result.debugLog;
        EXPECT_EQ(ResultValue(result.resultText.value_or(""), "Message"), "OK") << folder;
    }
}

TEST(RegisterRunPath, MayLeadThroughALink) {
    Till till;
    fs::create_directory(till.File("real"));
    fs::create_directory_symlink(till.File("real"), till.File("link"));
    EXPECT_EQ(till.Run(till.Request(till.File("link/sale.txt"))).exitCode, 0);
}

TEST(RegisterRunPath, MayBeInTheFolderOfTheDriver) {
    Till till;
    const std::string beside = fs::path(VOLTIS_PATH).parent_path() / "sale.txt";
    EXPECT_EQ(till.Run(till.Request(beside)).exitCode, 0);
}

TEST(RegisterRunPath, IsNotStoppedByTheMarkerOfAnotherDriver) {
    Till till;
    till.Files().Write("voltis.started.tmp", "");
    fs::create_directory(till.Files().File("sub"));
    const WorkIn work(till.Files().Path());
    EXPECT_EQ(till.Run(till.Request("sub/sale.txt")).exitCode, 0);
    EXPECT_TRUE(fs::exists("voltis.started.tmp"));
}

TEST(RegisterRunPath, IsRefusedWhereTheDriverSeesAnOption) {
    const Till till;
    EXPECT_THAT(WhyNot<RunError>(till.Request("/S")), HasSubstr("write '/./S'"));
    EXPECT_THAT(WhyNot<RunError>(till.Request("/sale.txt")), HasSubstr("write '/./sale.txt'"));
    EXPECT_THAT(WhyNot<RunError>(till.Request("/pos\\s.txt")), HasSubstr("write '/./pos\\s.txt'"));
    EXPECT_THAT(WhyNot<RunError>(till.Request("-s.txt")), HasSubstr("write './-s.txt'"));
    for (const char* none : {"", "/pos/", "pos\\", ".", "/pos/.."})
        EXPECT_THAT(WhyNot<RunError>(till.Request(none)), HasSubstr("is no command file")) << none;
}

TEST(RegisterRunPath, IsRefusedWhereItWouldHideTheLibraries) {
    const Till till;
    for (const char* file : {"/proc/self/fd/3", "/dev/fd/63", "/lib/x.txt", "/usr/lib/a/x.txt"})
        EXPECT_THAT(WhyNot<RunError>(till.Request(file)), HasSubstr("copy it into")) << file;
}

// --- the device --------------------------------------------------------------------------------

TEST(RegisterRunDevice, MayBeALinkAsUdevMakesThem) {
    Till till;
    fs::create_directories(till.File("dev/serial/by-id"));
    till.profile.device = till.File("dev/serial/by-id/usb-Valkor_1-port0");
    fs::create_symlink("../../ttyUSB0", till.profile.device);
    fs::create_symlink(till.Station().server.SlavePath(), till.File("dev/ttyUSB0"));
    EXPECT_EQ(till.Run(till.Request("/pos/sale.txt")).exitCode, 0);
}

TEST(RegisterRunDevice, IsNamedAsItIsConfiguredWhenItIsMissing) {
    Till till;
    till.profile.device = "/dev/serial/by-id/usb-none";
    till.profile.name = "bar";
    EXPECT_EQ(WhyNot<DeviceError>(till.Request("/pos/sale.txt")),
              "the device '/dev/serial/by-id/usb-none' of register 'bar' cannot be found - No such "
              "file or directory");
}

TEST(RegisterRunDevice, IsACharacterDevice) {
    Till till;
    till.profile.device = till.Files().Write("plain", "");
    EXPECT_THAT(WhyNot<DeviceError>(till.Request("/pos/sale.txt")),
                HasSubstr("is not a character device"));
}

TEST(RegisterRunDevice, IsRefusedWithTheGroupThatIsMissing) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can lose a permission";
    Till till;
    ASSERT_EQ(chown(till.profile.device.c_str(), 0, 20), 0);  // dialout on Debian
    ASSERT_EQ(chmod(till.profile.device.c_str(), 0660), 0);
    ASSERT_EQ(seteuid(65534), 0);
    std::string why;
    try {
        runner::UsableDevice(till.profile);
    } catch (const DeviceError& failure) {
        why = failure.what();
    }
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_THAT(why, AllOf(StartsWith("the device '" + till.profile.device + "'"),
                           HasSubstr("cannot be opened - Permission denied: the account 'nobody' "
                                     "is not in group dialout"),
                           HasSubstr("usermod -a -G dialout nobody")));
}

TEST(RegisterRunDevice, MayVanishInMidRun) {
    auto till = std::make_unique<Till>();
    const RunRequest request = till->Request("/pos/sale.txt");
    const TempDir kept;
    RunRequest elsewhere = request;
    elsewhere.folder = kept.File("run");
    RegisterRun run(elsewhere);
    ASSERT_TRUE(Soon([&] { return run.DebugLog().find("PC->ECR") != std::string::npos; }));
    till.reset();  // closes the master
    const RunResult result = run.Wait();
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(ResultValue(result.resultText.value_or(""), "ErrorCode"), "50");
}

TEST(RegisterRunDevice, IsFreeForAnotherRegisterAtTheSameTime) {
    Till one;
    Till other("margay");
    auto first = std::async(std::launch::async, [&] { return one.Run(one.Request("/p/a.txt")); });
    EXPECT_EQ(other.Run(other.Request("/p/a.txt")).exitCode, 0);
    EXPECT_EQ(first.get().exitCode, 0);
    EXPECT_EQ(one.Device().ReceiptNumber(), 1);
    EXPECT_EQ(other.Device().ReceiptNumber(), 1);
}

TEST(RegisterRunDevice, IsNoneForARegisterOnTheNetwork) {
    Till till;
    till.Configure("IpAddress=127.0.0.1\nUdpPort=4001\n");
    till.profile.device.clear();
    const RunResult result = till.Run(till.Request("/pos/sale.txt"));
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(ResultValue(*result.resultText, "Message"), "Ethernet support not implemented");
}

// --- the process -------------------------------------------------------------------------------

TEST(RegisterRunProcess, CanBeEnded) {
    const Till till;  // nobody serves the line: the driver waits for an answer
    RegisterRun run(till.Request("/pos/sale.txt"));
    ASSERT_TRUE(Soon([&] { return run.DebugLog().find("PC->ECR") != std::string::npos; }));
    EXPECT_FALSE(run.Ended());
    run.Kill();
    EXPECT_TRUE(run.Ended());
    const RunResult result = run.Wait();
    EXPECT_EQ(result.killedBySignal, SIGKILL);
    EXPECT_FALSE(result.resultText);
    EXPECT_THAT(result.debugLog, HasSubstr("PC->ECR"));
}

TEST(RegisterRunProcess, TellsTheSignalThatEndedTheDriver) {
    const Till till;
    const TempDir folder;
    RunRequest request = till.Request("/pos/sale.txt");
    request.driver = Script(folder, "echo said; kill -SEGV $$");
    const RunResult result = RegisterRun(request).Wait();
    EXPECT_EQ(result.killedBySignal, SIGSEGV);
    EXPECT_THAT(result.output, StartsWith("said\n"));
}

TEST(RegisterRunProcess, HandsTheLockToTheDriver) {
    const Till till;
    const TempDir folder;
    auto lock = std::make_unique<runner::DeviceLock>(folder.File("LCK..a"));
    RunRequest request = till.Request("/pos/sale.txt");
    request.lockFd = lock->Fd();
    request.driver = Script(folder, "readlink /proc/self/fd/" + std::to_string(lock->Fd()));
    // In a changed root the kernel names the file from the machine's own root.
    EXPECT_THAT(RegisterRun(request).Wait().output, EndsWith(folder.File("LCK..a") + "\n"));
}

TEST(RegisterRunProcess, TellsTheRemedyWhenThereIsNoSandbox) {
    Till till;
    RunRequest request = till.Request("/pos/sale.txt");
    request.bwrap = "/nowhere/bwrap";
    EXPECT_THAT(WhyNot<SandboxError>(request),
                AllOf(HasSubstr("apt install bubblewrap"),
                      EndsWith("Or write Sandbox=no into '" + till.profile.file +
                               "': the driver then runs without a sandbox.")));
    request.profile.name = "bar";
    EXPECT_THAT(WhyNot<SandboxError>(request), Not(HasSubstr("Sandbox=no")));
}

TEST(RegisterRunProcess, TellsTheRemedyWhenSandboxesAreForbidden) {
    Till till;
    const TempDir folder;
    RunRequest request = till.Request("/pos/sale.txt");
    request.bwrap = Script(folder, "echo 'bwrap: No permissions to create new namespace'; exit 1");
    EXPECT_THAT(WhyNot<SandboxError>(request),
                AllOf(HasSubstr("kernel.unprivileged_userns_clone=1"), HasSubstr("Sandbox=no")));
}

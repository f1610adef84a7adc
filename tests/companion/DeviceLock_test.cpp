// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/DeviceLock.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "companion/runner/Profile.h"
#include "tests/support/TempDir.h"

namespace fs = std::filesystem;

using runner::DeviceBusy;
using runner::DeviceLock;
using runner::LockFileOf;
using runner::LockWait;
using runner::Profile;
using std::chrono::milliseconds;
using testing::HasSubstr;

namespace {

constexpr uid_t nobody = 65534;

LockWait UpTo(milliseconds longest) {
    LockWait wait;
    wait.longest = longest;
    return wait;
}

std::string PidLine(pid_t pid) {
    const std::string digits = std::to_string(pid);
    return std::string(10 - digits.size(), ' ') + digits + "\n";
}

// Why the lock cannot be had, empty when it can.
std::string WhyBusy(const std::string& file, const LockWait& wait = {}) {
    try {
        const DeviceLock lock(file, wait);
        return "";
    } catch (const DeviceBusy& busy) {
        return busy.what();
    }
}

// Another process; it ends with 0 when the action returns true. Killed at the end at the latest.
class Child {
  public:
    explicit Child(const std::function<bool()>& action) : pid_(fork()) {
        if (pid_ == 0) _exit(action() ? 0 : 1);
    }
    ~Child() {
        if (pid_ != -1) Kill();
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t Pid() const { return pid_; }
    void Kill() {
        kill(pid_, SIGKILL);
        Wait();
    }
    int Wait() {
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return status;
    }

  private:
    pid_t pid_;
};

// Keeps the lock until it is killed.
bool HoldForEver(const std::string& file) {
    const DeviceLock lock(file);
    pause();
    return true;
}

bool Appears(const std::string& file, const std::string& content) {
    for (int i = 0; i < 5000 && ReadWholeFile(file) != content; ++i) usleep(1000);
    return ReadWholeFile(file) == content;
}

// A process that was killed is gone, or a zombie, for ever.
bool ComesToSleep(pid_t pid) {
    const std::string status = "/proc/" + std::to_string(pid) + "/stat";
    const auto sleeps = [&] { return ReadWholeFile(status).find(") S ") != std::string::npos; };
    for (int i = 0; i < 5000 && !sleeps(); ++i) usleep(1000);
    return sleeps();
}

// The PID of a process that has ended.
pid_t DeadPid() {
    Child child([] { return true; });
    const pid_t pid = child.Pid();
    child.Wait();
    return pid;
}

class DeviceLockFile : public testing::Test {
  protected:
    // Keeps the lock until it is killed, with a child of that name, which has inherited it.
    bool HoldWithChild(const char* name) const {
        const DeviceLock lock(file_);
        const pid_t child = fork();
        if (child == 0) {
            prctl(PR_SET_NAME, name);
            folder_.Write("child", std::to_string(getpid()) + "\n");
        }
        for (;;) pause();
    }
    pid_t ChildOfHolder() const {
        std::string written;
        while (!(written = ReadWholeFile(folder_.File("child"))).ends_with('\n')) usleep(1000);
        return std::stoi(written);
    }

    const TempDir folder_;
    const std::string file_ = folder_.File("LCK..ttyUSB0");
};

Profile DeviceProfile(const std::string& device) {
    Profile profile;
    profile.device = device;
    return profile;
}

}  // namespace

TEST(LockFileOf, HasTheNameThatSerialPortsHave) {
    EXPECT_EQ(LockFileOf(DeviceProfile("/dev/ttyS97")), "/run/lock/LCK..ttyS97");
    EXPECT_EQ(LockFileOf(DeviceProfile("/dev/pts/9997"), "/l"), "/l/LCK..pts_9997");
    EXPECT_EQ(LockFileOf(DeviceProfile("/nowhere/3"), "/l"), "/l/LCK..nowhere_3");
}

TEST(LockFileOf, IsTheSameByEveryName) {
    const TempDir folder;
    fs::create_symlink("null", folder.File("relative"));
    fs::create_symlink("/dev/null", folder.File("usb-adapter"));
    EXPECT_EQ(LockFileOf(DeviceProfile(folder.File("usb-adapter")), "/l"), "/l/LCK..null");
    EXPECT_EQ(LockFileOf(DeviceProfile("/dev/../dev/null"), "/l"), "/l/LCK..null");
}

TEST(LockFileOf, TellsRegistersOnTheNetworkApart) {
    Profile profile;
    profile.network = "10.0.0.7:4001";
    EXPECT_EQ(LockFileOf(profile), "/run/lock/LCK..net_10.0.0.7_4001");
}

TEST_F(DeviceLockFile, HasTheProcessIdInTenCharactersAndALineFeed) {
    const DeviceLock lock(file_);
    EXPECT_EQ(ReadWholeFile(file_), PidLine(getpid()));
}

TEST_F(DeviceLockFile, IsGoneAfterTheRelease) {
    { const DeviceLock lock(file_); }
    EXPECT_FALSE(fs::exists(file_));
    EXPECT_EQ(WhyBusy(file_), "");
}

TEST_F(DeviceLockFile, IsOpenAboveTheDescriptorsOfAChild) {
    EXPECT_GE(DeviceLock(file_).Fd(), 16);
}

TEST_F(DeviceLockFile, TellsWhoHasIt) {
    const Child holder([&] { return HoldForEver(file_); });
    ASSERT_TRUE(Appears(file_, PidLine(holder.Pid())));
    const std::string process =
        "process " + std::to_string(holder.Pid()) + " (" + program_invocation_short_name + ")";
    EXPECT_EQ(WhyBusy(file_),
              "the register is in use by " + process + " (lock file '" + file_ + "')");
    EXPECT_THAT(WhyBusy(file_, UpTo(milliseconds(250))),
                HasSubstr(process + ", waited for 0.25 s"));
}

TEST_F(DeviceLockFile, ExcludesASecondLockOfTheSameProcess) {
    const DeviceLock lock(file_);
    EXPECT_NE(WhyBusy(file_), "");
}

TEST_F(DeviceLockFile, IsTakenOverFromAHolderThatWasKilled) {
    Child holder([&] { return HoldForEver(file_); });
    ASSERT_TRUE(Appears(file_, PidLine(holder.Pid())));
    holder.Kill();
    EXPECT_TRUE(fs::exists(file_));
    const DeviceLock lock(file_);
    EXPECT_EQ(ReadWholeFile(file_), PidLine(getpid()));
}

TEST_F(DeviceLockFile, IsTakenOverEvenWhenAnotherProcessGotTheOldNumber) {
    Child holder([&] { return HoldForEver(file_); });
    ASSERT_TRUE(Appears(file_, PidLine(holder.Pid())));
    holder.Kill();
    folder_.Write("LCK..ttyUSB0", PidLine(getppid()));
    EXPECT_EQ(WhyBusy(file_), "");
}

TEST_F(DeviceLockFile, StaysWithADriverThatSurvivesItsCaller) {
    Child holder([&] { return HoldWithChild("voltis"); });
    const pid_t driver = ChildOfHolder();
    const pid_t caller = holder.Pid();
    holder.Kill();
    EXPECT_THAT(WhyBusy(file_),
                HasSubstr("by what process " + std::to_string(caller) + " has started before"));
    kill(driver, SIGKILL);
    EXPECT_EQ(WhyBusy(file_, UpTo(milliseconds(5000))), "");
}

TEST_F(DeviceLockFile, IsTakenOverFromASandboxThatWasNotFinished) {
    Child holder([&] { return HoldWithChild("bwrap"); });
    const pid_t sandbox = ChildOfHolder();
    EXPECT_THAT(WhyBusy(file_), HasSubstr("in use by process " + std::to_string(holder.Pid())));
    EXPECT_TRUE(ComesToSleep(sandbox));  // not killed, since its caller lives
    holder.Kill();
    EXPECT_EQ(WhyBusy(file_), "");
}

TEST_F(DeviceLockFile, OfALivingProgramThatKnowsNoFlockIsRespected) {
    folder_.Write("LCK..ttyUSB0", PidLine(getppid()));
    EXPECT_THAT(WhyBusy(file_), HasSubstr("process " + std::to_string(getppid())));
    folder_.Write("LCK..ttyUSB0", std::to_string(getppid()) + " minicom root\n");
    EXPECT_NE(WhyBusy(file_), "");
    EXPECT_TRUE(fs::exists(file_));
}

TEST_F(DeviceLockFile, OfADeadProgramOrWithoutSenseIsTakenOver) {
    for (const std::string& text : {PidLine(DeadPid()), std::string(), std::string("garbage"),
                                    PidLine(0), std::string(300, '9'), std::string(20, '\0')}) {
        folder_.Write("LCK..ttyUSB0", text);
        const DeviceLock lock(file_);
        EXPECT_EQ(ReadWholeFile(file_), PidLine(getpid())) << text;
    }
}

TEST_F(DeviceLockFile, IsWaitedFor) {
    auto lock = std::make_unique<DeviceLock>(file_);
    Child waiting([&] { return WhyBusy(file_, UpTo(milliseconds(20000))).empty(); });
    usleep(100000);
    lock.reset();
    EXPECT_EQ(waiting.Wait(), 0);
}

TEST_F(DeviceLockFile, IsWaitedForOnlyAsLongAsTheCallerLikes) {
    const DeviceLock lock(file_);
    LockWait wait = UpTo(milliseconds(60000));
    int asked = 0;
    wait.goOn = [&] { return ++asked < 3; };
    EXPECT_NE(WhyBusy(file_, wait), "");
    EXPECT_EQ(asked, 3);
}

TEST_F(DeviceLockFile, GoesToEachOfTwentyCallersAndNeverToTwoAtOnce) {
    const std::string inside = folder_.File("inside");
    std::vector<std::unique_ptr<Child>> callers;
    for (int i = 0; i < 20; ++i) {
        callers.push_back(std::make_unique<Child>([&] {
            const DeviceLock lock(file_, UpTo(milliseconds(30000)));
            const int alone = open(inside.c_str(), O_CREAT | O_EXCL, 0600);
            usleep(5000);
            return alone != -1 && unlink(inside.c_str()) == 0;
        }));
    }
    for (const auto& caller : callers) EXPECT_EQ(caller->Wait(), 0);
    EXPECT_FALSE(fs::exists(file_));
}

TEST_F(DeviceLockFile, SurvivesHoldersThatAreKilledAtAnyMoment) {
    for (int i = 0; i < 60; ++i) {
        Child holder([&] {
            for (;;) const DeviceLock lock(file_, UpTo(milliseconds(1000)));
            return true;
        });
        usleep(static_cast<useconds_t>(i) * 200);
        holder.Kill();
        EXPECT_EQ(WhyBusy(file_), "");
    }
}

TEST_F(DeviceLockFile, PassesFromUserToUser) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can be another user";
    chmod(folder_.Path().c_str(), 01777);
    Child holder([&] { return setuid(nobody) == 0 && HoldForEver(file_); });
    ASSERT_TRUE(Appears(file_, PidLine(holder.Pid())));
    holder.Kill();
    Child other([&] {
        if (setuid(nobody - 1) != 0) return false;
        const DeviceLock lock(file_);
        return ReadWholeFile(file_) == PidLine(getpid());
    });
    EXPECT_EQ(other.Wait(), 0);
    EXPECT_EQ(WhyBusy(file_), "");
}

TEST_F(DeviceLockFile, IsHeldByTheFlockAloneWhereAnotherUsersDeadProgramLeftIt) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can be another user";
    chmod(folder_.Path().c_str(), 01777);
    folder_.Write("LCK..ttyUSB0", PidLine(DeadPid()));
    Child other([&] {
        if (setuid(nobody) != 0) return false;
        const DeviceLock lock(file_);
        return !WhyBusy(file_).empty();
    });
    EXPECT_EQ(other.Wait(), 0);
    EXPECT_EQ(WhyBusy(file_), "");
}

TEST_F(DeviceLockFile, FollowsNoLink) {
    const std::string precious = folder_.Write("precious", "text");
    fs::create_symlink(precious, file_);
    EXPECT_THROW(const DeviceLock lock(file_), std::system_error);
    EXPECT_EQ(ReadWholeFile(precious), "text");
}

TEST_F(DeviceLockFile, NamesTheFolderThatIsMissing) {
    try {
        const DeviceLock lock("/nowhere/LCK..a");
        ADD_FAILURE() << "it exists";
    } catch (const std::system_error& failure) {
        EXPECT_STREQ(failure.what(), "lock file '/nowhere/LCK..a': No such file or directory");
    }
}

TEST_F(DeviceLockFile, LeavesAFileThatSomebodyElsePutInItsPlace) {
    {
        const DeviceLock lock(file_);
        fs::remove(file_);
        folder_.Write("LCK..ttyUSB0", PidLine(getppid()));
    }
    EXPECT_EQ(ReadWholeFile(file_), PidLine(getppid()));
}

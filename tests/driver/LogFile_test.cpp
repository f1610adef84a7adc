// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "LogFile.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <new>

#include "tests/support/Descriptors.h"
#include "tests/support/Failure.h"
#include "tests/support/InternalError.h"
#include "tests/support/ScarceMemory.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestClock.h"

namespace {

class LogFileTest : public testing::Test {
  protected:
    std::string Text() const { return ReadWholeFile(path); }
    bool Exists() const { return std::filesystem::exists(path); }

    const TempDir folder;
    const std::string path = folder.File("test.log");
};

/// No file of this process can grow beyond a size while it lives.
class FullDisk {
  public:
    explicit FullDisk(rlim_t size) {
        signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit full{size, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &full);
    }
    ~FullDisk() { setrlimit(RLIMIT_FSIZE, &before_); }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

  private:
    rlimit before_{};
};

using LogFile_Open = LogFileTest;
using LogFile_Close = LogFileTest;
using LogFile_Fragment = LogFileTest;
using LogFile_AddMessage = LogFileTest;
using LogFile_AddFile = LogFileTest;

}  // namespace

TEST_F(LogFile_Open, RefusesAnEmptyName) {
    ExpectInternalError(FailureOf([] { const LogFile log(""); }));
}

TEST_F(LogFile_Open, FailsWithTheSystemsText) {
    const std::string unreachable = folder.File("absent/test.log");
    const auto failure = FailureOf([&] { const LogFile log(unreachable); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->ErrorCode, 50);
    EXPECT_EQ(failure->Message,
              "Can't open file '" + unreachable + "' - No such file or directory");
}

TEST_F(LogFile_Open, AppendsToWhatIsThere) {
    folder.Write("test.log", "old\n");
    {
        LogFile log(path);
        log.AddMessage("new", false);
    }
    EXPECT_EQ(Text(), "old\nnew\n");
}

TEST_F(LogFile_Open, LeavesNothingOpenWhenTheMemoryIsShort) {
    std::string detour = folder.Path() + "/";
    while (detour.size() < 1000) detour += "./";
    detour += "test.log";
    const std::size_t before = OpenDescriptors();
    bool failed = false;
    {
        const ScarceMemory noRoomForTheName(500);
        try {
            const LogFile log(detour);
        } catch (const std::bad_alloc&) {
            failed = true;
        }
    }
    EXPECT_TRUE(failed);
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(LogFile_Close, ClosesTheFile) {
    const std::size_t before = OpenDescriptors();
    {
        LogFile log(path);
        EXPECT_EQ(OpenDescriptors(), before + 1);
        log.AddMessage("text", false);
    }
    { const LogFile log(path); }
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(LogFile_Close, DeletesALogThatIsEmpty) {
    { const LogFile log(path); }
    EXPECT_FALSE(Exists());
    folder.Write("test.log", "");
    { const LogFile log(path); }
    EXPECT_FALSE(Exists());
}

TEST_F(LogFile_Close, KeepsALogWithEarlierContent) {
    folder.Write("test.log", "old\n");
    { const LogFile log(path); }
    EXPECT_EQ(Text(), "old\n");
}

TEST_F(LogFile_Close, KeepsALogThatReceivedAMessage) {
    { LogFile(path).AddMessage("", false); }
    EXPECT_EQ(Text(), "\n");
}

TEST_F(LogFile_Fragment, ShrinksBackWhenDiscarded) {
    folder.Write("test.log", "old\n");
    {
        LogFile log(path);
        log.StartFragment();
        log.AddMessage("new", false);
        log.EndFragment(false);
        EXPECT_EQ(Text(), "old\n");
    }
    EXPECT_EQ(Text(), "old\n");
}

TEST_F(LogFile_Fragment, LeavesNoFileWhenTheOnlyOneIsDiscarded) {
    {
        LogFile log(path);
        log.StartFragment();
        log.AddMessage("new", false);
        log.EndFragment(false);
        EXPECT_TRUE(Exists());
    }
    EXPECT_FALSE(Exists());
}

TEST_F(LogFile_Fragment, StaysWhenSaved) {
    LogFile log(path);
    log.StartFragment();
    log.AddMessage("new", false);
    log.EndFragment(true);
    EXPECT_EQ(Text(), "new\n");
    log.EndFragment(false);  // the mark is gone
    EXPECT_EQ(Text(), "new\n");
}

TEST_F(LogFile_Fragment, GoesWithTheOuterOne) {
    LogFile log(path);
    log.AddMessage("before", false);
    log.StartFragment();
    log.AddMessage("outer", false);
    log.StartFragment();
    log.AddMessage("inner", false);
    log.EndFragment(true);
    EXPECT_EQ(Text(), "before\nouter\ninner\n");
    log.EndFragment(false);
    EXPECT_EQ(Text(), "before\n");
}

TEST_F(LogFile_Fragment, DiscardsTheInnerOneAlone) {
    LogFile log(path);
    log.StartFragment();
    log.AddMessage("outer", false);
    log.StartFragment();
    log.AddMessage("inner", false);
    log.EndFragment(false);
    log.AddMessage("after", false);
    log.EndFragment(true);
    EXPECT_EQ(Text(), "outer\nafter\n");
}

TEST_F(LogFile_Fragment, EndsHarmlesslyWhenNoneIsOpen) {
    LogFile log(path);
    log.AddMessage("kept", false);
    log.EndFragment(false);
    log.EndFragment(true);
    EXPECT_EQ(Text(), "kept\n");
}

TEST_F(LogFile_AddMessage, PutsTheTimeInFront) {
    StopClockAt(1794751062, 80000);
    LogFile(path).AddMessage("text", true);
    EXPECT_EQ(Text(), "15.11.2026 13:57:42.080  text\n");
}

TEST_F(LogFile_AddMessage, FillsEveryPartOfTheTimeUpWithZeros) {
    StopClockAt(1767322984, 7999);
    EXPECT_EQ(LogFile(path).GetCurTime(), "02.01.2026 03:03:04.007");
}

TEST_F(LogFile_AddMessage, GivesTwoMessagesOfOneMillisecondTheSameTime) {
    StopClockAt(1794751062, 80000);
    LogFile log(path);
    log.AddMessage("a", true);
    log.AddMessage("b", true);
    EXPECT_EQ(Text(), "15.11.2026 13:57:42.080  a\n15.11.2026 13:57:42.080  b\n");
}

TEST_F(LogFile_AddMessage, TakesPercentSignsAndLongTextAsTheyAre) {
    const std::string text = "100 %s%n " + std::string(5000, 'x');
    LogFile(path).AddMessage(text, false);
    EXPECT_EQ(Text(), text + "\n");
}

TEST_F(LogFile_AddMessage, WritesWhatFollowsANulByte) {
    using namespace std::string_literals;
    LogFile log(path);
    log.AddMessage("a\0b"s, false);
    log.AddMessage("\0"s, false);
    EXPECT_EQ(Text(), "a\0b\n\0\n"s);
}

TEST_F(LogFile_AddMessage, IsInTheFileAtOnce) {
    LogFile log(path);
    log.AddMessage("a", false);
    EXPECT_EQ(Text(), "a\n");
    log.AddMessage("b", false);
    EXPECT_EQ(Text(), "a\nb\n");
}

TEST_F(LogFile_AddMessage, DoesNotLookAtWriteErrors) {
    folder.Write("test.log", "old\n");
    LogFile log(path);
    {
        const FullDisk full(4);
        EXPECT_FALSE(FailureOf([&] { log.AddMessage("there is no room for this", true); }));
    }
    EXPECT_EQ(Text(), "old\n");
}

TEST_F(LogFile_Fragment, EndsCleanlyAfterAFullDisk) {
    folder.Write("test.log", "old\n");
    LogFile log(path);
    log.StartFragment();
    {
        const FullDisk full(4);
        log.AddMessage("there is no room for this", false);
    }
    log.EndFragment(false);
    log.AddMessage("next", false);
    EXPECT_EQ(Text(), "old\nnext\n");
}

TEST_F(LogFile_AddFile, CopiesLinesAfterATab) {
    const std::string source = folder.Write("cmd.txt", "SALE: DEPTNR=1; PRICE=1.00\r\nTOTAL:");
    LogFile(path).AddFile(source);
    EXPECT_EQ(Text(), "\tSALE: DEPTNR=1; PRICE=1.00\n\tTOTAL:\n");
}

TEST_F(LogFile_AddFile, KeepsLeadingBlanksAndDropsTrailingOnes) {
    const std::string source = folder.Write("cmd.txt", "  X  \r");
    LogFile(path).AddFile(source);
    EXPECT_EQ(Text(), "\t  X\n");
}

TEST_F(LogFile_AddFile, SkipsBlankLines) {
    const std::string source = folder.Write("cmd.txt", "\n  \t\r\n\r\n ");
    LogFile log(path);
    log.AddFile(source);
    EXPECT_EQ(Text(), "");
}

TEST_F(LogFile_AddFile, CopiesNulBytes) {
    using namespace std::string_literals;
    LogFile(path).AddFile(folder.Write("cmd.txt", "SALE: DEP\0TNR 1\nEXIT\n"s));
    EXPECT_EQ(Text(), "\tSALE: DEP\0TNR 1\n\tEXIT\n"s);
}

TEST_F(LogFile_AddFile, CopiesAFileThatDoesNotTellItsSize) {
    const std::string source = "/proc/sys/kernel/ostype";
    ASSERT_EQ(std::filesystem::file_size(source), 0u);
    LogFile(path).AddFile(source);
    EXPECT_EQ(Text(), "\tLinux\n");
}

TEST_F(LogFile_AddFile, ClosesTheFileInEveryCase) {
    LogFile log(path);
    const std::size_t before = OpenDescriptors();
    log.AddFile(folder.Write("cmd.txt", "EXIT\n"));
    log.AddFile(path);
    log.AddFile(folder.Path());
    FailureOf([&] { log.AddFile(folder.File("absent")); });
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(LogFile_AddFile, RefusesAnEmptyName) {
    LogFile log(path);
    ExpectInternalError(FailureOf([&] { log.AddFile(""); }));
}

TEST_F(LogFile_AddFile, FailsWithTheSystemsTextForAMissingFile) {
    LogFile log(path);
    const auto failure = FailureOf([&] { log.AddFile(folder.File("absent")); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->ErrorCode, 50);
    EXPECT_EQ(failure->Message,
              "Can't open file '" + folder.File("absent") + "' - No such file or directory");
}

TEST_F(LogFile_AddFile, IgnoresAReadError) {
    LogFile log(path);
    EXPECT_FALSE(FailureOf([&] { log.AddFile(folder.Path()); }));
    EXPECT_EQ(Text(), "");
}

TEST_F(LogFile_AddFile, CopiesNothingButARegularFile) {
    const std::string pipe = folder.File("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    LogFile log(path);
    log.AddFile(pipe);  // nothing writes into it: opening it would wait for ever
    log.AddFile("/dev/zero");
    EXPECT_EQ(Text(), "");
}

TEST_F(LogFile_AddFile, EndsWhenTheLogIsCopiedIntoItself) {
    LogFile log(path);
    log.AddMessage("a", false);
    log.AddMessage("b", false);
    log.AddFile(path);
    EXPECT_EQ(Text(), "a\nb\n\ta\n\tb\n");
}

TEST_F(LogFile_AddFile, EndsWhenTheLogIsCopiedIntoItselfByAnotherName) {
    LogFile log(path);
    log.AddMessage("a", false);
    std::filesystem::create_hard_link(path, folder.File("other.log"));
    log.AddFile(folder.File("other.log"));
    EXPECT_EQ(Text(), "a\n\ta\n");
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Runs in a sandbox with an /etc/voltis and a /var/log/voltis of its own: see
// support/SandboxMain.cpp.
#include "AppController.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "Globals.h"
#include "IniFile.h"
#include "tests/support/Failure.h"
#include "tests/support/InternalError.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestClock.h"

// The test counts these calls and decides whether they succeed.
extern "C" ssize_t __real_readlink(const char* path, char* target, std::size_t size);

namespace {

int linksRead = 0;
bool noLinks = false;

}  // namespace

extern "C" ssize_t __wrap_readlink(const char* path, char* target, std::size_t size) {
    ++linksRead;
    if (!noLinks) return __real_readlink(path, target, size);
    errno = EACCES;
    return -1;
}

namespace {

constexpr char iniPath[] = "/etc/voltis/voltis.ini";
constexpr char stdLogPath[] = "/var/log/voltis/voltis.log";
constexpr char dbgLogPath[] = "/var/log/voltis/dbgerror.log";

constexpr char startLines[] =
    "\n"
    "15.11.2026 13:57:42.080  VOLTIS v2.5.0 started. Command line : \"voltis\" cmd.txt\n";
constexpr char savedLine[] = "15.11.2026 13:57:42.080  Debug information saved in dbgerror.log\n";

class AppControllerTest : public testing::Test {
  protected:
    void SetUp() override {
        StopClockAt(1794751062, 80000);
        std::filesystem::remove_all(stdLogPath);
        std::filesystem::remove_all(dbgLogPath);
        noErrors = true;
        State = STATE_READY;
        IniFile::SetFile(iniPath, false);
        IniFile::SetSection("VOLTIS", false);
        LevelsAre(0, 0);
    }
    void TearDown() override { AppController::Stop(); }

    static void LevelsAre(int standard, int debug) {
        std::ofstream(iniPath) << "[VOLTIS]\nStandardLog=" << standard << "\nDbgErrorLog=" << debug
                               << "\n";
    }
    static void Start() {
        AppController::Start(DriverName, DriverVersion, DriverDescription, "\"voltis\" cmd.txt");
    }
    /// A whole run with these levels.
    static void Run(int standard, int debug, bool withError) {
        LevelsAre(standard, debug);
        Start();
        noErrors = !withError;
        AppController::Stop();
    }
    static std::string StdLog() { return ReadWholeFile(stdLogPath); }
    static std::string DbgLog() { return ReadWholeFile(dbgLogPath); }
    static bool Exists(const char* path) { return std::filesystem::exists(path); }
};

using AppController_Start = AppControllerTest;
using AppController_Stop = AppControllerTest;
using AppController_LogMessage = AppControllerTest;
using AppController_LogFileData = AppControllerTest;
using AppController_ShowMessage = AppControllerTest;
using AppController_DebugFrame = AppControllerTest;
using AppController_SaveLog = AppControllerTest;
using AppController_Folders = AppControllerTest;

}  // namespace

TEST_F(AppController_Start, WritesAnEmptyLineAndTheStartLineToBothLogs) {
    Start();
    EXPECT_EQ(StdLog(), startLines);
    EXPECT_EQ(DbgLog(), startLines);
}

TEST_F(AppController_Start, AppendsToTheLogs) {
    std::ofstream(stdLogPath) << "old\n";
    Start();
    EXPECT_EQ(StdLog(), std::string("old\n") + startLines);
}

TEST_F(AppController_Start, StaysStoppedWhenTheStandardLogCannotBeOpened) {
    std::filesystem::create_directory(stdLogPath);
    const auto failure = FailureOf([] { Start(); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->ErrorCode, 50);
    EXPECT_EQ(failure->Message, "Can't open file '/var/log/voltis/voltis.log' - Is a directory");
    EXPECT_FALSE(Exists(dbgLogPath));
}

TEST_F(AppController_Start, LeavesNothingWhenTheDebugLogCannotBeOpened) {
    std::filesystem::create_directory(dbgLogPath);
    const auto failure = FailureOf([] { Start(); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->ErrorCode, 50);
    EXPECT_EQ(failure->Message, "Can't open file '/var/log/voltis/dbgerror.log' - Is a directory");
    EXPECT_FALSE(Exists(stdLogPath));
    AppController::LogMessage(STD_LOG, "dropped", false);
    EXPECT_FALSE(Exists(stdLogPath));
}

TEST_F(AppController_Stop, LeavesNoLogWithTheDefaultLevels) {
    std::filesystem::remove(iniPath);
    Start();
    noErrors = false;
    AppController::Stop();
    EXPECT_FALSE(Exists(stdLogPath));
    EXPECT_FALSE(Exists(dbgLogPath));
}

TEST_F(AppController_Stop, CutsBothLogsBackAfterASuccessWithDebugLevel1) {
    std::ofstream(stdLogPath) << "old standard\n";
    std::ofstream(dbgLogPath) << "old debug\n";
    Run(0, 1, false);
    EXPECT_EQ(StdLog(), "old standard\n");
    EXPECT_EQ(DbgLog(), "old debug\n");
}

TEST_F(AppController_Stop, KeepsTheDebugLogOnlyAfterAnErrorWithDebugLevel1) {
    std::ofstream(stdLogPath) << "old standard\n";
    Run(0, 1, true);
    EXPECT_EQ(StdLog(), "old standard\n");
    EXPECT_EQ(DbgLog(), startLines);
}

TEST_F(AppController_Stop, EndsTheStandardLogWithAHintAtTheDebugLog) {
    Run(1, 1, true);
    EXPECT_EQ(StdLog(), std::string(startLines) + savedLine);
    EXPECT_EQ(DbgLog(), startLines);
}

TEST_F(AppController_Stop, KeepsTheStandardLogAloneAfterASuccess) {
    Run(1, 1, false);
    EXPECT_EQ(StdLog(), startLines);
    EXPECT_FALSE(Exists(dbgLogPath));
}

TEST_F(AppController_Stop, KeepsTheDebugLogOfEveryRunWithDebugLevel2) {
    Run(0, 2, false);
    Run(0, 2, true);
    EXPECT_EQ(DbgLog(), std::string(startLines) + startLines);
    EXPECT_FALSE(Exists(stdLogPath));
}

TEST_F(AppController_Stop, IsHarmlessWhenNotStarted) {
    AppController::Stop();
    AppController::Stop();
    EXPECT_FALSE(Exists(stdLogPath));
}

TEST_F(AppController_LogMessage, GoesToTheLogsOfTheType) {
    Start();
    AppController::LogMessage(STD_LOG, "standard", false);
    AppController::LogMessage(DBG_LOG, "debug", true);
    AppController::LogMessage(ALL_LOGS, "both", false);
    EXPECT_EQ(StdLog(), std::string(startLines) + "standard\nboth\n");
    EXPECT_EQ(DbgLog(), std::string(startLines) + "15.11.2026 13:57:42.080  debug\nboth\n");
}

TEST_F(AppController_LogMessage, IsDroppedBeforeStartAndAfterStop) {
    AppController::LogMessage(ALL_LOGS, "early", false);
    AppController::LogFileData(ALL_LOGS, "no such file");
    EXPECT_FALSE(Exists(stdLogPath));
    Run(1, 2, false);
    const std::string standard = StdLog();
    const std::string debug = DbgLog();
    AppController::LogMessage(ALL_LOGS, "late", false);
    AppController::LogFileData(ALL_LOGS, "no such file");
    EXPECT_EQ(StdLog(), standard);
    EXPECT_EQ(DbgLog(), debug);
}

TEST_F(AppController_LogFileData, CopiesTheFileToTheLogsOfTheType) {
    const TempDir folder;
    const std::string file = folder.Write("cmd.txt", "EXIT\r\n\n");
    Start();
    AppController::LogFileData(DBG_LOG, file);
    EXPECT_EQ(StdLog(), startLines);
    EXPECT_EQ(DbgLog(), std::string(startLines) + "\tEXIT\n");
    AppController::LogFileData(STD_LOG, file);
    EXPECT_EQ(StdLog(), std::string(startLines) + "\tEXIT\n");
    EXPECT_EQ(DbgLog(), std::string(startLines) + "\tEXIT\n");
    AppController::LogFileData(ALL_LOGS, file);
    EXPECT_EQ(StdLog(), std::string(startLines) + "\tEXIT\n\tEXIT\n");
    EXPECT_EQ(DbgLog(), std::string(startLines) + "\tEXIT\n\tEXIT\n");
}

TEST_F(AppController_ShowMessage, PrintsTheTextUnchanged) {
    testing::internal::CaptureStdout();
    AppController::ShowMessage("50 %s\nno newline");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "50 %s\nno newline");
}

TEST_F(AppController_ShowMessage, PrintsWhatFollowsANulByte) {
    using namespace std::string_literals;
    testing::internal::CaptureStdout();
    AppController::ShowMessage("a\0b"s);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "a\0b"s);
}

TEST_F(AppController_ShowMessage, RefusesAnEmptyText) {
    ExpectInternalError(FailureOf([] { AppController::ShowMessage(""); }));
}

TEST_F(AppController_DebugFrame, IsCutOffAgainWhenAllWentWell) {
    LevelsAre(0, 1);
    Start();
    noErrors = false;  // a frame does not look at it
    AppController::StartDebugFrame();
    AppController::LogMessage(DBG_LOG, "frame", false);
    AppController::EndDebugFrame();
    EXPECT_EQ(DbgLog(), startLines);
}

TEST_F(AppController_DebugFrame, StaysWhenTheStateIsNotReady) {
    LevelsAre(0, 1);
    Start();
    State = STATE_EXECUTE;
    AppController::StartDebugFrame();
    AppController::LogMessage(DBG_LOG, "frame", false);
    AppController::EndDebugFrame();
    EXPECT_EQ(DbgLog(), std::string(startLines) + "frame\n");
}

TEST_F(AppController_DebugFrame, FollowsTheOtherLevels) {
    LevelsAre(0, 2);
    Start();
    AppController::StartDebugFrame();
    AppController::LogMessage(DBG_LOG, "kept", false);
    AppController::EndDebugFrame();
    EXPECT_EQ(DbgLog(), std::string(startLines) + "kept\n");
    AppController::Stop();
    std::filesystem::remove(dbgLogPath);

    LevelsAre(0, 0);
    Start();
    State = STATE_EXECUTE;
    AppController::StartDebugFrame();
    AppController::LogMessage(DBG_LOG, "lost", false);
    AppController::EndDebugFrame();
    EXPECT_EQ(DbgLog(), startLines);
}

TEST_F(AppController_DebugFrame, EndsHarmlesslyWhenNoneIsOpen) {
    Start();
    AppController::EndDebugFrame();
    EXPECT_EQ(DbgLog(), startLines);
}

TEST_F(AppController_DebugFrame, DoesNothingWhenNotStarted) {
    AppController::StartDebugFrame();
    AppController::EndDebugFrame();
    Start();
    AppController::EndDebugFrame();
    EXPECT_EQ(DbgLog(), startLines);
}

TEST_F(AppController_SaveLog, FollowsTheStandardLevel) {
    for (const auto& [level, kept] : {std::pair{0, false}, {1, true}, {-1, true}}) {
        LevelsAre(level, 0);
        Start();
        EXPECT_EQ(AppController::SaveLog(STD_LOG), kept) << level;
        AppController::Stop();
    }
}

TEST_F(AppController_SaveLog, FollowsTheDebugLevelAndErrors) {
    struct Row {
        int level;
        bool keptWithoutError;
        bool keptWithError;
    };
    for (const Row& row :
         {Row{0, false, false}, {1, false, true}, {2, true, true}, {-1, true, true}}) {
        LevelsAre(0, row.level);
        Start();
        noErrors = true;
        EXPECT_EQ(AppController::SaveLog(DBG_LOG), row.keptWithoutError) << row.level;
        noErrors = false;
        EXPECT_EQ(AppController::SaveLog(DBG_LOG), row.keptWithError) << row.level;
        AppController::Stop();
    }
}

TEST_F(AppController_SaveLog, RefusesAnyOtherType) {
    ExpectInternalError(FailureOf([] { AppController::SaveLog(ALL_LOGS); }));
    ExpectInternalError(FailureOf([] { AppController::SaveLog(static_cast<LogType>(0)); }));
}

TEST_F(AppController_Folders, KnowsTheFolderOfTheProgram) {
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
    EXPECT_EQ(AppController::GetAppDir(), program.parent_path().string() + "/");
    EXPECT_EQ(AppController::GetAppDir(), program.parent_path().string() + "/");
}

TEST_F(AppController_Folders, KnowsTheWorkingFolder) {
    const TempDir folder;
    ASSERT_EQ(chdir(folder.Path().c_str()), 0);
    EXPECT_EQ(AppController::GetCurDir(), folder.Path());
    ASSERT_EQ(chdir("/"), 0);
    EXPECT_EQ(AppController::GetCurDir(), "/");
}

TEST_F(AppController_Folders, LooksForTheProgramOnceUntilItStops) {
    linksRead = 0;
    const std::string folder = AppController::GetAppDir();
    EXPECT_EQ(AppController::GetAppDir(), folder);
    EXPECT_EQ(linksRead, 1);
    AppController::Stop();  // also without a start
    EXPECT_EQ(AppController::GetAppDir(), folder);
    EXPECT_EQ(linksRead, 2);
}

TEST_F(AppController_Folders, FailsWithTheSystemsTextWhenTheProgramCannotBeFound) {
    noLinks = true;
    const auto failure = FailureOf([] { AppController::GetAppDir(); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->ErrorCode, 50);
    EXPECT_EQ(failure->Message, "readlink() failed - Permission denied");
    noLinks = false;
    EXPECT_NE(AppController::GetAppDir(), "");  // a failure is not remembered
}

TEST_F(AppController_Folders, HasNoWorkingFolderWhenItWasRemoved) {
    {
        const TempDir folder;
        ASSERT_EQ(chdir(folder.Path().c_str()), 0);
    }
    EXPECT_EQ(AppController::GetCurDir(), "");
    ASSERT_EQ(chdir("/"), 0);
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "AppController.h"

#include <unistd.h>

#include <cstdio>
#include <memory>

#include "Common.h"
#include "DriverException.h"
#include "Globals.h"
#include "IniFile.h"

namespace {

constexpr std::size_t pathBufferSize = 4096;

/// The meaning of the debug log's level; afterError: something went wrong.
bool KeepsDebugText(int level, bool afterError) {
    return level != 0 && (level != 1 || afterError);
}

}  // namespace

std::string AppController::appName;
std::string AppController::appVersion;
std::string AppController::appDescription;
std::string AppController::appDirectory;
int AppController::stdLogLevel = defaultStdLogLevel;
int AppController::dbgLogLevel = defaultDbgLogLevel;
LogFile* AppController::stdLog = nullptr;
LogFile* AppController::dbgLog = nullptr;
bool AppController::started = false;
int AppController::dbgFrameCount = 0;

void AppController::Start(const std::string& name, const std::string& version,
                          const std::string& description, const std::string& commandLine) {
    appName = name;
    appVersion = version;
    appDescription = description;
    stdLogLevel = IniFile::GetNumber("StandardLog", defaultStdLogLevel);
    dbgLogLevel = IniFile::GetNumber("DbgErrorLog", defaultDbgLogLevel);

    auto standard = std::make_unique<LogFile>(Path::Combine(linuxLogDirPath, stdLogFileName));
    auto debug = std::make_unique<LogFile>(Path::Combine(linuxLogDirPath, dbgLogFileName));
    debug->StartFragment();
    standard->StartFragment();
    dbgLog = debug.release();
    stdLog = standard.release();
    started = true;

    LogMessage(ALL_LOGS, "", false);
    LogMessage(ALL_LOGS, name + " v" + version + " started. Command line : " + commandLine, true);
}

void AppController::Stop() {
    appDirectory.clear();
    appDescription.clear();
    appVersion.clear();
    appName.clear();
    if (started) {
        if (SaveLog(DBG_LOG)) {
            try {
                LogMessage(STD_LOG, "Debug information saved in dbgerror.log", true);
            } catch (...) {  // without memory for a note, the logs are still to be closed
            }
        }
        dbgLog->EndFragment(SaveLog(DBG_LOG));
        stdLog->EndFragment(SaveLog(STD_LOG));
        delete dbgLog;
        delete stdLog;
        dbgLog = nullptr;
        stdLog = nullptr;
    }
    started = false;
}

void AppController::LogMessage(LogType type, const std::string& message, bool addTime) {
    if (!started) return;
    if (type & STD_LOG) stdLog->AddMessage(message, addTime);
    if (type & DBG_LOG) dbgLog->AddMessage(message, addTime);
}

void AppController::LogFileData(LogType type, const std::string& fileName) {
    if (!started) return;
    if (type & STD_LOG) stdLog->AddFile(fileName);
    if (type & DBG_LOG) dbgLog->AddFile(fileName);
}

void AppController::ShowMessage(const std::string& message) {
    if (message.empty()) FailInternal();
    fwrite(message.data(), 1, message.size(), stdout);
    fflush(stdout);
}

void AppController::StartDebugFrame() {
    if (!started) return;
    dbgLog->StartFragment();
    ++dbgFrameCount;
}

void AppController::EndDebugFrame() {
    if (!started || dbgFrameCount == 0) return;
    // Deliberate: a frame looks at the state of the run, the run's own fragment at noErrors; see
    // the suite AppController_DebugFrame.
    dbgLog->EndFragment(KeepsDebugText(dbgLogLevel, State != STATE_READY));
    --dbgFrameCount;
}

std::string AppController::GetAppDir() {
    if (appDirectory.empty()) {
        char target[pathBufferSize];
        const ssize_t length = readlink("/proc/self/exe", target, sizeof target);
        if (length < 0) FailSystem("readlink() failed");
        appDirectory =
            Path::GetDirectoryName(std::string(target, static_cast<std::size_t>(length)));
    }
    return appDirectory;
}

std::string AppController::GetCurDir() {
    char folder[pathBufferSize];
    return getcwd(folder, sizeof folder) != nullptr ? folder : "";
}

bool AppController::SaveLog(LogType type) {
    switch (type) {
        case STD_LOG:
            return stdLogLevel != 0;
        case DBG_LOG:
            return KeepsDebugText(dbgLogLevel, !noErrors);
        default:
            FailInternal();
    }
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// AppController: the process-wide owner of the two logs and of the program's identity.
#pragma once

#include <string>

#include "LogFile.h"

class AppController {
  public:
    /// Opens both logs and starts this run's fragment in each. A log that cannot be opened raises
    /// 50 and leaves the controller stopped.
    static void Start(const std::string& name, const std::string& version,
                      const std::string& description, const std::string& commandLine);
    /// Keeps or cuts back each log by its level, closes both. Harmless when not started.
    static void Stop();

    /// These two do nothing unless started.
    static void LogMessage(LogType type, const std::string& message, bool addTime);
    static void LogFileData(LogType type, const std::string& fileName);

    /// To standard output, unchanged. An empty message raises 99.
    static void ShowMessage(const std::string& message);

    /// A nested fragment of the debug log.
    static void StartDebugFrame();
    static void EndDebugFrame();

    /// The directory of the running program. Raises 50 "readlink() failed - <system text>".
    static std::string GetAppDir();
    /// Empty when the system cannot tell it in 4095 bytes.
    static std::string GetCurDir();

    /// Whether this run's fragment of STD_LOG or DBG_LOG is kept; any other value raises 99.
    static bool SaveLog(LogType type);

  private:
    static std::string appName;
    static std::string appVersion;
    static std::string appDescription;
    static std::string appDirectory;
    static int stdLogLevel;  ///< 0: never kept
    static int dbgLogLevel;  ///< 0: never kept, 1: kept after an error, other: always kept
    static LogFile* stdLog;
    static LogFile* dbgLog;
    static bool started;
    static int dbgFrameCount;
};

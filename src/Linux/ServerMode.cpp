// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "Linux/ServerMode.h"

#include "AppController.h"
#include "Globals.h"

void ExecuteServerMode(const std::string& cmdFile, const std::string& resultFile, bool compatible) {
    serverMode = true;
    if (compatible) {
        RunOldServerMode(cmdFile, resultFile);
    } else {
        RunNewServerMode(cmdFile, resultFile);
    }
}

void RunNewServerMode(const std::string&, const std::string&) {
    AppController::LogMessage(DBG_LOG, "Server mode started", true);
    AppController::LogMessage(DBG_LOG, "Server mode finished", true);
}

void RunOldServerMode(const std::string&, const std::string&) {
    AppController::LogMessage(DBG_LOG, "Old server mode started", true);
    AppController::LogMessage(DBG_LOG, "Old server mode finished", true);
}

void ParseFilePath(const std::string& path, std::string& directory, std::string& fileName) {
    const std::size_t slash = path.rfind('/');
    const bool found = slash != std::string::npos;
    directory = found ? path.substr(0, slash) : std::string();
    fileName = found ? path.substr(slash + 1) : path;
}

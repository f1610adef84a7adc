// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The entry: the command line, the run of one command file, and the exit code.
#pragma once

#include <string>

/// One complete run of a command file; every DriverException of the run ends in the result file and
/// the logs. An empty resultFile means that none is written.
void Execute(const std::string& cmdFile, const std::string& resultFile);
/// A file that cannot be created or written completely is only logged.
void CreateResultFile(const std::string& fileName, const std::string& text);

/// The program path in double quotes and the arguments as they are, for the log.
std::string GetCommandLine(int argc, char* argv[]);
void ShowUsage();

/// The process's exit code by State: 0, 1, 2 or 101. A State that does not exist raises 99.
int GetPRC();
/// Closes the logs, removes this run's marker and ends the process with GetPRC().
[[noreturn]] void ExitDriver();

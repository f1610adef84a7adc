// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Server mode: on this platform only its start and its end are logged.
#pragma once

#include <string>

/// compatible selects the variant of /S2. Reads no command file and writes no result file.
void ExecuteServerMode(const std::string& cmdFile, const std::string& resultFile, bool compatible);
void RunNewServerMode(const std::string& cmdFile, const std::string& resultFile);
void RunOldServerMode(const std::string& cmdFile, const std::string& resultFile);

/// Splits at the last "/", which belongs to neither part; without one, directory is empty.
void ParseFilePath(const std::string& path, std::string& directory, std::string& fileName);

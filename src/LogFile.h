// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// LogFile: an append-only text log whose latest lines can be cut off again.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <string>
#include <vector>

/// One bit per log of the driver.
enum LogType { STD_LOG = 1, DBG_LOG = 2, ALL_LOGS = STD_LOG | DBG_LOG };

/// Every message is flushed, so that the file is complete even if the process dies. Write errors
/// are not looked at: a full disk must not stop a sale.
class LogFile {
  public:
    /// Opens for appending. Raises 99 for an empty name, 50 "Can't open file '<name>' - <system
    /// text>".
    explicit LogFile(const std::string& filename);
    /// A log that is empty is deleted.
    ~LogFile();
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    /// Fragments nest.
    void StartFragment();
    /// Not saved: the file shrinks back to where the innermost fragment began. No open fragment: no
    /// effect.
    void EndFragment(bool saveFragment);
    void AddMessage(const std::string& message, bool addTime);
    /// Copies the lines of a text file that are not blank, each after a tab; of the log itself, as
    /// far as it reaches at the call. Copies nothing of what is no regular file: a pipe may never
    /// end. Raises like the constructor when the file cannot be opened; a read error ends the copy.
    void AddFile(const std::string& filename);
    /// "dd.mm.yyyy hh:mm:ss.mmm", local time.
    std::string GetCurTime();

  private:
    FILE* log = nullptr;
    std::vector<off_t> fragments;
    std::string filename;
};

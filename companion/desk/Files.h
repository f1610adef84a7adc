// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Files of the desk's; whatever cannot be done is a std::runtime_error that names the file.
#pragma once

#include <optional>
#include <string>

namespace desk {

/// All bytes of a regular file of at most 64 MB; nothing when there is none.
std::optional<std::string> ReadIfAny(const std::string& path);

/// The same of whatever can be read, a pipe for instance, up to its end.
std::optional<std::string> ReadStreamIfAny(const std::string& path);

/// Puts a file with these bytes in the place of what was there, whole or not at all: a power
/// failure leaves the one or the other, and perhaps an unfinished one beside it. A symbolic link
/// stays one. One program at a time may do it.
void ReplaceFile(const std::string& path, const std::string& bytes);
/// Removes the unfinished file of a ReplaceFile that was killed.
void RemoveUnfinished(const std::string& path);

/// Keeps a file for this program as long as it lives, by a file beside it (".lock") that another
/// program of ours finds locked. What a killed program leaves of it is in nobody's way.
class FileLock {
  public:
    /// std::runtime_error also when another one has it.
    explicit FileLock(const std::string& path);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

  private:
    std::string lock_;
    int fd_ = -1;
};

}  // namespace desk

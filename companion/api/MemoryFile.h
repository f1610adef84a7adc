// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A file for what takes the name of one, without a folder.
#pragma once

#include <string>

namespace api {

class MemoryFile {
  public:
    /// With these bytes. std::runtime_error: it cannot be made.
    explicit MemoryFile(const std::string& bytes);
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    /// For this process, as long as this lives.
    const std::string& Path() const { return path_; }

  private:
    int fd_;
    std::string path_;
};

}  // namespace api

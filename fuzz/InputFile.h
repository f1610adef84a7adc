// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A file that holds the input, without touching a disk.
#pragma once

#include <string>

class InputFile {
  public:
    InputFile();
    /// The file holds exactly these bytes now.
    void Hold(const std::string& bytes) const;
    const std::string& Path() const { return path; }

  private:
    int fd;
    std::string path;
};

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The lines of a command file as the driver reads them: one after the other, twice.
#pragma once

#include <cstdio>
#include <stdexcept>
#include <string>

#include "Common.h"

namespace check {

/// A file that cannot be opened or read; the message is the driver's.
class FileError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct Line {
    std::string text;
    int number = 0;          // as the driver counts: a piece of a long line is one, too
    bool pieceOf = false;    // goes on with the line before
    bool hasPieces = false;  // the next piece goes on with it
    /// Neither blank nor a remark.
    bool IsCommand() const;
};

class Lines {
  public:
    /// "-" is standard input. What cannot be read twice is copied to a file that has no name.
    /// FileError here and below.
    explicit Lines(const std::string& fileName);

    /// False at the end.
    bool Next(Line& line);

    /// A place between two lines.
    struct Mark {
        long offset = 0;      // in the file
        int number = 0;       // of the line before
        bool inLine = false;  // which has no line feed
    };
    const Mark& Here() const { return here_; }
    void GoTo(const Mark& mark);

  private:
    std::string name_;
    File file_;
    Mark here_;
};

}  // namespace check

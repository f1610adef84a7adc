// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// FiscalCommandFile: all commands of one command file, or a failure; never a part of them.
#pragma once

#include <string>
#include <vector>

#include "FiscalCommand.h"

class FiscalCommandFile {
  public:
    /// Reads the whole file. Raises 50 and 1:
    ///   "Can't open file '<name>' - <system text>"
    ///   "Can't read file '<name>' - <system text>"
    ///   "<message of FiscalCommand> (file : '<name>' line : <n>)"
    explicit FiscalCommandFile(const std::string& fileName);

    int GetCommandCount() const;
    /// A copy. An index out of range raises 99, here and below.
    FiscalCommand GetCommand(int index) const;
    /// The physical line of the command, from 1.
    int GetCommandLineNumber(int index) const;

    const std::string FileName;

  private:
    std::vector<FiscalCommand> commands;
    std::vector<int> commandLineNumbers;
};

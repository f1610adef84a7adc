// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "FiscalCommandFile.h"

#include <cstdio>

#include "Common.h"
#include "DriverException.h"
#include "Globals.h"

FiscalCommandFile::FiscalCommandFile(const std::string& fileName) : FileName(fileName) {
    const File file(fopen(fileName.c_str(), "rt"));
    if (!file) FailSystem("Can't open file '" + fileName + "'");
    int lineNumber = 1;
    try {
        std::string line;
        for (; GetLine(file.get(), line); ++lineNumber) {
            const std::size_t begin = line.find_first_not_of(" \t\r\n");
            if (begin == std::string::npos || line[begin] == '#') continue;
            commands.emplace_back(line);  // which trims it
            commandLineNumbers.push_back(lineNumber);
        }
        // Half a file must never be executed.
        if (ferror(file.get())) FailSystem("Can't read file '" + fileName + "'");
    } catch (DriverException* failure) {
        // Deliberate: blanks before both colons, unlike in a failure's own place in the sources;
        // and the flag alone decides, so that a read error gets a line, too, when it is set
        // already. See the suite FiscalCommandFile_Read.
        if (cmdError) {
            failure->Message +=
                " (file : '" + fileName + "' line : " + std::to_string(lineNumber) + ")";
        }
        throw;
    }
}

int FiscalCommandFile::GetCommandCount() const {
    return static_cast<int>(commands.size());
}

FiscalCommand FiscalCommandFile::GetCommand(int index) const {
    if (index < 0 || index >= GetCommandCount()) FailInternal();
    return commands[static_cast<std::size_t>(index)];
}

int FiscalCommandFile::GetCommandLineNumber(int index) const {
    if (index < 0 || index >= GetCommandCount()) FailInternal();
    return commandLineNumbers[static_cast<std::size_t>(index)];
}

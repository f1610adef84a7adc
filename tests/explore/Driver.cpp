// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/explore/Driver.h"

#include "FiscalCommandProcessor.h"
#include "Globals.h"
#include "IniFile.h"
#include "VOLTIS.h"

namespace explore {

DriverEnd RunDriver(const RunFiles& files) {
    DriverEnd end;
    IniFile::SetFile(files.ini, false);
    IniFile::SetSection(sectionName, false);
    try {
        FiscalCommandProcessor_Initialize();
        Execute(files.command, files.result);
    } catch (...) {
        end.escaped = true;
    }
    end.exitCode = GetPRC();
    return end;
}

}  // namespace explore

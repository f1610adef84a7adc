// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the tests of the register link have in common.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "EcrLink.h"
#include "Globals.h"
#include "IniFile.h"
#include "tests/support/Failure.h"
#include "tests/support/RecordedLog.h"
#include "tests/support/TempDir.h"

/// A configuration file with these lines in the driver's section.
class Configuration {
  public:
    explicit Configuration(const std::string& lines) {
        IniFile::SetFile(dir.Write("voltis.ini", "[VOLTIS]\n" + lines), true);
        IniFile::SetSection(sectionName, true);
    }

  private:
    TempDir dir;
};

/// The failure's code and message; "" for none.
inline std::string CodeAndMessage(const std::unique_ptr<DriverException>& failure) {
    return failure ? std::to_string(failure->ErrorCode) + " " + failure->Message : "";
}

/// The six I/O statistics.
struct Statistics {
    int sent = 0;
    int received = 0;
    int bsy = 0;
    int nak = 0;
    int lost = 0;
    int garbage = 0;

    bool operator==(const Statistics&) const = default;
};

inline Statistics Counted() {
    return {framesSend, framesReceived, bsyCount, nakCount, lostRespCount, garbageCount};
}

inline std::ostream& operator<<(std::ostream& out, const Statistics& s) {
    return out << "sent " << s.sent << ", received " << s.received << ", BSY " << s.bsy << ", NAK "
               << s.nak << ", lost " << s.lost << ", garbage " << s.garbage;
}

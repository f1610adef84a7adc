// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A till: a work folder with a command file of its own, and runs of the
// shipped driver there, unmodified, in a sandbox that has its real paths.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "companion/workbench/WorkFolder.h"
#include "emulator/Model.h"
#include "tests/faults/system/FaultyPort.h"

namespace faults {

/// What one run left.
struct TillRun {
    int exitCode = -1;                  // 128 + n when signal n ended it
    bool inTime = false;                // else it was killed
    std::string complaint;              // on standard error
    std::optional<std::string> result;  // the result file
    std::string stdLog, dbgLog;
    bool markerLeft = false;
    std::chrono::milliseconds took{0};
};

class Till {
  public:
    /// Frames of that family, short time-outs, both logs always kept, "result.txt".
    explicit Till(emulator::WireFamily family, const std::string& commands = shortSale);

    static const char shortSale[];

    Till& Ini(const std::string& key, const std::string& value);
    /// Put in front of the driver's own command line.
    std::vector<std::string> wrapper;
    /// Further arguments of the sandbox, applied last.
    std::vector<std::string> sandbox;

    /// Runs the driver with the command file, with the register at the port at work. A result
    /// file of an earlier run is removed first; the logs grow.
    TillRun Run(FaultyPort& port);

    std::string Work(const std::string& name) const { return folder_.Files().File(name); }
    std::string Log(const std::string& name) const { return folder_.Logs().File(name); }
    std::string Beside(const std::string& name) const { return folder_.Beside(name); }

  private:
    workbench::WorkFolder folder_;
};

/// No run of these tests takes longer than this.
inline constexpr std::chrono::milliseconds longestRun{30000};

}  // namespace faults

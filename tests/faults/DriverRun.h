// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// One run of the driver against the emulated register on a faulty line, and what it promised.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "companion/workbench/ResultFile.h"
#include "tests/faults/Actions.h"
#include "tests/faults/Campaign.h"
#include "tests/faults/FaultyChannel.h"
#include "tests/support/TempDir.h"

namespace faults {

struct RunFiles {
    std::string commandFile, iniFile, resultFile;
};

/// The commands and the configuration of a campaign, for all of its runs.
class RunFolder {
  public:
    RunFolder(emulator::WireFamily family, const std::string& commands);

    /// The result file has this process's ID in its name, so that runs at one time have their own.
    RunFiles Files() const;

  private:
    TempDir folder_;
};

/// The register of a campaign: the family's own model, with receipts already printed.
emulator::RegisterConfig DefaultRegister(emulator::WireFamily family);

/// What the driver reported when it ended.
struct Told {
    int exitCode = -1;
    bool escaped = false;  // by an exception that is none of the driver's
    std::string result;    // the result file
};

/// Runs the command file in this process, on TheLine, and removes the result file. A process can do
/// so once.
Told RunDriver(const RunFiles& files);

using workbench::ResultValue;

/// What a run without faults does: what every other run is measured by.
struct HealthyRun {
    Actions actions;
    std::size_t bytesToRegister = 0, bytesToDriver = 0;
};
/// Ends the process with a message when that run is not perfect. It takes place in a child.
HealthyRun RunHealthy(const RunFolder& folder, emulator::WireFamily family);

/// A promise that was not kept.
struct Breach {
    std::string what;
    bool byDriverAlone;  // whatever it heard, so nothing excuses it
};
/// Nothing when all is well.
std::optional<Breach> BrokenPromise(const Told& told, FaultyLine& line, const Actions& expected);
/// Why a breach is excused, from what both ends saw; nothing when it is not.
std::optional<std::string> Excuse(const Breach& breach, const Forgeries& forged,
                                  const Strays& strayed);

/// A command file in a family of frames, with its run without faults.
class MeasuredSale {
  public:
    MeasuredSale(emulator::WireFamily family, const std::string& commands)
        : family_(family), folder_(family, commands), healthy_(RunHealthy(folder_, family)) {}

    const HealthyRun& Healthy() const { return healthy_; }
    /// A whole run with these faults.
    Outcome RunWith(const std::vector<Fault>& faults) const;

  private:
    emulator::WireFamily family_;
    RunFolder folder_;
    HealthyRun healthy_;
};

}  // namespace faults

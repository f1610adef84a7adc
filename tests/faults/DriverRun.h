// One run of the driver against the emulated register on a faulty line, and what it promised.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tests/faults/Campaign.h"
#include "tests/faults/FaultyChannel.h"
#include "tests/support/TempDir.h"

namespace faults {

struct RunFiles {
    std::string commandFile, iniFile, resultFile;
};

/// The commands and the configuration of a campaign, for all of its runs.
class Shop {
  public:
    Shop(emulator::WireFamily family, const std::string& commands);

    /// The result file has this process's ID in its name, so that runs at one time have their own.
    RunFiles Files() const;

  private:
    TempDir folder_;
};

/// The configuration of a shop whose register speaks that family's frames.
std::string IniText(emulator::WireFamily family);

/// The register of a campaign: the family's own model, with receipts behind it.
emulator::RegisterConfig DefaultRegister(emulator::WireFamily family);

/// What the driver told at its end.
struct Told {
    int exitCode = -1;
    bool escaped = false;  // by an exception that is none of the driver's
    std::string result;    // the result file
};

/// Runs the command file in this process, on TheLine, and removes the result file. A process can do
/// so once.
Told RunDriver(const RunFiles& files);

/// The value behind "name=" in a result file; empty when there is none.
std::string ResultValue(const std::string& result, const std::string& name);

/// Command and parameters, as the register acted on them.
struct Action {
    std::uint8_t command;
    emulator::Bytes payload;
    bool operator==(const Action&) const = default;
};
using Actions = std::vector<Action>;

/// What the register has done but for entering and leaving fiscal mode.
Actions ActionsOf(const emulator::Register& device);

/// What a run without faults does: what every other run is measured by.
struct HealthyRun {
    Actions actions;
    std::size_t bytesToRegister = 0, bytesToDriver = 0;
};
/// Ends the process with a message when that run is not perfect. It takes place in a child.
HealthyRun RunHealthy(const Shop& shop, emulator::WireFamily family);

/// The most frames that the driver may write in a run with so many commands on the wire, as its
/// numbers of retries (3 of each kind by default) allow.
int MostFrames(std::size_t commands);

/// The promise that is broken, in words; nothing when all is well.
std::optional<std::string> BrokenPromise(const Told& told, FaultyLine& line,
                                         const Actions& expected);
/// Why a broken promise is excused, from what both ends saw; nothing when it is not.
std::optional<std::string> Excuse(const Forgeries& forged);

/// A whole run with these faults.
Outcome RunWithFaults(const Shop& shop, emulator::WireFamily family, const Actions& expected,
                      const std::vector<Fault>& faults);

}  // namespace faults

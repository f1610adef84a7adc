// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the driver promises of a run, measured by what the register did and what was on the wire.
#pragma once

#include <optional>
#include <string>

#include "companion/workbench/ResultFile.h"
#include "tests/faults/Actions.h"
#include "tests/faults/Campaign.h"
#include "tests/faults/system/DriverWatch.h"
#include "tests/faults/system/Till.h"

namespace faults {

using workbench::ResultValue;

/// What a run without faults does: what every other run is measured by.
struct HealthySale {
    Actions actions;
    emulator::Bytes fromDriver, fromRegister;
};
/// Throws std::runtime_error when that run is not perfect.
HealthySale RunHealthy(Till& till, emulator::WireFamily family);

/// The healthy runs of the same commands in both families of frames.
class HealthySales {
  public:
    explicit HealthySales(const std::string& commands);
    const HealthySale& Of(emulator::WireFamily family) const {
        return sales_[static_cast<std::size_t>(family)];
    }

  private:
    HealthySale sales_[2];
};
inline constexpr emulator::WireFamily bothFamilies[] = {emulator::WireFamily::Ocelot,
                                                        emulator::WireFamily::Margay};

/// How strictly a run is judged where the system below fails.
struct Allowance {
    bool resultFileMayLack = false;  // it may be absent or empty, never wrong
    bool writesMayFail = false;      // 101 with a fiscal request on the wire, but no data frame
};

/// The promise that is broken, in words; nothing when all is well.
std::optional<std::string> BrokenPromise(const TillRun& told, const Device& device,
                                         std::size_t journalBefore, const FaultyPort& port,
                                         const Actions& expected, Allowance allowance = {});

/// The verdict on a run without a broken promise.
Outcome WellDone(const TillRun& told, const Spoken& spoken);

}  // namespace faults

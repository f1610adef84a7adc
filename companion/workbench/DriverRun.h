// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// One run of the driver with a register at work.
#pragma once

#include "companion/runner/Sandbox.h"
#include "companion/workbench/Serving.h"

namespace workbench {

/// The register serves from the start of the run until Finish. The destructor kills a run that has
/// not ended.
class DriverRun {
  public:
    DriverRun(Station& station, const runner::SandboxPlan& plan, const runner::CommandLine& command,
              runner::Streams streams = runner::Streams::Together)
        : serving_(station.server), process_(plan, command, streams) {}

    runner::SandboxedRun& Process() { return process_; }
    /// To be called after the process has ended.
    void Finish() { serving_.Finish(); }

  private:
    Serving serving_;
    runner::SandboxedRun process_;
};

}  // namespace workbench

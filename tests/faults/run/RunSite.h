// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A site with emulated registers at the end of ptys, where `voltisctl run` is called.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "companion/journal/Journal.h"
#include "companion/runner/Sandbox.h"
#include "companion/workbench/Serving.h"
#include "emulator/Model.h"
#include "tests/faults/Actions.h"
#include "tests/support/TempDir.h"

namespace faults {

/// Three items and a tender.
extern const char saleOfThree[];

class RunSite {
  public:
    /// Registers with frames of that family: "default", or "r1" to "rN" when there are several.
    explicit RunSite(emulator::WireFamily family, std::size_t registers = 1);

    /// The command line for a job of its own folder, with that content.
    runner::CommandLine RunLine(const std::string& job, const std::string& content,
                                const std::string& registerName, int waitSeconds);
    /// The result file of that job.
    std::string ResultFile(const std::string& job) const;

    /// Called before each chunk that goes over the first register's line, either way. To be set
    /// before Serve.
    void OnChunk(std::function<void()> action);
    /// Has the registers at work from now on.
    void Serve();

    /// What a register has acted on by now, but for changes of its mode and for its display.
    Actions Done(std::size_t registerIndex = 0);
    /// What a strict register has against the driver.
    std::optional<std::string> Complaints();

    /// The job in the journal.
    std::optional<journal::Job> Row(const std::string& job) const;
    std::string File(const std::string& name) const { return folder_.File(name); }

  private:
    void AddRegister(const std::string& file);
    void Ask(std::size_t registerIndex, const std::function<void()>& question);

    TempDir folder_;
    emulator::WireFamily family_;
    std::vector<std::unique_ptr<workbench::Station>> stations_;
    std::vector<std::unique_ptr<workbench::Serving>> servings_;  // ends before its station
};

}  // namespace faults

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A shop: the workbench with a register on the first serial line, and runs of the shipped driver,
// unmodified, in a sandbox that has its real paths.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "companion/runner/TempDir.h"
#include "companion/workbench/Defaults.h"
#include "companion/workbench/Serving.h"
#include "companion/workbench/WorkFolder.h"
#include "emulator/Line.h"
#include "emulator/Register.h"

/// What one run left.
struct RunOutcome {
    int exitCode = -1;                  ///< 128 + n when signal n ended the driver
    std::string out;                    ///< standard output
    std::optional<std::string> result;  ///< "result.txt" in the shop's folder, when it was written
    std::string stdLog, dbgLog;         ///< the whole logs; empty when there is none
    std::vector<std::string> tape;      ///< the lines printed in this run
    std::vector<emulator::Acted> journal;  ///< what the register judged in this run
};

class Shop {
  public:
    /// A register of that model, on a line that speaks the frames of the model.
    explicit Shop(std::string_view model = "ocelot", std::uint8_t version = 2);
    explicit Shop(emulator::RegisterConfig config);
    Shop(emulator::RegisterConfig config, emulator::WireFamily family);

    /// The configuration of the next runs. To begin with: workbench::SettingsFor the family.
    Shop& Ini(const std::string& key, const std::string& value);
    Shop& WithoutIni(const std::string& key);
    Shop& WithoutIniFile();

    /// The working directory of the next runs: a folder in the shop's folder, or an absolute path.
    Shop& WorkIn(const std::string& folder);
    /// Further arguments for the sandbox of the next runs, applied last.
    Shop& Sandbox(const std::vector<std::string>& bwrapArguments);
    /// A shell script that starts the driver of the next runs by "$@".
    Shop& StartBy(const std::string& script);

    /// Runs the driver with these arguments until it ends, with the register at work. A result file
    /// of an earlier run is removed first. Anything on standard error, and a complaint of the
    /// register, fails the test.
    RunOutcome Run(const std::vector<std::string>& arguments);
    /// Writes the commands to "cmd.txt" in the shop's folder and runs the driver with it there.
    RunOutcome Execute(const std::string& commands);

    const runner::Folder& Folder() const { return folder_.Files(); }
    const runner::Folder& Logs() const { return folder_.Logs(); }

    /// The register, to be looked at, or spoilt, between two runs.
    emulator::Register& Device() { return station_.device; }
    /// What goes over the line; filters are called in the course of a run, from another thread.
    emulator::Line& Line() { return station_.line; }

  private:
    workbench::WorkFolder folder_;
    std::string workDir_;
    std::vector<std::string> bwrapArguments_;
    std::string startScript_;  // empty: none
    workbench::Station station_;
};

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A private folder in which the driver works: command files, configuration and logs.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "companion/runner/DriverSettings.h"
#include "companion/runner/Sandbox.h"
#include "companion/runner/TempDir.h"

namespace workbench {

/// Removed with everything in it at the end. What cannot be read or written is a
/// std::runtime_error that names the file.
class WorkFolder {
  public:
    explicit WorkFolder(runner::DriverSettings settings);

    /// The configuration of the next runs; nothing when there is to be no file.
    std::optional<runner::DriverSettings> settings;

    /// The command files and their neighbours.
    const runner::Folder& Files() const { return files_; }
    const runner::Folder& Logs() const { return logs_; }
    /// A file beside both folders.
    std::string Beside(const std::string& name) const { return folder_.File(name); }

    /// Puts a copy of the command file in place and returns its name in Files(). The driver takes a
    /// backslash for a slash, so the copy's name has an underscore instead.
    std::string Take(const std::string& commandFile);

    /// Writes the configuration, removes the Result() of an earlier run, and returns a plan with
    /// this configuration, these logs and that device.
    runner::SandboxPlan Prepare(const std::string& device);

    /// What the last run left in the result file of the first configuration; nothing when there is
    /// no such file.
    std::optional<std::string> Result() const;
    std::string StandardLog() const;
    std::string DebugLog() const;
    /// What the debug log has grown by since the last Prepare.
    std::string NewDebugLog() const;

  private:
    std::string IniFile() const { return folder_.File("voltis.ini"); }

    runner::TempDir folder_;
    runner::Folder files_;
    runner::Folder logs_;
    std::string resultFile_;  // empty: none is configured
    std::size_t oldLog_ = 0;  // size of the debug log
};

}  // namespace workbench

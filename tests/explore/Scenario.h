// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What is explored: command files, the register that they are given to, and what the shop does with
// each exit code.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "emulator/Habit.h"
#include "emulator/Register.h"
#include "emulator/Wire.h"
#include "tests/support/TempDir.h"

namespace explore {

/// The command files of a scenario, one after the other in the same shop.
struct FileSet {
    std::string_view word;     // as given on a command line
    std::string_view meaning;  // for a table
    std::vector<std::string_view> files;
    bool inFiscalMode = false;  // when it begins, and kept so (KeepEcrBlocked=1)
};
const std::vector<FileSet>& FileSets();

/// At most so many runs of the driver in one scenario.
inline constexpr std::size_t mostRuns = 3;

/// Whether a verdict is told of every run, and judged.
enum class Telling : std::uint8_t {
    None,
    Alone,       // nothing is sent but what the driver sends
    WithStatus,  // after a run in which anything was odd the status is read, and what the register
                 // may hold is made forgotten before the next file, both without a fault
};

struct Scenario {
    emulator::WireFamily family = emulator::WireFamily::Ocelot;
    const FileSet* files = nullptr;
    std::optional<emulator::Habit> habit;  // none: the register as docs/emulator.md describes it
    Telling telling = Telling::None;
    bool habitTold = true;  // the verdict knows of the habit

    /// "margay report default"
    std::string Name() const;
    emulator::RegisterConfig Register() const;
};

/// Of every family, set of files and habit.
std::vector<Scenario> AllScenarios();
/// Throws std::runtime_error that names the word that is wrong.
Scenario ParseScenario(std::string_view family, std::string_view files, std::string_view habit);

std::string_view HabitWordOf(const std::optional<emulator::Habit>& habit);  // "default" for none
std::string_view FamilyWord(emulator::WireFamily family);

/// The files of a scenario on the disk.
class ScenarioFiles {
  public:
    explicit ScenarioFiles(const Scenario& scenario);
    ~ScenarioFiles();
    ScenarioFiles(const ScenarioFiles&) = delete;
    ScenarioFiles& operator=(const ScenarioFiles&) = delete;

    const std::string& Ini() const { return ini_; }
    const std::string& Command(std::size_t file) const { return commands_.at(file); }
    const std::string& Result() const { return result_; }
    /// What the driver has written there; the next call finds it empty.
    std::string TakeResult() const;

  private:
    TempDir folder_;
    int resultFd_;
    std::string ini_, result_;
    std::vector<std::string> commands_;
};

}  // namespace explore

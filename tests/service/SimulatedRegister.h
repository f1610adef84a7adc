// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Registers without a line: their tapes, and a driver that prints a command a turn. It tells no
// more than a log and a status read could, and survives the process that has started it.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "companion/job/Register.h"
#include "tests/service/Stage.h"

/// What one register has printed, and what its runs have left.
struct Tape {
    struct Run {
        std::string content;
        std::size_t printed = 0;  // of its commands
        bool logLost = false;
    };

    std::string name;
    std::vector<std::string> printed;  // "CONTENT INDEX"
    std::map<std::string, Run> runs;   // by folder
    bool locked = false;
    bool holds = false;   // a command number
    bool asleep = false;  // does not answer
};

/// The number of commands in a content: its letters.
std::size_t CommandsOf(const std::string& content);

/// How dangerous it is.
struct Dangers {
    std::size_t refusals = 0;     // percent of runs that end before the first command
    std::size_t ends = 0;         // percent of commands before which the driver ends
    std::size_t lostAnswers = 0;  // percent of such ends that leave one command in doubt
    std::size_t noDisk = 0;       // percent of recoveries that fail
    bool withoutLock = false;     // for the proof that it is missed
};

/// Texts of failures that are no end of a job.
inline constexpr char nobodyWaits[] = "nobody waits for the register any more";
inline constexpr char cannotRecover[] = "nobody can find out now";

class SimulatedRegister : public job::Register {
  public:
    /// All of them must outlive it. Drivers are processes of their own.
    SimulatedRegister(Stage& stage, Tape& tape, const Dangers& dangers,
                      std::vector<Stage::Process>& drivers)
        : stage_(stage), tape_(tape), dangers_(dangers), drivers_(drivers) {}

    std::unique_ptr<job::Hold> Lock(const runner::LockWait& wait) override;
    void Remove(const std::string& folder) override { tape_.runs.erase(folder); }

  private:
    Stage& stage_;
    Tape& tape_;
    const Dangers& dangers_;
    std::vector<Stage::Process>& drivers_;
};

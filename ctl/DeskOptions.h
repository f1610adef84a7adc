// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What an emulated register is given by files, the same for every sub-command that has one.
#pragma once

#include <CLI/CLI.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "companion/desk/FaultText.h"
#include "companion/desk/Mistake.h"
#include "ctl/RegisterOptions.h"
#include "ctl/UsageError.h"

struct DeskOptions {
    std::string program;
    std::string faults;
    int lineSpeed = 0;  // 0: as fast as it goes
};

void AddDeskOptions(CLI::App& command, DeskOptions& options);

/// The register with its program. UsageError: as ConfigFor, or the file cannot be used.
emulator::RegisterConfig ProgrammedConfig(const RegisterOptions& device,
                                          const DeskOptions& options);
/// UsageError: the file cannot be used.
std::vector<desk::Fault> FaultsOf(const DeskOptions& options);

/// "FILE:3:4: error: ...", the line and a caret, for each mistake.
std::string MistakesText(const std::string& file, const desk::Mistakes& mistakes);

/// Does what reads the file; its mistakes are a usage error that shows them.
template <typename Action>
auto UsingFile(const std::string& file, Action action) {
    try {
        return action();
    } catch (const desk::Mistakes& mistakes) {
        throw UsageError("'" + file + "' cannot be used\n" + MistakesText(file, mistakes));
    } catch (const std::runtime_error& wrong) {
        throw UsageError(wrong.what());
    }
}

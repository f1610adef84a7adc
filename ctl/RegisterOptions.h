// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The options that choose the emulated register, the same for every sub-command.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "emulator/Line.h"
#include "emulator/Register.h"

struct RegisterOptions {
    std::string model = "ocelot";
    int protocol = 2;
    std::string frames;  // empty: those of the model
    std::vector<std::string> habits;
    bool strict = false;
};

void AddRegisterOptions(CLI::App& command, RegisterOptions& options);

/// A register of that model with these habits. UsageError: the model has no such protocol version.
emulator::RegisterConfig ConfigFor(const RegisterOptions& options);

emulator::WireFamily FramesFor(const RegisterOptions& options);

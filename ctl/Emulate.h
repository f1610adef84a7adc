// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl emulate`: an emulated register that runs until it is interrupted.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

/// Adds the options to the sub-command. The action prints the path of the pseudo terminal and then
/// the tape, carries out the lines that are typed, and ends with 0 at SIGINT or SIGTERM.
std::function<int()> BindEmulate(CLI::App& command);

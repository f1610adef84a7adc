// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl try`: the driver at work on command files, with an emulated register in a sandbox.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

/// Adds the options to the sub-command. The action runs the driver on each file, prints what came
/// of it, and returns the exit code of the last run that failed, 0 when none did; 124 for a run
/// that took too long, 128 + n after an interrupt by signal n. UsageError: a command file cannot be
/// read, or a setting is none; nothing was run.
std::function<int()> BindTry(CLI::App& command);

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl run`: prints a command file exactly once and tells what was printed.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

/// Adds the options to the sub-command. The action runs the file on the register and returns 0 only
/// when all was printed, 1 (a mistake in the file) or 2 only when nothing was, and 101 otherwise.
std::function<int()> BindRun(CLI::App& command);

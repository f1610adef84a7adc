// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl status`: asks a register of the site how it is.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

/// Adds the options to the sub-command. The action prints the register's state and returns the
/// driver's exit code.
std::function<int()> BindStatus(CLI::App& command);

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl replay`: a run of a debug log at the far end of a pseudo terminal.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

/// Adds the options to the sub-command. The action prints the path of the pseudo terminal, holds
/// the register's side of the conversation, and returns 0 when the caller's side was as logged, 1
/// when it differed. UsageError: the log or the run in it cannot be used.
std::function<int()> BindReplay(CLI::App& command);

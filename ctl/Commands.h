// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The companion's command line: one sub-command per row of a table.
#pragma once

#include <string>
#include <vector>

#include "ctl/CommandWords.h"

/// Runs the sub-command that the arguments name. The exit code is the sub-command's own; 2 for a
/// usage error, and when it could not do its work. The reason is on standard error.
int RunVoltisctl(int argc, char** argv);

/// voltisctl itself and then its sub-commands.
std::vector<CommandWords> CommandLineWords();

/// Why RunVoltisctl would refuse these arguments before it does anything; empty when it would not.
std::string MistakeIn(const std::vector<std::string>& arguments);

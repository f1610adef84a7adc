// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the command line of voltisctl takes, as parts of manual pages.
#pragma once

#include <string>
#include <vector>

#include "ctl/CommandWords.h"

namespace manual {

/// What follows the command in the section SYNOPSIS: a macro for each option.
std::string Synopsis(const CommandWords& command);

/// A list of words and options with what they mean.
std::string OptionList(const CommandWords& command);

/// A list of the sub-commands with what they are for; each names its manual page.
std::string CommandList(const std::vector<CommandWords>& commands);

}  // namespace manual

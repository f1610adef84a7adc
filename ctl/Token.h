// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl token`: who may use the service over the network.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

/// Adds the options to the sub-command. The action adds a token and prints it, lists the tokens, or
/// revokes one, and returns 0; 1 when there is none of that name to revoke. UsageError: words that
/// do not go together; tokens::TokensError: the file cannot be used.
std::function<int()> BindToken(CLI::App& command);

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// voltisctl completion: what a shell offers when Tab is pressed, from the same tables as --help.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

std::function<int()> BindCompletion(CLI::App& command);

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl explain`: what a code or a message means.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

/// Adds the options to the sub-command. The action prints what the catalogue has and returns 0; 1
/// when it has nothing of that code or text, with the nearest entries.
std::function<int()> BindExplain(CLI::App& command);

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl doctor`: what is wrong on this machine, and what to do about it.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

/// Adds the options; the function runs the sub-command and returns the exit code.
std::function<int()> BindDoctor(CLI::App& command);

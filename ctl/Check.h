// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl check`: all mistakes of command files, without a register.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

std::function<int()> BindCheck(CLI::App& command);

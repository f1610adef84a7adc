// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl trace`: a debug log as the conversation that it tells of.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

std::function<int()> BindTrace(CLI::App& command);

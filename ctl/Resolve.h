// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl resolve`: a person decides what became of a job.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

/// Adds the options to the sub-command. The action records the decision with the user's name and
/// returns 0; 1 when there is no such job, or nothing to decide. UsageError: no job is named, or
/// the note is empty.
std::function<int()> BindResolve(CLI::App& command);

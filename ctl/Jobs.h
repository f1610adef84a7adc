// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl jobs`: what became of the jobs in the journal.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

/// Adds the options to the sub-command. The action prints a table of jobs, or one job in full, and
/// returns 0; 1 when there is no job of that ID. UsageError: the date is none.
std::function<int()> BindJobs(CLI::App& command);

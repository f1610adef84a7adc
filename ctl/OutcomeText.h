// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What became of a job, in words.
#pragma once

#include <string>

#include "companion/job/Outcome.h"

/// The verdict in one line: "printed: 3 of 3 commands, receipt 17".
std::string ForPeople(const job::Outcome& outcome);

/// Why it is not better than that; empty when nothing failed.
std::string WhyOf(const job::Outcome& outcome);

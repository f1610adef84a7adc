// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What was found, as tables: for the terminal and for docs/reliability.md.
#pragma once

#include <string>
#include <vector>

#include "tests/explore/Campaign.h"

namespace explore {

/// Every way in which schedules end, by scenario: how many, with which faults, and an example.
std::string EndsTable(const std::vector<Explored>& all);

/// How many schedules there are by files, habit and number of faults, as Markdown.
std::string CountsTable(const std::vector<Explored>& all, int faults);

/// Writes docs/reliability.md's table and the pictures in docs/explored of the tree.
void WritePages(const std::vector<Explored>& all, const std::string& tree);

/// Where those differ from what was found, one line each. What takes more than that many faults is
/// not looked at.
std::vector<std::string> CompareWithPages(const std::vector<Explored>& all, const std::string& tree,
                                          int faults);

}  // namespace explore

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Rows of texts as a terminal shows them.
#pragma once

#include <string>
#include <vector>

/// What would move the cursor of a terminal is shown as a question mark.
std::string Shown(std::string text, const std::string& allowed = "");

using TableRow = std::vector<std::string>;

/// On standard output, in columns with two blanks between; all rows have as many fields.
void PrintTable(const std::vector<TableRow>& table);

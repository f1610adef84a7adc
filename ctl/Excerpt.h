// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Lines of files on a terminal.
#pragma once

#include <string>
#include <vector>

/// What a terminal shows in one place each: never a control character or a part of one.
std::vector<std::string> CellsOf(const std::string& text);
std::string OnTerminal(const std::string& text);

/// The line, or the part of it around the column (in bytes, from 1), and a caret below it.
std::string Excerpt(const std::string& text, int column);

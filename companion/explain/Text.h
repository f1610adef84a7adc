// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The catalogue as text for people, at most 80 columns wide.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "companion/explain/Catalogue.h"

namespace explain {

/// "exit-code", "verdict", "error-code", "message", "run-message", "note".
const char* NameOf(Kind kind);
/// "Exit codes" and so on.
const char* HeadingOf(Kind kind);

/// "no", "yes", "perhaps", "by-exit-code".
const char* NameOf(Word word);

/// The code, or the range of codes: "129-192"; empty when there is none.
std::string CodeText(const Entry& entry);
/// "1, 2 or 101"; empty when there is none.
std::string ExitCodesText(const Entry& entry);

/// What the entry is, in a line: "error code 104: ...". The number, unless it is noCode, is the one
/// that was asked for.
std::string TitleOf(const Entry& entry, int number = noCode);

/// The four answers under the title.
std::string Explanation(const Entry& entry, int number = noCode);

/// A line for each entry.
std::string Listing();

/// The text in lines that end by column 80. The first one begins at that column, each other one
/// after so many blanks.
std::string Folded(std::string_view text, std::size_t column, std::size_t indent);

}  // namespace explain

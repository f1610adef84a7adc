// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Texts of the program's tables in the language of manual pages, mdoc(7).
#pragma once

#include <string>
#include <string_view>

namespace manual {

/// One argument of a macro, whatever is in the text: quoted, and never a macro itself.
std::string Argument(std::string_view text);

/// Running text: each sentence on a line of its own, no line longer than 80 bytes. What is in
/// backticks is quoted; a page of docs/ that has a manual page is named as that one.
std::string Prose(std::string_view text);

/// The text as a sentence: a capital at its beginning, a full stop at its end. Empty stays empty.
std::string Sentence(std::string_view text);

}  // namespace manual

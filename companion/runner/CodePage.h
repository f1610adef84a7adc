// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Command files in UTF-8, brought into the code page that the driver expects.
#pragma once

#include <stdexcept>
#include <string>

namespace runner {

/// A text that cannot be brought there. The message has the line, the column in characters, and the
/// line itself with a caret under the place.
class CodePageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The bytes that make the register print these characters when the driver's CodePage= has that
/// name: RIM, DOS or TILDE. A byte order mark is dropped. CodePageError: the text is not UTF-8, has
/// a character that the code page lacks, or there is no code page of that name.
std::string FromUtf8(const std::string& text, const std::string& codePage);

/// Appends the character that this byte of the register's own code page is, in UTF-8; the
/// replacement character when it is none.
void AddCharacterOfRegister(unsigned char byte, std::string& text);

}  // namespace runner

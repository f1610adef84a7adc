// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Texts in UTF-8, character by character.
#pragma once

#include <string_view>

namespace runner {

/// What stands for bytes that are not UTF-8.
inline constexpr char32_t noCharacter = 0xffffffff;

/// Takes the next character off the front of a text that is not empty. noCharacter: it does not
/// begin with one, and nothing was taken.
char32_t NextCharacter(std::string_view& text);

}  // namespace runner

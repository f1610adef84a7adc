// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Messages with variable parts, and the comparison of real ones with them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace explain {

/// As people read it: "Missing '=' after parameter NAME".
std::string Shown(std::string_view text);

/// With every variable part as {}, to compare two templates.
std::string Normal(std::string_view text);

/// How many characters of it do not vary.
std::size_t FixedLength(std::string_view text);

/// The message is that one. Upper and lower case are the same.
bool Fits(std::string_view text, std::string_view message);

/// Somewhere in the longer text is that message.
bool OccursIn(std::string_view text, std::string_view longer);

/// In lower case, which in texts here is that of ASCII.
std::string Lower(std::string_view text);

}  // namespace explain

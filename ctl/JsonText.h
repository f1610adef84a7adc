// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Values as JSON writes them.
#pragma once

#include <string>

/// The text in quotes. A byte that is not part of UTF-8, as in a message that quotes a command
/// file, becomes the replacement character.
std::string JsonString(const std::string& text);

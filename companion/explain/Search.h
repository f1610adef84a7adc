// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// From a code or a text, as a person has it before them, to the entries that explain it.
#pragma once

#include <string>
#include <vector>

#include "companion/explain/Catalogue.h"

namespace explain {

struct Found {
    std::vector<const Entry*> entries;
    std::vector<const Entry*> nearest;  ///< when nothing was found; may be empty, too
};

/// Digits are a code, of every kind that has it; after "ResultCode=" and "ErrorCode=" of that kind.
/// Anything else is a text: a real message, whole or in a longer line, with its names and numbers;
/// else words, which an entry's text must all have.
Found Find(const std::string& query);

/// A real message only, whole or in a longer line: soon also where there is none.
std::vector<const Entry*> FindMessage(const std::string& line);

/// The number, when the query is one.
int NumberIn(const std::string& query);

/// The driver's messages that have this error code, when it has several.
std::vector<const Entry*> MessagesOf(const Entry& errorCode);

}  // namespace explain

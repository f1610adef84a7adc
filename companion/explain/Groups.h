// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The answers that entries share, each under a letter: for pages, which have them once.
#pragma once

#include <string>
#include <vector>

#include "companion/explain/Catalogue.h"

namespace explain {

using Groups = std::vector<const Answers*>;

/// In the order in which the entries need them; the first is A.
Groups AllGroups();

std::string LetterOf(const Answers* answers, const Groups& groups);

/// What is told in a table: "no", "it depends".
std::string WordFor(const Answer& answer);

}  // namespace explain

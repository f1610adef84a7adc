// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The parts of the catalogue; see Catalogue.h.
#pragma once

#include <span>

#include "companion/explain/Catalogue.h"

namespace explain {

std::span<const Entry> ExitCodes();
std::span<const Entry> Verdicts();
std::span<const Entry> ErrorCodes();
std::span<const Entry> Messages();
std::span<const Entry> RunMessages();
std::span<const Entry> Notes();

}  // namespace explain

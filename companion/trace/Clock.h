// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Times as a log has them.
#pragma once

#include <string>

#include "companion/trace/Event.h"

namespace trace {

/// "08:41:12.108".
std::string ClockText(Time when);
/// "2026-03-14T08:41:12.108".
std::string DateTimeText(Time when);
/// "14.03.2026".
std::string DateText(Time when);

}  // namespace trace

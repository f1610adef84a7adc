// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What is found as one text for a support desk, without anything that tells of persons or the shop.
#pragma once

#include <string>
#include <vector>

#include "companion/doctor/Finding.h"
#include "companion/doctor/Machine.h"
#include "companion/runner/Profile.h"

namespace doctor {

/// Names, paths and values of free text are "..."; registers have numbers, in the order of the
/// profiles. answers: further lines that are known to be free of them.
std::string Report(const Machine& machine, const std::vector<runner::Profile>& profiles,
                   const Findings& findings, const std::vector<std::string>& answers);

}  // namespace doctor

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The configuration files: voltis.ini and those of the registers.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "companion/doctor/Finding.h"
#include "companion/runner/Profile.h"

namespace doctor {

/// What the driver, or voltisctl, does otherwise than the text of this file says. isDefault: it is
/// voltis.ini.
Findings CheckText(const std::string& file, const std::string& text, bool isDefault);

struct Registers {
    std::vector<runner::Profile> profiles;  ///< those that make sense
    Findings findings;
};
/// Reads the configuration of a register, or of all in the folder.
Registers CheckRegisters(const std::string& folder, const std::optional<std::string>& name = {});

}  // namespace doctor

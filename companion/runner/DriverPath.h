// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Where the driver's program is.
#pragma once

#include <string>

namespace runner {

/// The canonical path of the program that is given; when none is, of voltis beside the program that
/// runs, else on PATH. std::runtime_error: there is none that can be executed.
std::string DriverPath(const std::string& given);

}  // namespace runner

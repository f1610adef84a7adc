// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Reading the driver's result file.
#pragma once

#include <string>

namespace workbench {

/// The value after "name=" in a result file of the new format; empty when there is none.
std::string ResultValue(const std::string& result, const std::string& name);

}  // namespace workbench

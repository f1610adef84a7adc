// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

namespace voltisd {

inline constexpr char versionText[] = "2.5.0";  // of the project; a test compares them

}  // namespace voltisd

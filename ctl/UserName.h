// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <string>

/// The name of the account that runs this.
std::string UserName();

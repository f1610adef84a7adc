// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The catalogue as the page docs/errors.md.
#pragma once

#include <string>

namespace explain {

std::string Page();

}  // namespace explain

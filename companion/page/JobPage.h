// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// All about one job.
#pragma once

#include "companion/page/Frame.h"
#include "companion/page/Parts.h"

namespace page {

/// With what was wrong with a form of it, if something was; then with that status.
http::Response ShowJobPage(const Visit& visit, const journal::Job& job, int status = 200,
                           const Draft& draft = {});

}  // namespace page

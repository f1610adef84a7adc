// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The first page: the registers, what is to be decided, the queue, the last jobs.
#pragma once

#include "companion/page/Frame.h"

namespace page {

/// Asks the journal for no more than it shows, however many jobs it has.
http::Response ShowOverview(const Visit& visit);

}  // namespace page

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the forms of a job's page do.
#pragma once

#include "companion/http/Message.h"
#include "companion/page/Visit.h"

namespace page {

http::Response ResolveByForm(const Visit& visit, const journal::Job& job);
http::Response WithdrawByForm(const Visit& visit, const journal::Job& job);

}  // namespace page

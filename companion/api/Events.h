// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The journal's events as Server-Sent Events (HTML standard, 9.2).
#pragma once

#include "companion/api/Call.h"

namespace api {

/// From the event after Last-Event-ID, or after the query's "after", or from now on.
http::Reply ShowEvents(const Call& call);

Json EventJson(const journal::Event& event);

}  // namespace api

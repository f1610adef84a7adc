// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What is counted, in the text format of Prometheus (version 0.0.4), and whether all is well.
#pragma once

#include "companion/api/Call.h"

namespace api {

http::Reply ShowMetrics(const Call& call);
/// 503 when the journal cannot be read.
http::Reply ShowHealth(const Call& call);

}  // namespace api

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The description of the interface in the format OpenAPI 3.1, from the table of routes.
#pragma once

#include <string>

#include "companion/api/Call.h"

namespace api {

Json OpenApi(const std::string& version);

http::Reply ShowOpenApi(const Call& call);

}  // namespace api

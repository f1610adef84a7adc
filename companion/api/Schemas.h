// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The JSON Schemas of everything that is answered and taken.
#pragma once

#include "companion/api/Refusals.h"

namespace api {

/// By their names, as OpenAPI has them below components/schemas.
Json Schemas();

}  // namespace api

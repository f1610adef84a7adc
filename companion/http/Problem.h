// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Errors as problem details (RFC 9457).
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "companion/http/Message.h"

namespace http {

/// "urn:voltis:problem:" and the name is the type of the problem, by which programs tell them
/// apart; the title is that of the status. Further members are added as they are.
Response ProblemOf(int status, const std::string& name, const std::string& detail,
                   const nlohmann::ordered_json& further = {});

/// The reason phrase of a status that this service answers with.
const char* Phrase(int status);

}  // namespace http

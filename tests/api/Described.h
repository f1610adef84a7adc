// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Answers against the description of the interface, which is read here as a stranger reads it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "companion/http/Message.h"

/// What the description does not allow about the answer to that request.
std::vector<std::string> MistakesByDescription(const http::Request& request,
                                               const http::Response& response,
                                               const nlohmann::json& openApi);

/// The same for what came on a stream.
std::vector<std::string> MistakesOfEvents(const std::string& text, const nlohmann::json& openApi);

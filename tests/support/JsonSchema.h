// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Real output against the schemas in docs/schemas/.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

/// What in the value the schema does not allow: "/entries/0/code: ..." for each mistake. A keyword
/// that is not known here is a mistake, too, so that no part of a schema is passed over.
std::vector<std::string> MistakesBySchema(const nlohmann::json& value,
                                          const nlohmann::json& schema);
/// The same with a schema that is a part of a document, which its references are in.
std::vector<std::string> MistakesBySchema(const nlohmann::json& value, const nlohmann::json& schema,
                                          const nlohmann::json& document);

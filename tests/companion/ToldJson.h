// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What voltisctl tells with --json, after it has passed its schema.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "tests/support/JsonSchema.h"
#include "tests/support/TempDir.h"

inline nlohmann::json ToldJson(const std::string& command, const std::string& text) {
    nlohmann::json told = nlohmann::json::parse(text, nullptr, false);
    EXPECT_FALSE(told.is_discarded()) << text;
    const auto schema =
        nlohmann::json::parse(ReadWholeFile(SCHEMAS_DIR "/" + command + ".schema.json"));
    EXPECT_THAT(MistakesBySchema(told, schema), testing::IsEmpty()) << text;
    return told;
}

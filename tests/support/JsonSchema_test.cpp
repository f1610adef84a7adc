// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/support/JsonSchema.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using nlohmann::json;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(JsonSchema, AllowsWhatItsKeywordsSay) {
    const json schema = json::parse(R"({
        "type": "object", "required": ["a"], "additionalProperties": false,
        "properties": {"a": {"$ref": "#/$defs/list"}, "b": {"type": ["integer", "null"]}},
        "$defs": {"list": {"type": "array", "maxItems": 2, "items": {"enum": ["x", "y"]}}}})");
    EXPECT_THAT(MistakesBySchema(json::parse(R"({"a": ["x"], "b": null})"), schema), IsEmpty());
    EXPECT_THAT(MistakesBySchema(json::parse(R"({"a": ["x", "z"], "b": 1})"), schema),
                ElementsAre("/a/1: enum [\"x\",\"y\"]"));
    EXPECT_THAT(MistakesBySchema(json::parse(R"({"a": [], "b": 1.5})"), schema),
                ElementsAre("/b: type [\"integer\",\"null\"]"));
    EXPECT_THAT(MistakesBySchema(json::parse(R"({"b": 1, "c": 1})"), schema),
                ElementsAre(": required [\"a\"]", ": unexpected c"));
    EXPECT_THAT(MistakesBySchema(json::parse(R"({"a": ["x", "y", "x"]})"), schema),
                ElementsAre("/a: maxItems 2"));
    EXPECT_THAT(MistakesBySchema(json::array(), schema), ElementsAre(": type \"object\""));
}

TEST(JsonSchema, KnowsLimits) {
    EXPECT_THAT(MistakesBySchema(1, {{"minimum", 1}, {"maximum", 1}}), IsEmpty());
    EXPECT_THAT(MistakesBySchema(0, {{"minimum", 1}}), ElementsAre(": minimum 1"));
    EXPECT_THAT(MistakesBySchema(2, {{"maximum", 1}}), ElementsAre(": maximum 1"));
    EXPECT_THAT(MistakesBySchema("", {{"minLength", 1}}), ElementsAre(": minLength 1"));
    EXPECT_THAT(MistakesBySchema("š", {{"maxLength", 1}}), IsEmpty());
    EXPECT_THAT(MistakesBySchema("ab", {{"maxLength", 1}}), ElementsAre(": maxLength 1"));
    EXPECT_THAT(MistakesBySchema({1, 1}, {{"uniqueItems", true}}),
                ElementsAre(": uniqueItems true"));
    EXPECT_THAT(MistakesBySchema({1, 2}, {{"uniqueItems", true}}), IsEmpty());
    EXPECT_THAT(MistakesBySchema(json::array(), {{"minItems", 1}}), ElementsAre(": minItems 1"));
    EXPECT_THAT(MistakesBySchema("b", {{"const", "a"}}), ElementsAre(": const \"a\""));
    EXPECT_THAT(MistakesBySchema("b", {{"pattern", "^a"}}), ElementsAre(": pattern \"^a\""));
}

TEST(JsonSchema, AllowsWhatExactlyOneOfSeveralAllows) {
    const json schema = {{"oneOf", {{{"minimum", 2}}, {{"maximum", 4}}}}};
    EXPECT_THAT(MistakesBySchema(1, schema), IsEmpty());
    EXPECT_THAT(MistakesBySchema(3, schema), ElementsAre(": not one of oneOf"));
    EXPECT_THAT(MistakesBySchema("", {{"oneOf", {{{"type", "null"}}}}}),
                ElementsAre(": not one of oneOf"));
}

TEST(JsonSchema, FindsReferencesInTheDocument) {
    const json document = {{"schemas", {{"one", {{"const", 1}}}}}};
    const json schema = {{"$ref", "#/schemas/one"}};
    EXPECT_THAT(MistakesBySchema(1, schema, document), IsEmpty());
    EXPECT_THAT(MistakesBySchema(2, schema, document), ElementsAre(": const 1"));
}

TEST(JsonSchema, PassesOverNoKeyword) {
    EXPECT_THAT(MistakesBySchema(1, {{"multipleOf", 1}}),
                ElementsAre(": unknown keyword multipleOf"));
}

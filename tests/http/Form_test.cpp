// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/http/Form.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>

#include "companion/http/Caller.h"

using http::FieldOf;
using http::FormOf;
using http::Request;
using testing::IsEmpty;

namespace {

using Fields = std::map<std::string, std::string>;

Request Sent(const std::string& body,
             const std::string& type = "application/x-www-form-urlencoded") {
    Request request;
    request.headers["content-type"] = type;
    request.body = body;
    return request;
}

}  // namespace

TEST(Form, HasFields) {
    EXPECT_EQ(FormOf(Sent("a=1&b=2&c")), (Fields{{"a", "1"}, {"b", "2"}, {"c", ""}}));
    EXPECT_EQ(FieldOf(Sent("a=1&b=2"), "b"), "2");
    EXPECT_EQ(FieldOf(Sent("a=1&b=2"), "c"), "");
    EXPECT_THAT(*FormOf(Sent("")), IsEmpty());
    EXPECT_THAT(*FormOf(Sent("&&")), IsEmpty());
}

TEST(Form, IsDecoded) {
    EXPECT_EQ(FieldOf(Sent("no%74e=se%65n+on%20it%2B"), "note"), "seen on it+");
    EXPECT_EQ(FieldOf(Sent("a=b=c%26d"), "a"), "b=c&d");
    EXPECT_EQ(FieldOf(Sent("a=%c3%BC"), "a"), "\xc3\xbc");
}

TEST(Form, KeepsAPercentSignThatBeginsNoByte) {
    EXPECT_EQ(FieldOf(Sent("a=100%"), "a"), "100%");
    EXPECT_EQ(FieldOf(Sent("a=%4"), "a"), "%4");
    EXPECT_EQ(FieldOf(Sent("a=%4x%"), "a"), "%4x%");
}

TEST(Form, TakesTheFirstFieldOfAName) {
    EXPECT_EQ(FieldOf(Sent("a=1&a=2"), "a"), "1");
}

TEST(Form, IsNoOtherType) {
    for (const char* type : {"", "application/json", "text/plain", "multipart/form-data",
                             "application/x-www-form-urlencoded2"})
        EXPECT_EQ(FormOf(Sent("a=1", type)), std::nullopt) << type;
    EXPECT_EQ(FieldOf(Sent("a=1", "text/plain"), "a"), "");
    EXPECT_EQ(FieldOf(Sent("a=1", "Application/X-WWW-Form-URLencoded; charset=utf-8"), "a"), "1");
}

TEST(Scope, HasAWord) {
    for (const http::Scope scope : http::allScopes)
        EXPECT_EQ(http::ScopeOf(Word(scope)), scope) << Word(scope);
    EXPECT_EQ(http::ScopeOf("resolve"), http::Scope::Resolve);
    for (const char* word : {"", "Print", "print ", "write"})
        EXPECT_EQ(http::ScopeOf(word), std::nullopt) << word;
}

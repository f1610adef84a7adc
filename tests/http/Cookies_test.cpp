// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/http/Cookies.h"

#include <gtest/gtest.h>

#include <optional>

using http::CookieIn;

TEST(Cookies, AreFoundByTheirName) {
    EXPECT_EQ(CookieIn("a=1; b=2; c=3", "a"), "1");
    EXPECT_EQ(CookieIn("a=1; b=2; c=3", "b"), "2");
    EXPECT_EQ(CookieIn("a=1; b=2; c=3", "c"), "3");
    EXPECT_EQ(CookieIn("a=1; b=2; c=3", "d"), std::nullopt);
    EXPECT_EQ(CookieIn("a=1", "A"), std::nullopt);
    EXPECT_EQ(CookieIn("aa=1", "a"), std::nullopt);
    EXPECT_EQ(CookieIn("", "a"), std::nullopt);
}

TEST(Cookies, MayLackTheBlankOrHaveMore) {
    EXPECT_EQ(CookieIn("a=1;b=2", "b"), "2");
    EXPECT_EQ(CookieIn(" a = 1 ;\tb=2\t;", "a"), "1");
    EXPECT_EQ(CookieIn(" a = 1 ;\tb=2\t;", "b"), "2");
}

TEST(Cookies, HaveAValueOfAnyLettersButTheSemicolon) {
    EXPECT_EQ(CookieIn("a=", "a"), "");
    EXPECT_EQ(CookieIn("a=b=c", "a"), "b=c");
    EXPECT_EQ(CookieIn("a=\"b c\"", "a"), "b c");
    EXPECT_EQ(CookieIn("a=\"", "a"), "\"");
    EXPECT_EQ(CookieIn("a=%41", "a"), "%41");  // nothing is decoded
}

TEST(Cookies, AreNoneWithoutAnEqualsSign) {
    EXPECT_EQ(CookieIn("a", "a"), std::nullopt);
    EXPECT_EQ(CookieIn("b; a=1", "a"), "1");
}

TEST(Cookies, AreNotTakenWhenNobodyCanTellWhichOneIsOurs) {
    EXPECT_EQ(CookieIn("a=1; a=2", "a"), std::nullopt);
    EXPECT_EQ(CookieIn("a=1; b=2; a=1", "a"), std::nullopt);
    EXPECT_EQ(CookieIn("a=1; b=2; a=1", "b"), "2");
}

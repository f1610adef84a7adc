// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/http/Path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using http::AsSegment;
using http::SegmentsOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

TEST(Path, HasPartsBetweenItsSlashes) {
    EXPECT_THAT(SegmentsOf("/v1/jobs/a"), Optional(ElementsAre("v1", "jobs", "a")));
    EXPECT_THAT(SegmentsOf("/v1/jobs/"), Optional(ElementsAre("v1", "jobs", "")));
    EXPECT_THAT(SegmentsOf("//a"), Optional(ElementsAre("", "a")));
    EXPECT_THAT(SegmentsOf("/"), Optional(IsEmpty()));
}

TEST(Path, DecodesEachPartByItself) {
    EXPECT_THAT(SegmentsOf("/jobs/a%2Fb%2f%C5%A1/c"), Optional(ElementsAre("jobs", "a/b/š", "c")));
    EXPECT_THAT(SegmentsOf("/a%25%32%46"), Optional(ElementsAre("a%2F"))) << "once";
    EXPECT_THAT(SegmentsOf("/a+b"), Optional(ElementsAre("a+b")));
}

TEST(Path, IsNoneWithABrokenEscapeOrWithoutASlash) {
    for (const char* path : {"", "a", "/%", "/%2", "/%2g", "/a/%zz"})
        EXPECT_EQ(SegmentsOf(path), std::nullopt) << path;
}

TEST(Path, TakesAnyTextForAPart) {
    EXPECT_EQ(AsSegment("2026-4711_a.b~c"), "2026-4711_a.b~c");
    EXPECT_EQ(AsSegment("a/b š%"), "a%2Fb%20%C5%A1%25");
    std::string all;
    for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
    EXPECT_THAT(SegmentsOf("/" + AsSegment(all)), Optional(ElementsAre(all)));
}

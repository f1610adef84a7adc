// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/http/RateLimit.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

using http::RateLimit;
using namespace std::chrono_literals;

namespace {

const RateLimit::Time start{1h};

int TakenAtOnce(RateLimit& limit, const std::string& caller, RateLimit::Time now) {
    int taken = 0;
    while (limit.Take(caller, now)) ++taken;
    return taken;
}

}  // namespace

TEST(RateLimit, LetsSoManyThroughAtOnce) {
    RateLimit limit(5, 2, 10);
    EXPECT_EQ(TakenAtOnce(limit, "a", start), 5);
}

TEST(RateLimit, LetsSoManyThroughASecondInTheLongRun) {
    RateLimit limit(5, 2, 10);
    int taken = 0;
    for (auto now = start; now < start + 100s; now += 10ms) taken += limit.Take("a", now) ? 1 : 0;
    EXPECT_NEAR(taken, 5 + 200, 1);
}

TEST(RateLimit, SavesUpNoMoreThanThat) {
    RateLimit limit(5, 2, 10);
    TakenAtOnce(limit, "a", start);
    EXPECT_EQ(TakenAtOnce(limit, "a", start + 1h), 5);
}

TEST(RateLimit, CountsEachCallerByItself) {
    RateLimit limit(5, 2, 10);
    TakenAtOnce(limit, "a", start);
    EXPECT_EQ(TakenAtOnce(limit, "b", start), 5);
}

TEST(RateLimit, SaysWhenToComeAgain) {
    RateLimit limit(1, 0.1, 10);
    EXPECT_TRUE(limit.Take("a", start));
    EXPECT_FALSE(limit.Take("a", start));
    EXPECT_EQ(limit.RetryAfter("a"), 10);
    EXPECT_FALSE(limit.Take("a", start + 9s));
    EXPECT_EQ(limit.RetryAfter("a"), 1);
    EXPECT_TRUE(limit.Take("a", start + 10s + 1ms));
    EXPECT_EQ(limit.RetryAfter("nobody"), 1);
}

TEST(RateLimit, RemembersTheLatestCallersOnly) {
    RateLimit limit(1, 0.1, 2);
    limit.Take("a", start);
    limit.Take("b", start + 1ms);
    limit.Take("c", start + 2ms);
    EXPECT_FALSE(limit.Take("b", start + 3ms));
    EXPECT_FALSE(limit.Take("c", start + 4ms));
    EXPECT_TRUE(limit.Take("a", start + 5ms));  // it was forgotten
}

TEST(RateLimit, CountsANetworkOfVersion6AsOneCaller) {
    EXPECT_EQ(http::CountedAs("2001:db8::1"), http::CountedAs("2001:db8::ffff:1"));
    EXPECT_NE(http::CountedAs("2001:db8::1"), http::CountedAs("2001:db8:0:1::1"));
    EXPECT_EQ(http::CountedAs("192.0.2.7"), "192.0.2.7");
    EXPECT_EQ(http::CountedAs("::ffff:192.0.2.7"), "192.0.2.7");
    EXPECT_EQ(http::CountedAs(""), "");
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/gate/Sessions.h"

#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <string>

using namespace std::chrono_literals;
using gate::Session;
using gate::Sessions;

namespace {

const gate::Time opening{1h};
const tokens::Digest key = tokens::DigestOf("vt_a");

}  // namespace

TEST(Sessions, AreFoundByTheirSecret) {
    Sessions all({30min, 12h}, 10);
    const std::string secret = all.Begin(key, opening);
    const Session* const session = all.Find(secret, opening);
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(session->token, key);
    EXPECT_EQ(all.Find("", opening), nullptr);
    EXPECT_EQ(all.Find(tokens::HexOf(tokens::DigestOf(secret)), opening), nullptr);
}

TEST(Sessions, HaveSecretsOfTheirOwn) {
    Sessions all({30min, 12h}, 10);
    std::set<std::string> secrets;
    for (int i = 0; i < 3; ++i) {
        const std::string secret = all.Begin(key, opening);
        secrets.insert(secret);
        secrets.insert(all.Find(secret, opening)->csrf);
    }
    EXPECT_EQ(secrets.size(), 6U);
    for (const std::string& secret : secrets) EXPECT_EQ(secret.size(), 64U);
}

TEST(Sessions, EndWhenNobodyUsesThem) {
    Sessions all({30min, 12h}, 10);
    const std::string secret = all.Begin(key, opening);
    EXPECT_NE(all.Find(secret, opening + 30min - 1s), nullptr);
    EXPECT_EQ(all.Find(secret, opening + 30min), nullptr);
}

TEST(Sessions, GoOnWhileTheyAreUsed) {
    Sessions all({30min, 12h}, 10);
    const std::string secret = all.Begin(key, opening);
    all.Touch(secret, opening + 29min);
    EXPECT_NE(all.Find(secret, opening + 58min), nullptr);
}

TEST(Sessions, EndAfterTwelveHoursHoweverOftenTheyAreUsed) {
    Sessions all({30min, 12h}, 10);
    const std::string secret = all.Begin(key, opening);
    for (auto now = opening; now < opening + 12h; now += 10min) {
        ASSERT_NE(all.Find(secret, now), nullptr);
        all.Touch(secret, now);
    }
    EXPECT_EQ(all.Find(secret, opening + 12h), nullptr);
}

TEST(Sessions, EndWhenTheyAreToldTo) {
    Sessions all({30min, 12h}, 10);
    const std::string secret = all.Begin(key, opening);
    const std::string other = all.Begin(key, opening);
    all.End(secret);
    EXPECT_EQ(all.Find(secret, opening), nullptr);
    EXPECT_NE(all.Find(other, opening), nullptr);
}

TEST(Sessions, MakeRoomForANewOne) {
    Sessions all({30min, 12h}, 2);
    const std::string first = all.Begin(key, opening);
    const std::string second = all.Begin(key, opening + 1s);
    all.Touch(first, opening + 2s);
    all.Begin(key, opening + 3s);
    EXPECT_EQ(all.Count(), 2U);
    EXPECT_NE(all.Find(first, opening + 4s), nullptr);
    EXPECT_EQ(all.Find(second, opening + 4s), nullptr);
}

TEST(Sessions, AreNotKeptWhenTheyHaveEnded) {
    Sessions all({30min, 12h}, 10);
    for (int i = 0; i < 5; ++i) all.Begin(key, opening);
    all.Begin(key, opening + 1h);
    EXPECT_EQ(all.Count(), 1U);
}

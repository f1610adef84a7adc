// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/tokens/Secret.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <optional>
#include <set>
#include <string>

using namespace tokens;

TEST(Secret, HasSixtyFourHexDigits) {
    EXPECT_NE(DigestIn(NewSecret()), std::nullopt);
}

TEST(Secret, IsAnotherOneEachTime) {
    std::set<std::string> all;
    for (int i = 0; i < 1000; ++i) all.insert(NewSecret());
    EXPECT_EQ(all.size(), 1000U);
}

// Bits that are stuck would be guessed.
TEST(Secret, HasEachBitBothWays) {
    Digest ones{}, zeros{};
    for (int i = 0; i < 100; ++i) {
        const auto bytes = DigestIn(NewSecret());
        ASSERT_TRUE(bytes);
        for (std::size_t at = 0; at < bytes->size(); ++at) {
            ones[at] = static_cast<std::uint8_t>(ones[at] | (*bytes)[at]);
            zeros[at] = static_cast<std::uint8_t>(zeros[at] | ~(*bytes)[at]);
        }
    }
    EXPECT_EQ(HexOf(ones), std::string(64, 'f'));
    EXPECT_EQ(HexOf(zeros), std::string(64, 'f'));
}

// FIPS 180-4, examples.
TEST(Secret, HasTheDigestOfTheStandard) {
    EXPECT_EQ(HexOf(DigestOf("")),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(HexOf(DigestOf("abc")),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(HexOf(DigestOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

TEST(Digest, IsEqualToItselfOnly) {
    const Digest digest = DigestOf("abc");
    EXPECT_TRUE(AreEqual(digest, DigestOf("abc")));
    for (std::size_t at = 0; at < digest.size(); ++at) {
        Digest other = digest;
        other[at] ^= 1;
        EXPECT_FALSE(AreEqual(digest, other)) << at;
    }
}

TEST(Digest, IsReadBackFromHex) {
    const Digest digest = DigestOf("abc");
    EXPECT_EQ(DigestIn(HexOf(digest)), digest);
}

TEST(Digest, IsNoOtherText) {
    const std::string hex = HexOf(DigestOf("abc"));
    std::string capitals = hex, blank = hex;
    capitals[1] = 'A';
    blank[63] = ' ';
    for (const std::string& text : {std::string(), hex.substr(1), hex + "0", capitals, blank})
        EXPECT_EQ(DigestIn(text), std::nullopt) << text;
}

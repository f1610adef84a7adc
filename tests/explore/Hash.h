// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// 128 bits by which states are told apart. Two states with the same hash are taken for the same
// one; among a million states that happens by chance with a probability below 1e-26.
#pragma once

#include <cstdint>
#include <cstring>
#include <span>

namespace explore {

struct Hash {
    std::uint64_t a = 0x9E3779B97F4A7C15U;
    std::uint64_t b = 0xC2B2AE3D27D4EB4FU;
    bool operator==(const Hash&) const = default;

    void Add(std::span<const std::uint8_t> bytes) {
        Mix(bytes.size());
        std::size_t at = AddBlocks(bytes);
        for (; at + 8 <= bytes.size(); at += 8) Mix(WordAt(bytes, at));
        std::uint64_t rest = 0;
        if (at < bytes.size()) std::memcpy(&rest, bytes.data() + at, bytes.size() - at);
        Mix(rest);
    }

    /// Four hashes of every fourth word each, which the processor computes side by side, and then
    /// these. Returns where the rest begins.
    std::size_t AddBlocks(std::span<const std::uint8_t> bytes) {
        constexpr std::size_t width = 4;
        if (bytes.size() < 16 * width) return 0;
        Hash lanes[width];
        std::size_t at = 0;
        for (; at + 8 * width <= bytes.size(); at += 8 * width)
            for (std::size_t i = 0; i < width; ++i) lanes[i].Mix(WordAt(bytes, at + 8 * i));
        for (const Hash& lane : lanes) {
            Mix(lane.a);
            Mix(lane.b);
        }
        return at;
    }

    static std::uint64_t WordAt(std::span<const std::uint8_t> bytes, std::size_t at) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes.data() + at, sizeof word);
        return word;
    }

    void Mix(std::uint64_t word) {
        a = (a ^ word) * 0xFF51AFD7ED558CCDU;
        a ^= a >> 32;
        b = (b + word) * 0xC4CEB9FE1A85EC53U;
        b ^= b >> 29;
    }
};

struct HashOfHash {
    std::size_t operator()(const Hash& hash) const { return hash.a ^ hash.b; }
};

}  // namespace explore

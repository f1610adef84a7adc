// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The heap that is put back. Each test runs in a child, which begins with an empty one.
#include "tests/explore/DriverHeap.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <vector>

namespace heap = explore::heap;

namespace {

using Bytes = std::vector<std::uint8_t>;

/// Runs the checks in a child; true when none failed there.
template <typename Checks>
bool HoldsInChild(Checks checks) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        checks();
        std::fflush(nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

/// What the driver's code would call. Not inline, so that no compiler leaves out a pair of calls.
[[gnu::noinline]] std::uint8_t* Take(std::size_t size) {
    heap::Enter();
    void* const block = std::malloc(size);
    heap::Leave();
    return static_cast<std::uint8_t*>(block);
}

[[gnu::noinline]] std::uint8_t* Filled(std::size_t size, std::uint8_t byte) {
    std::uint8_t* const block = Take(size);
    std::memset(block, byte, size);
    return block;
}

[[gnu::noinline]] void Free(void* block) {
    heap::Enter();
    std::free(block);
    heap::Leave();
}

[[gnu::noinline]] std::uint8_t* Resize(void* block, std::size_t size) {
    heap::Enter();
    void* const other = std::realloc(block, size);
    heap::Leave();
    return static_cast<std::uint8_t*>(other);
}

Bytes Saved() {
    Bytes bytes;
    heap::Save(bytes);
    return bytes;
}

bool All(const std::uint8_t* block, std::size_t size, std::uint8_t byte) {
    return std::all_of(block, block + size, [&](std::uint8_t each) { return each == byte; });
}

constexpr std::size_t sizes[] = {1, 16, 17, 100, 1000, 4096, 65536};

}  // namespace

TEST(DriverHeap, ASlotIsZeroAgainAfterFree) {
    EXPECT_TRUE(HoldsInChild([] {
        for (const std::size_t size : sizes) {
            std::uint8_t* const block = Filled(size, 0xA5);
            Free(block);
            EXPECT_EQ(Take(size), block) << size;  // the first free slot
            EXPECT_TRUE(All(block, size, 0)) << size;
        }
    }));
}

TEST(DriverHeap, CallocIsZeroAndRefusesMoreThanThereIs) {
    EXPECT_TRUE(HoldsInChild([] {
        Free(Filled(96, 0xA5));
        heap::Enter();
        auto* const block = static_cast<std::uint8_t*>(std::calloc(12, 8));
        volatile std::size_t most = static_cast<std::size_t>(-1);
        void* const tooMuch = std::calloc(most, 2);
        heap::Leave();
        EXPECT_TRUE(All(block, 96, 0));
        EXPECT_EQ(tooMuch, nullptr);
    }));
}

TEST(DriverHeap, IsNotUsedOutside) {
    EXPECT_TRUE(HoldsInChild([] {
        heap::Clear();
        const Bytes before = Saved();
        void* const volatile ours = std::malloc(100);
        EXPECT_EQ(Saved(), before);
        Free(ours);  // of the C library, also while the driver's code runs
        EXPECT_EQ(Saved(), before);
        std::uint8_t* const theirs = Filled(100, 1);
        EXPECT_NE(Saved(), before);
        std::free(theirs);  // also outside
        EXPECT_EQ(Saved(), before);
    }));
}

TEST(DriverHeap, BlocksInUseDoNotOverlap) {
    EXPECT_TRUE(HoldsInChild([] {
        std::vector<std::pair<std::uint8_t*, std::size_t>> blocks;
        for (int round = 0; round < 30; ++round)
            for (const std::size_t size : sizes)
                blocks.emplace_back(Filled(size, static_cast<std::uint8_t>(blocks.size())), size);
        for (std::size_t i = 0; i < blocks.size(); ++i)
            EXPECT_TRUE(All(blocks[i].first, blocks[i].second, static_cast<std::uint8_t>(i))) << i;
    }));
}

TEST(DriverHeap, IsRestoredWithItsHoles) {
    EXPECT_TRUE(HoldsInChild([] {
        std::vector<std::uint8_t*> blocks;
        for (std::uint8_t i = 0; i < 100; ++i) blocks.push_back(Filled(40, i));
        for (std::size_t i = 0; i < 100; i += 3) Free(blocks[i]);
        std::uint8_t* const large = Filled(60000, 0x77);
        const Bytes saved = Saved();

        Free(large);
        for (std::size_t i = 1; i < 100; i += 3) Free(blocks[i]);       // more holes,
        std::memset(blocks[2], 0xFF, 40);                               // another content
        for (int i = 0; i < 80; ++i) Filled(i % 2 == 0 ? 40 : 400, 7);  // and more in use
        EXPECT_NE(Saved(), saved);
        EXPECT_EQ(heap::Restore(saved), saved.size());

        for (std::uint8_t i = 0; i < 100; ++i)
            EXPECT_TRUE(All(blocks[i], 40, i % 3 == 0 ? 0 : i)) << int{i};
        EXPECT_TRUE(All(large, 60000, 0x77));
        EXPECT_EQ(Saved(), saved);
        EXPECT_EQ(Take(40), blocks[0]);  // the holes are free again
        EXPECT_EQ(Take(40), blocks[3]);
    }));
}

TEST(DriverHeap, RestoreTakesItsOwnOfTheBytesAndLeavesFreeMemoryZero) {
    EXPECT_TRUE(HoldsInChild([] {
        Bytes saved = Saved();
        const std::size_t size = saved.size();
        saved.insert(saved.end(), 100, 0xEE);
        std::uint8_t* const block = Filled(200, 9);
        EXPECT_EQ(heap::Restore(saved), size);
        EXPECT_EQ(Take(200), block);
        EXPECT_TRUE(All(block, 200, 0));
    }));
}

TEST(DriverHeap, SaveAppends) {
    EXPECT_TRUE(HoldsInChild([] {
        Filled(16, 3);
        const Bytes saved = Saved();
        Bytes bytes = {1, 2};
        heap::Save(bytes);
        EXPECT_TRUE(std::ranges::equal(std::span(bytes).subspan(2), saved));
        EXPECT_EQ(heap::Restore(std::span(bytes).subspan(2)), saved.size());
        EXPECT_EQ(Saved(), saved);
    }));
}

TEST(DriverHeap, ClearMakesItEmptyAndZero) {
    EXPECT_TRUE(HoldsInChild([] {
        const Bytes empty = Saved();
        std::uint8_t* const block = Filled(5000, 9);
        Filled(10, 9);
        heap::Clear();
        EXPECT_EQ(Saved(), empty);
        EXPECT_EQ(Take(5000), block);
        EXPECT_TRUE(All(block, 5000, 0));
    }));
}

TEST(DriverHeap, ReallocAcrossSizesKeepsTheBytes) {
    EXPECT_TRUE(HoldsInChild([] {
        for (const std::size_t from : sizes)
            for (const std::size_t to : sizes) {
                std::uint8_t* const block = Resize(Filled(from, 0x5A), to);
                EXPECT_TRUE(All(block, std::min(from, to), 0x5A)) << from << " to " << to;
                Free(block);
            }
        const Bytes after = Saved();
        heap::Clear();
        EXPECT_EQ(after, Saved());  // nothing is left over
    }));
}

TEST(DriverHeap, ReallocLeavesNothingInTheRestOfAShrunkBlockAndInTheOldOne) {
    EXPECT_TRUE(HoldsInChild([] {
        std::uint8_t* const old = Filled(1000, 0x5A);
        std::uint8_t* const block = Resize(old, 3);
        EXPECT_TRUE(All(block, 3, 0x5A));
        EXPECT_TRUE(All(block + 3, 13, 0));
        EXPECT_EQ(Take(1000), old);
        EXPECT_TRUE(All(old, 1000, 0));
    }));
}

TEST(DriverHeap, ReallocTakesNothingOfTheNextBlock) {
    EXPECT_TRUE(HoldsInChild([] {
        std::uint8_t* const block = Filled(16, 1);
        EXPECT_EQ(Filled(16, 7), block + 16);
        EXPECT_TRUE(All(Resize(block, 100) + 16, 84, 0));
    }));
}

TEST(DriverHeap, ReallocOfNothingIsMalloc) {
    EXPECT_TRUE(HoldsInChild([] {
        const Bytes empty = Saved();
        std::uint8_t* const block = Resize(nullptr, 50);
        EXPECT_NE(Saved(), empty);
        Free(block);
        EXPECT_EQ(Saved(), empty);
    }));
}

TEST(DriverHeap, TheSameCallsGiveTheSameBytes) {
    EXPECT_TRUE(HoldsInChild([] {
        const auto calls = [] {
            std::vector<std::uint8_t*> blocks;
            for (std::uint8_t i = 0; i < 60; ++i) blocks.push_back(Filled(sizes[i % 5], i));
            for (std::size_t i = 0; i < 60; i += 2) Free(blocks[i]);
            for (std::size_t i = 1; i < 60; i += 4) blocks[i] = Resize(blocks[i], 2000);
            // Addresses are part of the bytes, as in the driver's own structures.
            std::memcpy(Take(sizeof blocks[1]), &blocks[1], sizeof blocks[1]);
            return Saved();
        };
        const Bytes first = calls();
        for (int i = 0; i < 50; ++i) Filled(300, 0xEE);  // the past leaves no trace
        heap::Clear();
        EXPECT_EQ(calls(), first);
        EXPECT_GT(first.size(), 60U * 16);
    }));
}

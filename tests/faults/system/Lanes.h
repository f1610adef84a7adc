// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Many runs that wait more than they compute, several at a time, and the sum of what became of
// them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <vector>

#include "tests/faults/Campaign.h"

namespace faults {

/// Calls run(0) to run(count - 1), each once, from so many threads. An exception is a violation,
/// and so is running out of time in all.
Tally RunInLanes(std::size_t count, unsigned lanes, unsigned secondsInAll,
                 const std::function<Outcome(std::size_t)>& run);

/// As many of the items as wanted, spread evenly, by seed; all of them when wanted is 0.
template <typename Item>
void KeepSome(std::vector<Item>& items, std::size_t wanted, std::uint64_t seed);

}  // namespace faults

template <typename Item>
void faults::KeepSome(std::vector<Item>& items, std::size_t wanted, std::uint64_t seed) {
    if (wanted == 0 || wanted >= items.size()) return;
    std::mt19937_64 random(seed);
    std::shuffle(items.begin(), items.end(), random);
    items.resize(wanted);
}

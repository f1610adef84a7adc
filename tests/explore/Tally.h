// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What became of many schedules: how many ended how, with which numbers of faults, and for each end
// one of the schedules with the fewest faults that lead to it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/explore/Fault.h"
#include "tests/explore/Verdict.h"

namespace explore {

inline constexpr int mostFaults = 6;
using Counts = std::array<std::uint64_t, mostFaults + 1>;  // by number of faults

/// A fault and what follows it. Tails are shared between schedules.
struct Path {
    Fault fault;
    std::size_t gap;  // places from this one to that of the next fault
    std::shared_ptr<const Path> next;
};

/// The frames that the driver has written between two places, by its runs.
struct Frames {
    std::size_t first = 0;    // of the run that went on, until its end or the second place
    bool runEnded = false;    // then these two count:
    std::size_t longest = 0;  // of a whole run in between
    std::size_t last = 0;     // of the run that goes on at the second place

    void Count() { ++(runEnded ? last : first); }
    void EndRun();
};

class Tally {
  public:
    struct Row {
        Ending ending;
        Counts counts{};
        int fewest = mostFaults + 1;          // faults of the example
        std::size_t distance = 0;             // places from here to the first of them
        std::shared_ptr<const Path> example;  // none when nothing happens

        Schedule Example(std::size_t place) const;
    };

    /// Of the end of a schedule.
    static Tally Of(const Ending& ending);

    /// Adds what a decision leads to: what follows, so many places from here.
    void Add(Fault fault, std::size_t distance, const Frames& frames, const Tally& rest);

    /// As text that Parse understands.
    std::string Text() const;
    /// Throws std::exception for anything else.
    static Tally Parse(const std::string& text);

    /// The same ends with the same numbers of schedules and faults; the examples may differ.
    bool SaysTheSameAs(const Tally& other) const;

    const std::vector<Row>& Rows() const { return rows_; }
    Counts Sum() const;
    /// That the driver writes in one run, from here on.
    std::size_t MostFrames() const {
        return framesLeft_ > framesInRun_ ? framesLeft_ : framesInRun_;
    }

  private:
    Row& RowOf(const Ending& ending);

    std::vector<Row> rows_;        // few, in no order
    std::size_t framesLeft_ = 0;   // most of the run that goes on
    std::size_t framesInRun_ = 0;  // most of any run after that
};

}  // namespace explore

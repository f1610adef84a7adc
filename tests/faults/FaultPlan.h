// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What goes wrong on the line in one run: faults at single bytes, counted over the whole run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "emulator/Wire.h"

namespace faults {

enum class Direction : std::uint8_t { ToRegister, ToDriver };

enum class Kind : std::uint8_t {
    Substitute,  // the byte arrives as value
    Flip,        // the byte arrives with the bits of value inverted
    Drop,        // the byte does not arrive
    Duplicate,   // the byte arrives twice
    Truncate,    // neither it nor what follows in the same transmission arrives
    Insert,      // value arrives in front of it
    Late,        // it and what follows in the same transmission wait for one more write of the
                 // driver; to the driver only, and only on a line that has a time
    Silence,     // neither it nor anything after it, to the end of the run
    Stuck,  // every byte of that value arrives with its lowest bit inverted, whatever the index
    Noise,  // it and everything after it arrive with the bits of value inverted
};

/// The index counts the bytes sent in that direction since the beginning of the run, from 0.
struct Fault {
    Direction direction;
    Kind kind;
    std::uint8_t value;
    std::size_t index;
};

/// "byte 17 to the register replaced by 3Fh"
std::string Describe(const Fault& fault);

/// A byte that arrives.
struct Arrival {
    std::uint8_t value;
    std::size_t origin;  // which of the bytes sent together it was, or was inserted in front of
    bool noise = false;  // inserted: nobody sent it
    int late = 0;        // writes of the driver that come first
};

class FaultPlan {
  public:
    FaultPlan() = default;
    explicit FaultPlan(std::vector<Fault> faults) : faults_(std::move(faults)) {}

    /// What arrives of the bytes that are sent together.
    std::vector<Arrival> Carry(Direction direction, emulator::View sent);
    /// The same without its times.
    emulator::Bytes Apply(Direction direction, emulator::View sent);
    /// The bytes sent so far in that direction.
    std::size_t Sent(Direction direction) const {
        return sent_[static_cast<std::size_t>(direction)];
    }

  private:
    std::vector<Fault> faults_;
    std::size_t sent_[2] = {};
};

}  // namespace faults

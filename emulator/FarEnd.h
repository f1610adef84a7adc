// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What is at the register's end of a line: takes bytes, returns bytes, has no clock and no device.
#pragma once

#include <chrono>

#include "emulator/Wire.h"

namespace emulator {

class FarEnd {
  public:
    virtual ~FarEnd() = default;

    /// Bytes from the other end; the reply comes back, empty for silence.
    virtual Bytes Feed(View bytes) = 0;

    /// The line has been quiet for longer than the pause between two bytes of one frame: what has
    /// come in so far is all of it. The reply comes back, empty for silence.
    virtual Bytes Idle() = 0;

    /// True while a burst has begun that no frame has ended: Idle is owed once the line is quiet.
    virtual bool Pending() const = 0;

    /// How much later than usual the reply that came back last is to be sent.
    virtual std::chrono::milliseconds Delay() const { return std::chrono::milliseconds::zero(); }

    /// The oldest of the replies that were still to be sent has gone over the line.
    virtual void Sent() {}
    /// None of the replies that were still to be sent will be.
    virtual void Unsent() {}
    /// Times that power has failed: what was still to be sent then never will be.
    virtual int PowerFailures() const { return 0; }

    /// The other end has closed the line.
    virtual void Closed() {}
};

}  // namespace emulator

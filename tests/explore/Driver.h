// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The driver as the explorer sees it: a program that now and then calls its channel and waits for
// the answer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace explore {

struct RunFiles {
    std::string ini, command, result;
};

/// How a run of the driver ended.
struct DriverEnd {
    int exitCode = -1;
    bool escaped = false;  // by an exception that is none of the driver's
};

/// What the driver waits for. The block is valid until the call is answered.
struct Call {
    enum class Kind : std::uint8_t { Open, Close, Write, Read, Ended };
    Kind kind = Kind::Ended;
    std::uint8_t* block = nullptr;
    std::size_t size = 0;
};

class Driver {
  public:
    virtual ~Driver() = default;

    /// Begins a run in a process that has not run the driver before, until its first call.
    virtual const Call& Start(const RunFiles& files) = 0;
    /// Answers the call and goes on until the next.
    virtual const Call& Resume(bool answer) = 0;
    virtual const Call& Pending() const = 0;
    /// After Call::Kind::Ended.
    virtual DriverEnd End() const = 0;
};

/// One run of the driver's code in this process, on the port that is plugged in. A process can do
/// so once, for the driver never clears its flags.
DriverEnd RunDriver(const RunFiles& files);

}  // namespace explore

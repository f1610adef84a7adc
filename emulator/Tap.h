// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Beside a line: sees each frame that passes, and may spoil it.
#pragma once

#include <chrono>
#include <cstdint>

#include "emulator/Wire.h"

namespace emulator {

enum class FrameKind : std::uint8_t {
    // to the register, good and due
    Request,
    Data,
    EndOfFile,
    Answer,
    Unreadable,  // a burst that is no such frame; only told, never spoiled
    // from the register
    Response,  // ACK, NAK or BSY
    Status,    // the data frame of the status
    StatusEof,
};

constexpr bool ToRegister(FrameKind kind) {
    return kind <= FrameKind::Unreadable;
}

/// What becomes of a frame on its way.
enum class Fate : std::uint8_t {
    Pass,
    Lose,     // it does not arrive
    Corrupt,  // its last byte arrives with a bit inverted
    Cut,      // its first half arrives
    Nak,      // to the register: answered by NAK and not acted on
    Busy,     // to the register: answered by BSY and not acted on
};

class Tap {
  public:
    Tap() = default;
    virtual ~Tap() = default;
    Tap(const Tap&) = delete;
    Tap& operator=(const Tap&) = delete;

    /// The frame is about to reach the other end. Unreadable ones are not met.
    virtual Fate Meet(FrameKind kind, View frame) = 0;
    /// What has become of a frame, which is as it was before that: of one to the register at once,
    /// of one from it when it has gone over the line, or cannot go any more.
    virtual void Tell(FrameKind kind, View frame, Fate fate) = 0;
    /// It has reached it, and the register has acted on it.
    virtual void Passed(FrameKind kind) = 0;
    /// How late the reply is that is being given. Asked once for each good frame or end of a burst,
    /// also when nothing is sent.
    virtual std::chrono::milliseconds TakeDelay(bool sent) = 0;
};

}  // namespace emulator

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The frames of a run, whichever family they are of.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "ProtocolFormatting.h"
#include "companion/trace/Event.h"
#include "companion/verdict/Frames.h"

namespace trace {

/// The family of a frame that the driver sent, and its network ID; nothing when it is of neither.
/// Of a frame that is no request, the network ID is the usual one.
std::optional<verdict::Wire> Recognise(verdict::View sent);

/// Bytes of one direction, told apart.
struct Seen {
    FrameKind kind = FrameKind::Unknown;
    Reply reply = Reply::NotDue;                 // of an Answer: what it says
    std::uint8_t command = 0;                    // of what the driver sends
    std::optional<std::uint16_t> sequence = {};  // of Data and Status
    std::vector<std::uint8_t> payload = {};      // of these, after the number
};

/// Reads the frames of one run.
class Wire {
  public:
    explicit Wire(const verdict::Wire& wire);

    const verdict::Wire& Kind() const { return wire_; }
    /// When somebody else has told already what it is, that is passed on.
    Seen Sent(verdict::View frame, const verdict::Sent* known = nullptr);
    const Seen& Heard(verdict::View frame);
    /// Several frames in one block: the first, and its size. Of bytes that are no frame all that
    /// come before the next one.
    std::pair<Seen, std::size_t> First(verdict::View bytes);

  private:
    Seen Data(FrameKind kind, verdict::View frame) const;
    Seen Tell(verdict::View frame) const;
    std::size_t SizeOfFirst(verdict::View bytes) const;

    verdict::Wire wire_;
    verdict::Frames frames_;
    std::unique_ptr<IProtocolFormatter> formatter_;
    std::vector<std::uint8_t> heard_;  // last: nearly all that comes is the same answer
    Seen seen_;                        // and what that was
};

}  // namespace trace

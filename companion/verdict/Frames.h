// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The frames of a conversation, told apart with the driver's own formatter.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "ProtocolFormatting.h"

namespace verdict {

using View = std::span<const std::uint8_t>;

/// How frames look on the line.
struct Wire {
    ProtocolFormatting family = ProtocolFormatting_Ocelot;
    std::uint8_t networkId = 1;  // in Ocelot requests
    bool unchecked = false;      // check bytes do not count, as over a network
};

/// A frame of the driver.
struct Sent {
    enum class Kind : std::uint8_t { Request, StatusRequest, Data, EndOfFile, Answer, Unknown };
    Kind kind = Kind::Unknown;
    std::uint8_t command = 0;    // Request and Data: the command code
    std::uint16_t sequence = 0;  // Data
    bool again = false;          // Answer: it is a NAK
};

/// The status block of a register: docs/wire-format.md has its bytes.
struct Status {
    std::uint16_t sequence = 0;  // of the last data frame that the register received
    std::uint8_t result = 0;     // of that frame, as it is on the line; 0: done
    std::uint8_t flags = 0;      // keylock, fiscal mode, receipt
    std::uint8_t protocol = 0;   // tells the model
    std::uint32_t receipt = 0;   // number of the open receipt, or of the last one
    std::int64_t subtotal = 0;   // of the open receipt, in hundredths

    bool InFiscalMode() const { return (flags >> 5 & 1) != 0; }
    bool ReceiptOpen() const { return (flags >> 6 & 1) != 0; }
    bool operator==(const Status&) const = default;
};

/// A frame of the register that says something.
struct Heard {
    enum class Kind : std::uint8_t { Ack, Status, EndOfFile };
    Kind kind = Kind::Ack;
    Status status = {};     // of its kind
    bool doubtful = false;  // an ACK of one byte, among bytes that are no frame: perhaps none
};

/// Reads the frames of one conversation, in order. A copy goes on by itself from where it is.
class Frames {
  public:
    explicit Frames(const Wire& wire);

    Sent Take(View frame);
    /// Bytes as they come, frames cut anywhere. What says nothing is passed over.
    std::vector<Heard> Listen(View bytes);
    /// What the future depends on.
    void Describe(std::vector<std::uint8_t>& state) const;

  private:
    std::optional<std::uint8_t> RequestedCommand(View frame) const;
    std::optional<Status> StatusAt(View bytes) const;
    std::size_t StatusSize() const;
    bool IsEof(View frame) const;
    std::size_t HearOne(View bytes, std::vector<Heard>& all);
    std::vector<Heard> ListenUnchecked(View bytes);

    Wire wire_;
    std::shared_ptr<IProtocolFormatter> formatter_;  // only for what does not change it
    std::uint8_t command_ = 0;                       // of the last request; 0: none yet
    std::array<std::uint8_t, 2> check_{};            // of the status block heard last
    std::vector<std::uint8_t> heard_;                // last, and may be the beginning of a frame
};

}  // namespace verdict

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The frames of both register families, seen from the register: bytes in, frames out, and back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "emulator/Model.h"

namespace emulator {

using Bytes = std::vector<std::uint8_t>;
using View = std::span<const std::uint8_t>;

/// How either end answers a frame. Busy is sent by the register only.
enum class Answer { Ack, Nak, Busy };

/// What a request asks for. Margay requests do not say: Either.
enum class Direction { Send, Read, Either };

struct Request {
    Direction direction;
    std::optional<std::uint8_t> networkId;  // none in the Margay family
    std::uint8_t command;
};

/// One family of frames. Every Parse takes a whole burst and succeeds only when the burst is
/// exactly one good frame of that kind: right size, right check bytes, nothing before or after it.
/// It keeps no state, so it may be asked after every byte.
class Wire {
  public:
    virtual ~Wire() = default;

    virtual std::optional<Request> ParseRequest(View burst) const = 0;

    /// The bytes inside a data frame that carries exactly dataSize bytes (sequence number
    /// included).
    virtual std::optional<Bytes> ParseData(View burst, std::size_t dataSize) const = 0;

    /// True for the end-of-file frame that closes data frames with that running total.
    virtual bool ParseEof(View burst, std::uint8_t total) const = 0;

    /// True for an end-of-file frame with any total.
    virtual bool IsSomeEof(View burst) const = 0;

    /// The other end's answer to a frame of ours; Ack or Nak.
    virtual std::optional<Answer> ParseAnswer(View burst) const = 0;

    /// What a good data frame adds to the running total; always 0 in the Ocelot family.
    virtual std::uint8_t TotalOf(View dataFrame) const = 0;

    /// True when no data frame can begin with the bytes of a request.
    virtual bool RequestStandsOut() const = 0;

    virtual Bytes BuildAnswer(Answer answer) const = 0;
    virtual Bytes BuildData(View data) const = 0;
    virtual Bytes BuildEof(std::uint8_t total) const = 0;

    /// The size on the line of a data frame that carries dataSize bytes.
    virtual std::size_t DataFrameSize(std::size_t dataSize) const = 0;

    static constexpr std::size_t kRequestSize = 5;  // in both families
};

/// The frames of a family; each family is a file of its own, OcelotWire.cpp and MargayWire.cpp.
std::unique_ptr<Wire> MakeWire(WireFamily family);

}  // namespace emulator

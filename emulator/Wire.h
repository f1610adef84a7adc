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

/// The answers that either end gives to a frame. Busy is sent by the register only.
enum class Answer { Ack, Nak, Busy };

/// What a request asks for. Margay requests do not say: Either.
enum class Direction { Send, Read, Either };

struct Request {
    Direction direction;
    std::optional<std::uint8_t> networkId;  // none in the Margay family
    std::uint8_t command;
};

/// One family of frames. Every Parse takes a whole burst and succeeds only when the burst is
/// exactly one good frame of that kind: right size, right check bytes, nothing before or behind.
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

/// Binary frames closed by an XOR byte and a byte that brings the sum of the frame to zero.
class OcelotWire : public Wire {
  public:
    std::optional<Request> ParseRequest(View burst) const override;
    std::optional<Bytes> ParseData(View burst, std::size_t dataSize) const override;
    bool ParseEof(View burst, std::uint8_t total) const override;
    bool IsSomeEof(View burst) const override;
    std::optional<Answer> ParseAnswer(View burst) const override;
    std::uint8_t TotalOf(View dataFrame) const override;
    bool RequestStandsOut() const override { return false; }
    Bytes BuildAnswer(Answer answer) const override;
    Bytes BuildData(View data) const override;
    Bytes BuildEof(std::uint8_t total) const override;
    std::size_t DataFrameSize(std::size_t dataSize) const override { return dataSize + 2; }
};

/// Frames of hexadecimal letters closed by a negated sum in two letters and an end byte.
class MargayWire : public Wire {
  public:
    std::optional<Request> ParseRequest(View burst) const override;
    std::optional<Bytes> ParseData(View burst, std::size_t dataSize) const override;
    bool ParseEof(View burst, std::uint8_t total) const override;
    bool IsSomeEof(View burst) const override;
    std::optional<Answer> ParseAnswer(View burst) const override;
    std::uint8_t TotalOf(View dataFrame) const override;
    bool RequestStandsOut() const override { return true; }
    Bytes BuildAnswer(Answer answer) const override;
    Bytes BuildData(View data) const override;
    Bytes BuildEof(std::uint8_t total) const override;
    std::size_t DataFrameSize(std::size_t dataSize) const override { return 2 * dataSize + 3; }
};

std::unique_ptr<Wire> MakeWire(WireFamily family);

}  // namespace emulator

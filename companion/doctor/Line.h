// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The line to a register, and one exchange of frames on it, as the driver has them.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ECR.h"
#include "ProtocolFormatting.h"
#include "companion/verdict/Frames.h"

namespace doctor {

using Bytes = std::vector<std::uint8_t>;

/// Bytes to and from a register.
class Line {
  public:
    Line() = default;
    virtual ~Line() = default;
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    /// Drops what has arrived unasked, and writes all. std::system_error: the device has failed.
    virtual void Write(verdict::View bytes) = 0;
    /// Waits for count bytes: for the first as long as given, for each further one 100 ms. What has
    /// come by then; likewise.
    virtual Bytes Read(std::size_t count, std::chrono::milliseconds first) = 0;
};

/// A serial port as the driver sets it: 19200 baud, 8 data bits, odd parity. The settings that it
/// had come back at the end.
class SerialLine : public Line {
  public:
    /// std::system_error: it cannot be opened or set.
    explicit SerialLine(const std::string& device);
    ~SerialLine() override;

    void Write(verdict::View bytes) override;
    Bytes Read(std::size_t count, std::chrono::milliseconds first) override;

  private:
    class Settings;

    void Drop() const;

    int fd_;
    std::unique_ptr<Settings> settings_;
};

/// What came in the place of a response.
enum class Reply { Ack, Nak, Busy, Garbage, Silence };

/// Speaks one family of frames to one address.
class Speaker {
  public:
    Speaker(Line& line, ProtocolFormatting family, std::uint8_t networkId,
            std::chrono::milliseconds wait);

    ProtocolFormatting Family() const { return family_; }
    std::uint8_t NetworkId() const { return networkId_; }

    struct Answer {
        Reply reply = Reply::Silence;           // to the request
        std::optional<verdict::Status> status;  // only of a good one
    };
    /// A status read, once.
    Answer ReadStatus();

    Reply Request(std::uint8_t command);
    /// spoilt: with wrong check bytes.
    Reply SendData(std::uint16_t number, const Bytes& payload, bool spoilt = false);
    Reply SendEof();

  private:
    Reply Send(const BUF& frame);
    BUF Receive(std::size_t size);
    void Accept();

    Line& line_;
    ProtocolFormatting family_;
    std::uint8_t networkId_;
    std::chrono::milliseconds wait_;
    std::unique_ptr<IProtocolFormatter> formatter_;
};

}  // namespace doctor

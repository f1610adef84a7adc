// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The other end of an emulated line, for tests: says one frame at a time and shows the replies.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "emulator/Line.h"

/// Bytes from hex text: "d0 01 b3".
inline emulator::Bytes FromHex(const std::string& text) {
    emulator::Bytes bytes;
    unsigned value = 0;
    int used = 0;
    for (const char* at = text.c_str(); std::sscanf(at, "%x%n", &value, &used) == 1; at += used)
        bytes.push_back(static_cast<std::uint8_t>(value));
    return bytes;
}

inline std::string ToHex(const emulator::Bytes& bytes) {
    std::string text;
    for (std::uint8_t byte : bytes) {
        char hex[4];
        std::snprintf(hex, sizeof hex, "%02x", byte);
        text += (text.empty() ? "" : " ") + std::string(hex);
    }
    return text;
}

inline emulator::Bytes Ascii(const std::string& text) {
    return {text.begin(), text.end()};
}

inline emulator::Bytes operator+(emulator::Bytes left, const emulator::Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// The payload of a sale in department 1, of 2.50.
inline const emulator::Bytes saleOf250 =
    FromHex("01") + emulator::Bytes(18, ' ') + FromHex("00 10 00 00 00 02 50");

/// Frames as a driver builds them, computed here on their own.
class Peer {
  public:
    Peer(emulator::Line& line, emulator::WireFamily family, std::uint8_t networkId = 1)
        : line_(line), margay_(family == emulator::WireFamily::Margay), id_(networkId) {}

    emulator::Bytes RequestFrame(std::uint8_t command) const {
        if (margay_) {
            emulator::Bytes frame = {2, command};
            Letters(frame, Negated(frame));
            frame.push_back(3);
            return frame;
        }
        const std::uint8_t kind = command == 0xD1 ? 0xD9 : 0xD0;
        return Sealed({kind, id_, command});
    }

    emulator::Bytes DataFrame(std::uint16_t sequence, const emulator::Bytes& payload) const {
        const emulator::Bytes data = emulator::Bytes{static_cast<std::uint8_t>(sequence & 255),
                                                     static_cast<std::uint8_t>(sequence >> 8)} +
                                     payload;
        if (!margay_) return Sealed(data);
        emulator::Bytes frame;
        for (std::uint8_t byte : data) Letters(frame, byte);
        total_ = Negated(frame);
        Letters(frame, total_);
        frame.push_back(0x0D);
        return frame;
    }

    /// Closes the data frame that was built last.
    emulator::Bytes EofFrame() const {
        if (!margay_) return FromHex("ff ff 00 02");
        emulator::Bytes frame;
        Letters(frame, total_);
        frame.push_back(0x1A);
        return frame;
    }

    emulator::Bytes Ack() const { return margay_ ? FromHex("06") : FromHex("d9 06 df 42"); }
    emulator::Bytes Nak() const { return margay_ ? FromHex("15") : FromHex("d9 15 cc 46"); }
    emulator::Bytes Busy() const { return margay_ ? FromHex("1b") : FromHex("d9 0b d2 4a"); }

    /// Feeds a frame and then leaves the line quiet; all that came back.
    emulator::Bytes Say(const emulator::Bytes& frame) {
        const emulator::Bytes first = line_.Feed(frame);
        line_.Sent();
        const emulator::Bytes second = line_.Idle();
        line_.Sent();
        return first + second;
    }

    /// Request and data frame; true for ACK, false for NAK. Anything else fails the test.
    bool Send(std::uint8_t command, std::uint16_t sequence, const emulator::Bytes& payload) {
        EXPECT_EQ(ToHex(Say(RequestFrame(command))), ToHex(Ack()));
        const emulator::Bytes reply = Say(DataFrame(sequence, payload));
        EXPECT_TRUE(reply == Ack() || reply == Nak()) << ToHex(reply);
        return reply == Ack();
    }

    void Close() { EXPECT_EQ(ToHex(Say(EofFrame())), ToHex(Ack())); }

    /// A whole command under the next sequence number.
    bool Do(std::uint8_t command, const emulator::Bytes& payload = {}) {
        const bool accepted = Send(command, sequence_, payload);
        if (accepted) Close();
        ++sequence_;
        return accepted;
    }

    /// The status exchange; sequence number and block, decoded from the frame.
    emulator::Bytes ReadStatus() {
        emulator::Bytes reply = Say(RequestFrame(0xD1));
        EXPECT_GE(reply.size(), Ack().size() + FrameSize());
        if (reply.size() < Ack().size() + FrameSize()) return {};
        EXPECT_EQ(emulator::Bytes(reply.begin(), reply.begin() + AckSize()), Ack());
        const emulator::Bytes frame(reply.begin() + AckSize(), reply.end());
        const emulator::Bytes eof = Say(Ack());
        EXPECT_EQ(eof.size(), margay_ ? 3U : 4U);
        EXPECT_TRUE(Say(Ack()).empty());
        return Inside(frame);
    }

    std::uint16_t sequence_ = 1;

  private:
    std::ptrdiff_t AckSize() const { return margay_ ? 1 : 4; }
    std::size_t FrameSize() const { return margay_ ? 2 * 17 + 3 : 17 + 2; }

    emulator::Bytes Inside(const emulator::Bytes& frame) const {
        if (!margay_) return {frame.begin(), frame.end() - 2};
        emulator::Bytes data;
        for (std::size_t i = 0; i + 3 < frame.size(); i += 2)
            data.push_back(static_cast<std::uint8_t>(
                std::stoi(std::string{static_cast<char>(frame[i]), static_cast<char>(frame[i + 1])},
                          nullptr, 16)));
        return data;
    }

    static emulator::Bytes Sealed(emulator::Bytes frame) {
        unsigned x = 0, sum = 0;
        for (std::uint8_t byte : frame) x ^= byte, sum += byte;
        frame.push_back(static_cast<std::uint8_t>(x));
        frame.push_back(static_cast<std::uint8_t>(0U - x - sum));
        return frame;
    }

    static std::uint8_t Negated(const emulator::Bytes& bytes) {
        unsigned sum = 0;
        for (std::uint8_t byte : bytes) sum += byte;
        return static_cast<std::uint8_t>(0U - sum);
    }

    static void Letters(emulator::Bytes& frame, std::uint8_t byte) {
        char hex[3];
        std::snprintf(hex, sizeof hex, "%02X", byte);
        frame.push_back(static_cast<std::uint8_t>(hex[0]));
        frame.push_back(static_cast<std::uint8_t>(hex[1]));
    }

    emulator::Line& line_;
    bool margay_;
    std::uint8_t id_;
    mutable std::uint8_t total_ = 0;
};

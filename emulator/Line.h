// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A register at the end of a line: takes bytes, returns bytes, knows nothing of time or devices.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "emulator/FarEnd.h"
#include "emulator/Model.h"
#include "emulator/Register.h"
#include "emulator/Tap.h"
#include "emulator/Wire.h"

namespace emulator {

/// What came in over the line since the start, and what was answered.
struct LineCounters {
    int requests = 0;                    // good requests for this register, status reads included
    int statusReads = 0;                 // requests for the fiscal status
    int dataFrames = 0;                  // good data frames, repetitions included
    int repeats = 0;                     // good data frames that were only acknowledged again
    int endOfFiles = 0;                  // end-of-file frames that closed a command
    int answers = 0;                     // good answers to frames of ours
    int unreadable = 0;                  // bursts that were no frame that could be used
    int acks = 0, naks = 0, busies = 0;  // answers given
    long bytesIn = 0, bytesOut = 0;

    bool operator==(const LineCounters&) const = default;
};

class Line : public FarEnd {
  public:
    /// The register must outlive the line. networkId is looked at in Ocelot frames only.
    Line(WireFamily family, Register& device, std::uint8_t networkId = 1);
    /// A line to another register that is where that one is in its exchange, with its counters and
    /// without its filters and its tap.
    Line(const Line& other, Register& device);
    /// The same for the register that this line has, which must be equal to the other's.
    void GoOnFrom(const Line& other);
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    /// A frame is acted on as soon as it is complete and good. What follows a frame that was
    /// answered in the same call is dropped as noise, for the other end waits for the answer before
    /// it goes on.
    Bytes Feed(View bytes) override;
    Bytes Idle() override;
    bool Pending() const override { return !burst_.empty(); }
    std::chrono::milliseconds Delay() const override { return delay_; }
    void Sent() override;
    void Unsent() override;
    int PowerFailures() const override { return device_.PowerCycles(); }

    Register& Device() { return device_; }
    const LineCounters& Counters() const { return counters_; }
    /// Where the exchange is: lines of one family with the same one and equal registers answer
    /// alike.
    Bytes Exchange() const;

    /// Filters that see, and may change, what goes over the line: each chunk before the register
    /// gets it, each reply before it is returned. For spoiling lines and for recording them.
    using Filter = std::function<void(Bytes&)>;
    void OnReceive(Filter filter) { onReceive_ = std::move(filter); }
    void OnSend(Filter filter) { onSend_ = std::move(filter); }
    /// The tap must outlive the line, or be taken away by null.
    void Attach(Tap* tap) { tap_ = tap; }

  private:
    enum class State { Request, Data, EndOfFile, StatusAnswer, EofAnswer };

    // A frame of a reply, for the tap.
    struct Leaving {
        FrameKind kind;
        Bytes frame;
        Fate fate;
    };

    bool LosePower();
    Bytes Give(Bytes reply);
    Bytes PastTheTap();
    Fate MeetTap(FrameKind kind, View frame);
    void Tell(const std::vector<Leaving>& frames);
    template <typename Act>
    std::optional<Bytes> Meet(FrameKind kind, Act act);
    std::optional<Bytes> Spoil(Fate fate);
    Bytes Leave(FrameKind kind, Bytes frame);
    std::optional<Bytes> TryFrame();
    std::optional<Bytes> TryRequest();
    std::optional<Bytes> TryExpected();
    bool IsKnown(const Request& request) const;
    std::optional<Bytes> MeetRequest(const Request& request);
    Bytes AcceptRequest(const Request& request);
    Bytes AcceptData(const Bytes& data);
    Bytes AcceptEof();
    Bytes AcceptAnswer(Answer answer);
    Bytes Unreadable();
    Bytes Reply(Answer answer);
    Bytes SendStatus();
    Bytes SendEof();

    std::shared_ptr<const Wire> wire_;
    Register& device_;
    std::uint8_t networkId_;
    int powerCycles_;
    State state_ = State::Request;
    Bytes burst_;
    std::uint8_t command_ = 0;
    std::size_t dataSize_ = 0;
    std::uint8_t total_ = 0;  // of the data frame taken in, or of the one sent
    LineCounters counters_;
    Filter onReceive_;
    Filter onSend_;
    Tap* tap_ = nullptr;
    std::chrono::milliseconds delay_{0};  // of the last reply
    // While there is a tap: of the reply that is being made, and of those that are still to be
    // sent.
    std::vector<Leaving> leaving_;
    std::deque<std::vector<Leaving>> unsent_;
};

}  // namespace emulator

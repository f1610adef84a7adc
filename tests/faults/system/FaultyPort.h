// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A pty in the place of the serial device, with the emulated register at its other end and a line
// between them that goes wrong once.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "emulator/Line.h"
#include "tests/faults/FaultPlan.h"

namespace faults {

/// A register at the end of its line; both keep what they know from run to run.
struct Device {
    emulator::Register device;
    emulator::Line line;

    explicit Device(emulator::WireFamily family);
    emulator::WireFamily Family() const { return family_; }

  private:
    emulator::WireFamily family_;
};

class FaultyPort {
  public:
    using Clock = std::chrono::steady_clock;

    /// The device must outlive the port.
    explicit FaultyPort(Device& device);
    ~FaultyPort();
    FaultyPort(const FaultyPort&) = delete;
    FaultyPort& operator=(const FaultyPort&) = delete;

    /// What to open in the place of the serial device.
    const std::string& DevicePath() const { return path_; }

    // Before the run; bytes are counted from 0 in their direction.
    void Spoil(const Fault& fault) { plan_ = FaultPlan({fault}); }
    /// The byte and all after it in that direction arrive that much later.
    void Stall(Direction direction, std::size_t index, std::chrono::milliseconds late);
    /// The power fails before the byte goes over the line and is back after that time.
    void CutPower(Direction direction, std::size_t index, std::chrono::milliseconds away);
    /// Called before the byte goes over the line.
    void At(Direction direction, std::size_t index, std::function<void()> action);

    /// Has the register at work until the process has ended and all that it sent was taken in;
    /// false when it has not ended in time.
    bool Serve(pid_t process, std::chrono::milliseconds limit);

    // What both ends have sent, spoilt or not.
    const emulator::Bytes& FromDriver() const { return fromDriver_; }
    const emulator::Bytes& FromRegister() const { return fromRegister_; }
    const std::vector<emulator::Bytes>& FramesOfRegister() const { return registerFrames_; }
    /// The register took a frame for good that the driver had not sent.
    bool RegisterMisled() const { return misled_; }
    /// The driver had gone on before an answer was on the line.
    bool Overtaken() const { return overtaken_; }

  private:
    struct Part {
        emulator::Bytes bytes;
        Clock::time_point due;
        std::function<void()> before;  // may be empty
        std::size_t heard = 0;         // bytes that the driver had sent when this was said
    };
    /// Something that happens in front of a byte.
    struct Event {
        Direction direction;
        std::size_t index;
        std::chrono::milliseconds late{0};
        std::function<void()> action;
    };
    using Parts = std::deque<Part>;

    void Queue(Parts& parts, Direction direction, std::size_t begin, const emulator::Bytes& sent);
    bool ReadMaster();
    void Deliver();
    void Feed(const emulator::Bytes& bytes);
    void Watch(const emulator::LineCounters& before, const emulator::Bytes& burst);
    void Say(const emulator::Bytes& reply);
    void WriteOut(const Part& part);
    Clock::time_point NextDeadline(Clock::time_point limit) const;

    Device& device_;
    int master_ = -1, slave_ = -1;
    std::string path_;
    FaultPlan plan_;
    std::vector<Event> events_;
    Parts incoming_, outgoing_;
    emulator::Bytes burst_;
    Clock::time_point lastByte_{};
    Clock::time_point powerBack_ = Clock::time_point::max();
    emulator::Bytes fromDriver_, fromRegister_;
    std::vector<emulator::Bytes> registerFrames_;
    bool misled_ = false, overtaken_ = false;
};

}  // namespace faults

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Replaces the communication channel in the executable that links it: the driver is joined to an
// emulated register by a line that spoils bytes as planned and notes what both ends saw. A lost
// answer costs no time.
//
// The driver is quick: it goes on as soon as a read has its bytes, whatever they are. So what the
// register has sent is on its way until a read needs it, one transmission after the other, and what
// no read has waited for is still on its way at the driver's next write. That write drops only what
// has arrived, as the serial port does. Noise in front of a frame is a transmission of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "companion/transcript/Transcript.h"
#include "emulator/Line.h"
#include "tests/faults/FaultPlan.h"

namespace faults {

/// What one end took for good although the other end had not sent it so.
struct Forgeries {
    int requests = 0;  // the register: a request
    int data = 0;      // the register: the data frame of a command
    int eofs = 0;      // the register: an end-of-file frame
    int answers = 0;   // the register: ACK or NAK to a frame of its own
    int acks = 0;      // the driver: ACK
    int refusals = 0;  // the driver: NAK or BSY
    int statuses = 0;  // the driver: a status block

    bool Any() const { return requests + data + eofs + answers + acks + refusals + statuses != 0; }
};

/// What the driver took for good in place of the answer to the frame that it had just written,
/// although no byte of it was sent in answer to that frame. For a request, garbage is good.
struct Strays {
    int noise = 0;  // nobody had sent it
    int stale = 0;  // it answered an earlier frame, or did so in part

    bool Any() const { return noise + stale != 0; }
};

/// The bytes that each end had sent, before any was spoilt.
struct Position {
    std::size_t toRegister = 0, toDriver = 0;
};

class FaultyLine {
  public:
    FaultyLine(emulator::WireFamily family, emulator::RegisterConfig config, FaultPlan plan);

    /// What has arrived and was not read is dropped; the register gets the frame.
    void Write(emulator::View frame);
    /// False, and what was there is gone, when fewer bytes arrive.
    bool Read(std::uint8_t* block, std::size_t size);

    emulator::Register& Device() { return device_; }
    const FaultPlan& Plan() const { return plan_; }
    const Forgeries& Forged() const { return forged_; }
    const Strays& Strayed() const { return strays_; }
    int FramesFromDriver() const { return framesFromDriver_; }
    /// What the driver has written and what it was given, thrown away or not, as its log has it.
    const std::vector<transcript::Block>& Said() const { return said_; }
    /// Bytes that arrived as an ACK of the Margay family and were sent as something else, or once
    /// and arrived twice; taken by the driver or not.
    int ForgedAcks() const { return forgedAcks_; }
    /// All that the register has sent, as it was before any of it was spoilt.
    std::vector<emulator::Bytes> SentByRegister() const;
    /// What is still on its way arrives, and nobody waits for it: it is the last that was said.
    void LetAllArrive();
    /// Where the driver's first request of that command began; it must have made one.
    Position FirstRequest(std::uint8_t command) const { return firstRequests_.at(command); }
    /// Data frames that the driver has written for commands other than entering and leaving fiscal
    /// mode.
    int FiscalDataFrames() const { return fiscalDataFrames_; }
    /// All of them.
    int DataFrames() const { return dataFrames_; }

  private:
    enum class Role { Request, Data, Eof, Answer };
    enum class Meaning { Ack, Refusal, Garbage };

    /// A frame as the register sent it.
    struct Sent {
        emulator::Bytes frame;
        int answers;  // the number of the driver's frame
    };
    struct Byte {
        std::uint8_t value;
        const Sent* of;  // null: noise
    };
    using Stretch = std::vector<Byte>;
    /// Its bytes arrive together.
    struct Transmission {
        Stretch bytes;
        int late;  // writes of the driver that come first
    };

    void Classify(emulator::View frame);
    emulator::Bytes Deliver(emulator::View sent, emulator::View arrived);
    void Watch(const emulator::LineCounters& before, emulator::View burst, emulator::View sent);
    const Sent* Keep(emulator::View frame);
    void SendToDriver(const emulator::Bytes& reply);
    void WatchDriver(const Stretch& taken);
    void NoteArrived();
    void Note(const Stretch& arrived);
    bool IsForgedAck(const Byte& byte);
    void NoteForgery(emulator::View expected, emulator::View got);
    void NoteStray(const Stretch& taken, emulator::View got);
    bool IsStatus(emulator::View frame) const;
    Meaning MeaningOf(emulator::View answer) const;
    bool ChecksOut(emulator::View frame) const;

    emulator::WireFamily family_;
    std::unique_ptr<emulator::Wire> wire_;
    emulator::Register device_;
    emulator::Line line_;
    FaultPlan plan_;
    Forgeries forged_;
    Strays strays_;
    std::deque<Sent> sent_;  // all of them; they keep their place
    std::deque<Transmission> onItsWay_;
    Stretch arrived_;  // and not read yet
    std::vector<transcript::Block> said_;
    int forgedAcks_ = 0;
    std::set<const Sent*> acksArrived_;
    std::uint8_t command_ = 0;  // of the last request that the driver has written
    std::map<std::uint8_t, Position> firstRequests_;
    Role lastWritten_ = Role::Request;
    int framesFromDriver_ = 0;
    int fiscalDataFrames_ = 0;
    int dataFrames_ = 0;
};

/// The line of this process; the channel is dead while there is none.
std::unique_ptr<FaultyLine>& TheLine();

/// While one lives, this process does the harness's work and not the driver's.
class OutsideDriver {
  public:
    OutsideDriver() { ++depth; }
    ~OutsideDriver() { --depth; }
    OutsideDriver(const OutsideDriver&) = delete;
    OutsideDriver& operator=(const OutsideDriver&) = delete;
    static bool Now() { return depth != 0; }

  private:
    static int depth;
};

}  // namespace faults

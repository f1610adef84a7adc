// Replaces the communication channel in the executable that links it: the driver is joined to an
// emulated register by a line that spoils bytes as planned and notes what both ends saw. A lost
// answer costs no time.
#pragma once

#include <memory>
#include <vector>

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

class FaultyLine {
  public:
    FaultyLine(emulator::WireFamily family, emulator::RegisterConfig config, FaultPlan plan);

    void Write(emulator::View frame);
    /// False, and what was there is gone, when fewer bytes are there.
    bool Read(std::uint8_t* block, std::size_t size);

    emulator::Register& Device() { return device_; }
    const FaultPlan& Plan() const { return plan_; }
    const Forgeries& Forged() const { return forged_; }
    int FramesFromDriver() const { return framesFromDriver_; }
    int FramesFromRegister() const { return framesFromRegister_; }
    /// Data frames that the driver has written for commands other than entering and leaving fiscal
    /// mode.
    int FiscalDataFrames() const { return fiscalDataFrames_; }
    /// All of them.
    int DataFrames() const { return dataFrames_; }

  private:
    enum class Role { Request, Data, Eof, Answer };

    void Classify(emulator::View frame);
    emulator::Bytes Deliver(emulator::View sent, emulator::View arrived);
    void Watch(const emulator::LineCounters& before, emulator::View burst, emulator::View sent);
    void SendToDriver(const emulator::Bytes& reply);
    void WatchDriver(emulator::View expected, emulator::View got);
    bool ChecksOut(emulator::View frame) const;

    emulator::WireFamily family_;
    std::unique_ptr<emulator::Wire> wire_;
    emulator::Register device_;
    emulator::Line line_;
    FaultPlan plan_;
    Forgeries forged_;
    emulator::Bytes inbox_;                // has arrived at the driver and was not read yet
    std::vector<emulator::Bytes> unread_;  // the frames that the register has sent for it
    std::uint8_t command_ = 0;             // of the last request that the driver has written
    Role lastWritten_ = Role::Request;
    int framesFromDriver_ = 0;
    int framesFromRegister_ = 0;
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

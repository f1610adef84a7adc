#include "tests/faults/FaultyChannel.h"

#include <algorithm>

#include "CommChannel.h"

namespace faults {

namespace {

using emulator::Bytes;
using emulator::View;
using emulator::WireFamily;

constexpr std::size_t statusSize = 2 + 15;  // sequence number and block
constexpr std::uint8_t ack = 6, nak = 21, busyOcelot = 11, busyMargay = 27;

bool Same(View a, View b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

}  // namespace

FaultyLine::FaultyLine(WireFamily family, emulator::RegisterConfig config, FaultPlan plan)
    : family_(family),
      wire_(emulator::MakeWire(family)),
      device_(std::move(config)),
      line_(family, device_),
      plan_(std::move(plan)) {}

void FaultyLine::Write(View frame) {
    ++framesFromDriver_;
    inbox_.clear();  // the serial port drops what is stale before it writes
    unread_.clear();
    Classify(frame);
    const Bytes reply = Deliver(frame, plan_.Apply(Direction::ToRegister, frame));
    if (!reply.empty()) SendToDriver(reply);
}

// Seen from the bytes that the driver meant to send, so no fault can confuse it.
void FaultyLine::Classify(View frame) {
    if (const auto request = wire_->ParseRequest(frame)) {
        command_ = request->command;
        lastWritten_ = Role::Request;
        return;
    }
    const std::size_t payload = emulator::PayloadSize(device_.GetModel(), command_);
    if (lastWritten_ == Role::Request && payload != emulator::kNotACommand &&
        wire_->ParseData(frame, payload + 2)) {
        lastWritten_ = Role::Data;
        ++dataFrames_;
        if (command_ != emulator::EnterFiscalMode && command_ != emulator::ExitFiscalMode)
            ++fiscalDataFrames_;
    } else {
        lastWritten_ = wire_->IsSomeEof(frame) ? Role::Eof : Role::Answer;
    }
}

// Byte by byte, so that it is seen which bytes the register takes for a frame. What follows a frame
// that was answered is noise.
Bytes FaultyLine::Deliver(View sent, View arrived) {
    Bytes burst;
    for (std::uint8_t byte : arrived) {
        burst.push_back(byte);
        const emulator::LineCounters before = line_.Counters();
        const Bytes reply = line_.Feed({&byte, 1});
        Watch(before, burst, sent);
        if (!reply.empty()) return reply;
        if (!line_.Pending()) burst.clear();
    }
    if (!line_.Pending()) return {};
    const emulator::LineCounters before = line_.Counters();
    const Bytes reply = line_.Idle();
    Watch(before, burst, sent);
    return reply;
}

void FaultyLine::Watch(const emulator::LineCounters& before, View burst, View sent) {
    const emulator::LineCounters& now = line_.Counters();
    const bool request = now.requests != before.requests;
    const View frame = request && burst.size() > emulator::Wire::kRequestSize
                           ? burst.last(emulator::Wire::kRequestSize)
                           : burst;
    if (Same(frame, sent)) return;
    forged_.requests += request;
    forged_.data += now.dataFrames != before.dataFrames;
    forged_.eofs += now.endOfFiles != before.endOfFiles;
    forged_.answers += now.answers != before.answers;
}

// An answer and the status block may come together.
void FaultyLine::SendToDriver(const Bytes& reply) {
    const std::size_t dataSize = wire_->DataFrameSize(statusSize);
    if (reply.size() > dataSize) {
        const auto border = reply.end() - static_cast<std::ptrdiff_t>(dataSize);
        unread_ = {{reply.begin(), border}, {border, reply.end()}};
    } else {
        unread_ = {reply};
    }
    framesFromRegister_ += static_cast<int>(unread_.size());
    inbox_ = plan_.Apply(Direction::ToDriver, reply);
}

bool FaultyLine::Read(std::uint8_t* block, std::size_t size) {
    if (inbox_.size() < size) {
        inbox_.clear();
        unread_.clear();
        return false;
    }
    const View got = View(inbox_).first(size);
    std::copy(got.begin(), got.end(), block);
    Bytes expected;
    if (!unread_.empty()) {
        expected = unread_.front();
        unread_.erase(unread_.begin());
    }
    WatchDriver(expected, got);
    inbox_.erase(inbox_.begin(), inbox_.begin() + static_cast<std::ptrdiff_t>(size));
    return true;
}

// What the driver takes for good: of an Ocelot answer the first byte does not count, of a Margay
// frame neither the end byte nor the total of an end-of-file frame.
void FaultyLine::WatchDriver(View expected, View got) {
    if (Same(expected, got)) return;
    if (got.size() == wire_->DataFrameSize(statusSize)) {
        const std::size_t counts = got.size() - (family_ == WireFamily::Margay ? 1 : 0);
        const bool sameContent =
            expected.size() == got.size() && Same(expected.first(counts), got.first(counts));
        forged_.statuses += ChecksOut(got) && !sameContent;
        return;
    }
    if (lastWritten_ == Role::Answer || !ChecksOut(got)) return;
    const bool ocelot = family_ == WireFamily::Ocelot;
    const std::uint8_t code = ocelot ? got[1] : got[0];
    forged_.acks += code == ack;
    forged_.refusals += code == nak || code == (ocelot ? busyOcelot : busyMargay);
}

bool FaultyLine::ChecksOut(View frame) const {
    if (family_ == WireFamily::Margay) {
        if (frame.size() == 1) return true;  // there is nothing to check
        Bytes closed(frame.begin(), frame.end());
        closed.back() = 0x0D;
        // Not ParseData: letters that are no digits are zeros to the driver.
        unsigned sum = 0;
        for (std::size_t i = 0; i + 3 < closed.size(); ++i) sum += closed[i];
        const Bytes check = wire_->BuildEof(static_cast<std::uint8_t>(0x100 - (sum & 0xFF)));
        return Same(View(closed).subspan(closed.size() - 3, 2), View(check).first(2));
    }
    return wire_->ParseData(frame, frame.size() - 2).has_value();
}

std::unique_ptr<FaultyLine>& TheLine() {
    static std::unique_ptr<FaultyLine> line;
    return line;
}

int OutsideDriver::depth = 0;

}  // namespace faults

void CommChannel_Open(CommChannelType) {}
void CommChannel_Close() {}
void CommChannel_SetReadTimeout(int) {}

bool CommChannel_Read(BYTE* block, WORD len) {
    const faults::OutsideDriver outside;
    return faults::TheLine() && faults::TheLine()->Read(block, len);
}

bool CommChannel_Write(const BYTE* block, WORD len) {
    const faults::OutsideDriver outside;
    if (faults::TheLine()) faults::TheLine()->Write({block, len});
    return true;
}

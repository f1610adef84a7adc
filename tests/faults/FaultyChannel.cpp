// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/faults/FaultyChannel.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "CommChannel.h"

namespace faults {

namespace {

using emulator::Bytes;
using emulator::View;
using emulator::WireFamily;

constexpr std::size_t statusSize = 2 + 15;  // sequence number and block
constexpr std::uint8_t ack = 6, nak = 21, busyOcelot = 11, busyMargay = 27;

/// Bytes that are sent together and differ in this are transmissions of their own.
struct Group {
    bool second;  // of the frame after the answer, or in front of it
    bool ahead;   // noise in front of a frame
    int late;
    bool operator==(const Group&) const = default;
};

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
    NoteArrived();
    said_.push_back({true, {frame.begin(), frame.end()}});
    for (Transmission& transmission : onItsWay_) transmission.late -= transmission.late > 0;
    Classify(frame);
    const Bytes reply = Deliver(frame, plan_.Apply(Direction::ToRegister, frame));
    if (!reply.empty()) SendToDriver(reply);
}

// Seen from the bytes that the driver meant to send, so no fault can confuse it. Not from their
// number: a driver that was told of another model by a spoilt status sends a frame for that one.
void FaultyLine::Classify(View frame) {
    if (const auto request = wire_->ParseRequest(frame)) {
        command_ = request->command;
        firstRequests_.try_emplace(
            command_, Position{plan_.Sent(Direction::ToRegister), plan_.Sent(Direction::ToDriver)});
        lastWritten_ = Role::Request;
        return;
    }
    if (lastWritten_ == Role::Request && command_ != emulator::ReadFiscalStatus) {
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

const FaultyLine::Sent* FaultyLine::Keep(View frame) {
    return &sent_.emplace_back(Sent{{frame.begin(), frame.end()}, framesFromDriver_});
}

// An answer and the status block are sent together, but are two transmissions.
void FaultyLine::SendToDriver(const Bytes& reply) {
    const std::size_t statusFrame = wire_->DataFrameSize(statusSize);
    const std::size_t border =
        reply.size() > statusFrame ? reply.size() - statusFrame : reply.size();
    const View whole(reply);
    const Sent* const frames[] = {Keep(whole.first(border)), Keep(whole.subspan(border))};
    std::optional<Group> last;
    for (const Arrival& arrival : plan_.Carry(Direction::ToDriver, reply)) {
        const bool atFront = arrival.origin == 0 || arrival.origin == border;
        const Group group{arrival.origin >= border, arrival.noise && atFront, arrival.late};
        if (group != last) onItsWay_.push_back({{}, group.late});
        last = group;
        onItsWay_.back().bytes.push_back(
            {arrival.value, arrival.noise ? nullptr : frames[group.second]});
    }
}

// All of it, and it is gone.
void FaultyLine::NoteArrived() {
    if (!arrived_.empty()) Note(arrived_);
    arrived_.clear();
}

void FaultyLine::Note(const Stretch& arrived) {
    transcript::Block block;
    for (const Byte& byte : arrived) {
        block.bytes.push_back(byte.value);
        forgedAcks_ += IsForgedAck(byte);
    }
    said_.push_back(std::move(block));
}

bool FaultyLine::IsForgedAck(const Byte& byte) {
    if (family_ != WireFamily::Margay || byte.value != ack) return false;
    const bool sent =
        byte.of != nullptr && byte.of->frame == wire_->BuildAnswer(emulator::Answer::Ack);
    return !sent || !acksArrived_.insert(byte.of).second;
}

std::vector<Bytes> FaultyLine::SentByRegister() const {
    std::vector<Bytes> frames;
    for (const Sent& sent : sent_) frames.push_back(sent.frame);
    return frames;
}

void FaultyLine::LetAllArrive() {
    for (const Transmission& transmission : onItsWay_)
        arrived_.insert(arrived_.end(), transmission.bytes.begin(), transmission.bytes.end());
    onItsWay_.clear();
    NoteArrived();
}

bool FaultyLine::Read(std::uint8_t* block, std::size_t size) {
    while (arrived_.size() < size && !onItsWay_.empty() && onItsWay_.front().late == 0) {
        const Stretch& bytes = onItsWay_.front().bytes;
        arrived_.insert(arrived_.end(), bytes.begin(), bytes.end());
        onItsWay_.pop_front();
    }
    if (arrived_.size() < size) {
        NoteArrived();
        return false;
    }
    const auto end = arrived_.begin() + static_cast<std::ptrdiff_t>(size);
    const Stretch taken(arrived_.begin(), end);
    arrived_.erase(arrived_.begin(), end);
    Note(taken);
    for (const Byte& byte : taken) *block++ = byte.value;
    WatchDriver(taken);
    return true;
}

void FaultyLine::WatchDriver(const Stretch& taken) {
    Bytes got;
    for (const Byte& byte : taken) got.push_back(byte.value);
    const auto own = std::find_if(taken.begin(), taken.end(), [this](const Byte& byte) {
        return byte.of != nullptr && byte.of->answers == framesFromDriver_;
    });
    if (own == taken.end())
        NoteStray(taken, got);
    else
        NoteForgery(own->of->frame, got);
}

// What the driver takes for good: of an Ocelot answer the first byte does not count, of a Margay
// frame neither the end byte nor the total of an end-of-file frame.
void FaultyLine::NoteForgery(View expected, View got) {
    if (Same(expected, got)) return;
    if (IsStatus(got)) {
        const std::size_t counts = got.size() - (family_ == WireFamily::Margay ? 1 : 0);
        const bool sameContent =
            expected.size() == got.size() && Same(expected.first(counts), got.first(counts));
        forged_.statuses += ChecksOut(got) && !sameContent;
        return;
    }
    if (lastWritten_ == Role::Answer) return;
    const Meaning meaning = MeaningOf(got);
    forged_.acks += meaning == Meaning::Ack;
    forged_.refusals += meaning == Meaning::Refusal;
}

void FaultyLine::NoteStray(const Stretch& taken, View got) {
    if (IsStatus(got)) {
        if (!ChecksOut(got)) return;
    } else {
        if (lastWritten_ == Role::Answer) return;  // an end-of-file frame tells nothing
        const Meaning meaning = MeaningOf(got);
        const bool garbageIsGood = lastWritten_ == Role::Request;
        if (meaning == Meaning::Refusal || (meaning == Meaning::Garbage && !garbageIsGood)) return;
    }
    const bool noise = std::all_of(taken.begin(), taken.end(),
                                   [](const Byte& byte) { return byte.of == nullptr; });
    ++(noise ? strays_.noise : strays_.stale);
}

bool FaultyLine::IsStatus(View frame) const {
    return frame.size() == wire_->DataFrameSize(statusSize);
}

FaultyLine::Meaning FaultyLine::MeaningOf(View answer) const {
    if (!ChecksOut(answer)) return Meaning::Garbage;
    const bool ocelot = family_ == WireFamily::Ocelot;
    const std::uint8_t code = ocelot ? answer[1] : answer[0];
    if (code == ack) return Meaning::Ack;
    const bool refusal = code == nak || code == (ocelot ? busyOcelot : busyMargay);
    return refusal ? Meaning::Refusal : Meaning::Garbage;
}

bool FaultyLine::ChecksOut(View frame) const {
    if (family_ == WireFamily::Margay) {
        if (frame.size() == 1) return true;  // there is nothing to check
        if (frame.size() < 3) return false;
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

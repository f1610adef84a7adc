// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "emulator/Line.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

namespace emulator {

namespace {

constexpr std::size_t sequenceSize = 2;
constexpr std::uint16_t lastSequence = 0xFFFE;  // numbers run from 1 to here
constexpr std::size_t longestBurst = 512;       // more than any frame; the rest is not kept

Bytes Spoilt(Bytes frame, Fate fate) {
    if (fate == Fate::Lose) frame.clear();
    if (fate == Fate::Corrupt) frame.back() ^= 1;
    if (fate == Fate::Cut) frame.resize(frame.size() / 2);
    return frame;
}

}  // namespace

Line::Line(WireFamily family, Register& device, std::uint8_t networkId)
    : wire_(MakeWire(family)),
      device_(device),
      networkId_(networkId),
      powerCycles_(device.PowerCycles()) {}

Line::Line(const Line& other, Register& device)
    : device_(device), networkId_(other.networkId_), powerCycles_(other.powerCycles_) {
    GoOnFrom(other);
}

void Line::GoOnFrom(const Line& other) {
    wire_ = other.wire_;
    networkId_ = other.networkId_;
    powerCycles_ = other.powerCycles_;
    state_ = other.state_;
    burst_ = other.burst_;
    command_ = other.command_;
    dataSize_ = other.dataSize_;
    total_ = other.total_;
    counters_ = other.counters_;
    onReceive_ = nullptr;
    onSend_ = nullptr;
    tap_ = nullptr;
    leaving_.clear();
    unsent_.clear();
}

Bytes Line::Exchange() const {
    Bytes where = burst_;
    where.push_back(static_cast<std::uint8_t>(state_));
    where.push_back(command_);
    where.push_back(total_);
    where.push_back(device_.PowerCycles() != powerCycles_);
    return where;
}

Bytes Line::Feed(View bytes) {
    Bytes chunk(bytes.begin(), bytes.end());
    if (onReceive_) onReceive_(chunk);
    if (LosePower()) return {};
    counters_.bytesIn += static_cast<long>(chunk.size());
    for (std::uint8_t byte : chunk) {
        if (burst_.size() < longestBurst) burst_.push_back(byte);
        if (auto reply = TryFrame()) {
            burst_.clear();
            const bool answered = !reply->empty();
            Bytes given = Give(std::move(*reply));
            if (answered) return given;
            if (tap_ != nullptr && LosePower()) return {};
        }
    }
    return {};
}

Bytes Line::Idle() {
    if (LosePower() || burst_.empty()) return {};
    // A request that might have been the beginning of the awaited data frame is one after all.
    auto reply = TryRequest();
    if (!reply) reply = Unreadable();
    burst_.clear();
    return Give(std::move(*reply));
}

// True while the register is off. What was going on over the line is forgotten.
bool Line::LosePower() {
    if (device_.PowerCycles() != powerCycles_) {
        powerCycles_ = device_.PowerCycles();
        burst_.clear();
        leaving_.clear();
        state_ = State::Request;
    }
    return !device_.Powered();
}

Bytes Line::Give(Bytes reply) {
    if (tap_ != nullptr) reply = PastTheTap();
    counters_.bytesOut += static_cast<long>(reply.size());
    if (onSend_ && !reply.empty()) onSend_(reply);
    return reply;
}

// --- a tap ---------------------------------------------------------------------------------------

// Power that fails at a frame loses it.
Fate Line::MeetTap(FrameKind kind, View frame) {
    const Fate fate = tap_->Meet(kind, frame);
    return device_.PowerCycles() == powerCycles_ ? fate : Fate::Lose;
}

// A good frame has come in. Nothing comes back when it is to be taken for an unreadable one. What
// the register answers has not left yet when the tap is told that it has acted.
template <typename Act>
std::optional<Bytes> Line::Meet(FrameKind kind, Act act) {
    if (tap_ == nullptr) return act();
    const Fate fate = MeetTap(kind, burst_);
    tap_->Tell(kind, burst_, fate);
    if (LosePower()) return Bytes{};
    if (fate != Fate::Pass) return Spoil(fate);
    Bytes reply = act();
    tap_->Passed(kind);
    return LosePower() ? Bytes{} : std::move(reply);
}

// The burst, which is a whole frame.
std::optional<Bytes> Line::Spoil(Fate fate) {
    switch (fate) {
        case Fate::Corrupt:
        case Fate::Cut:
            burst_ = Spoilt(burst_, fate);
            return std::nullopt;
        case Fate::Nak:
            return Reply(Answer::Nak);
        case Fate::Busy:
            state_ = State::Request;
            return Reply(Answer::Busy);
        default:
            return Bytes{};
    }
}

Bytes Line::Leave(FrameKind kind, Bytes frame) {
    if (tap_ != nullptr) leaving_.push_back({kind, frame, Fate::Pass});
    return frame;
}

// The frames of the reply leave one after the other; those after a power failure never do.
Bytes Line::PastTheTap() {
    std::vector<Leaving> frames = std::exchange(leaving_, {});
    Bytes reply;
    std::size_t met = 0;
    while (met < frames.size() && !LosePower()) {
        Leaving& leaving = frames[met];
        leaving.fate = MeetTap(leaving.kind, leaving.frame);
        const Bytes arriving = Spoilt(leaving.frame, leaving.fate);
        reply.insert(reply.end(), arriving.begin(), arriving.end());
        ++met;
    }
    frames.resize(met);
    delay_ = tap_->TakeDelay(!reply.empty());
    if (reply.empty())
        Tell(frames);
    else
        unsent_.push_back(std::move(frames));
    return reply;
}

void Line::Tell(const std::vector<Leaving>& frames) {
    if (tap_ == nullptr) return;
    for (const Leaving& leaving : frames) tap_->Tell(leaving.kind, leaving.frame, leaving.fate);
}

void Line::Sent() {
    if (unsent_.empty()) return;
    Tell(unsent_.front());
    unsent_.pop_front();
}

void Line::Unsent() {
    for (std::vector<Leaving>& frames : std::exchange(unsent_, {})) {
        for (Leaving& leaving : frames) leaving.fate = Fate::Lose;
        Tell(frames);
    }
}

// --- telling frames apart ------------------------------------------------------------------------

// A request is recognised in every state: an end that has lost an answer begins anew. Only while a
// data frame is awaited may the same bytes be the beginning of that frame, which the gap decides,
// or the whole of it, when both are of one size: then a request that would be taken is one.
std::optional<Bytes> Line::TryFrame() {
    if (state_ != State::Data || wire_->RequestStandsOut()) {
        if (auto reply = TryRequest()) return reply;
    } else if (wire_->DataFrameSize(dataSize_) <= Wire::kRequestSize) {
        const auto request = wire_->ParseRequest(burst_);
        if (request && request->networkId == networkId_ && IsKnown(*request))
            return MeetRequest(*request);
    }
    return TryExpected();
}

// Where no data frame is awaited, noise in front does not hide a request.
std::optional<Bytes> Line::TryRequest() {
    View burst(burst_);
    if (state_ != State::Data && burst.size() > Wire::kRequestSize)
        burst = burst.last(Wire::kRequestSize);
    const auto request = wire_->ParseRequest(burst);
    if (!request) return std::nullopt;
    return MeetRequest(*request);
}

std::optional<Bytes> Line::TryExpected() {
    switch (state_) {
        case State::Request:
            return std::nullopt;
        case State::Data:
            if (auto data = wire_->ParseData(burst_, dataSize_)) {
                const auto sequence = static_cast<std::uint16_t>((*data)[0] | (*data)[1] << 8);
                if (sequence == 0 || sequence > lastSequence) return std::nullopt;
                return Meet(FrameKind::Data, [&] { return AcceptData(*data); });
            }
            return std::nullopt;
        case State::EndOfFile:
            if (!wire_->ParseEof(burst_, total_)) return std::nullopt;
            return Meet(FrameKind::EndOfFile, [&] { return AcceptEof(); });
        case State::StatusAnswer:
        case State::EofAnswer:
            if (const auto answer = wire_->ParseAnswer(burst_))
                return Meet(FrameKind::Answer, [&] {
                    ++counters_.answers;
                    return AcceptAnswer(*answer);
                });
            return std::nullopt;
    }
    return std::nullopt;
}

// --- acting on them ------------------------------------------------------------------------------

bool Line::IsKnown(const Request& request) const {
    if (request.command == ReadFiscalStatus) return request.direction != Direction::Send;
    return request.direction != Direction::Read &&
           PayloadSize(device_.GetModel(), request.command) != kNotACommand;
}

// A tap counts the requests that are for this register.
std::optional<Bytes> Line::MeetRequest(const Request& request) {
    if (request.networkId.value_or(networkId_) != networkId_) return AcceptRequest(request);
    return Meet(FrameKind::Request, [&] { return AcceptRequest(request); });
}

Bytes Line::AcceptRequest(const Request& request) {
    state_ = State::Request;
    if (device_.Busy() || request.networkId.value_or(networkId_) != networkId_)
        return Reply(Answer::Busy);
    if (!IsKnown(request)) return Reply(Answer::Nak);

    ++counters_.requests;
    if (device_.Has(Habit::ForgetsAtRequest)) device_.CloseCommand();
    if (request.command == ReadFiscalStatus) {
        ++counters_.statusReads;
        device_.NoteStatusRead();
        Bytes reply = Reply(Answer::Ack);
        const Bytes frame = SendStatus();
        reply.insert(reply.end(), frame.begin(), frame.end());
        return reply;
    }
    command_ = request.command;
    dataSize_ = sequenceSize + PayloadSize(device_.GetModel(), command_);
    state_ = State::Data;
    return Reply(Answer::Ack);
}

Bytes Line::AcceptData(const Bytes& data) {
    ++counters_.dataFrames;
    total_ = wire_->TotalOf(burst_);
    const auto sequence = static_cast<std::uint16_t>(data[0] | data[1] << 8);
    const std::size_t judged = device_.Journal().size();
    const bool accepted = device_.Execute(command_, sequence, View(data).subspan(sequenceSize));
    if (device_.Journal().size() == judged) ++counters_.repeats;
    state_ = accepted ? State::EndOfFile : State::Request;
    return Reply(accepted ? Answer::Ack : Answer::Nak);
}

Bytes Line::AcceptEof() {
    ++counters_.endOfFiles;
    state_ = State::Request;
    device_.CloseCommand();
    return Reply(Answer::Ack);
}

Bytes Line::AcceptAnswer(Answer answer) {
    const bool again = answer == Answer::Nak;
    if (state_ == State::StatusAnswer) return again ? SendStatus() : SendEof();
    if (again) return SendEof();
    state_ = State::Request;
    return {};
}

// The line is quiet and what came in is no frame. A data or end-of-file frame is asked for again;
// an answer is taken for an acknowledgement, as the usual one; everything else is met with silence.
Bytes Line::Unreadable() {
    ++counters_.unreadable;
    if (tap_ != nullptr) tap_->Tell(FrameKind::Unreadable, burst_, Fate::Pass);
    // An end that closes a command whose data never came must not be told that all is well but for
    // this frame: silence fails the command at the other end (which some registers do not know).
    const bool awaitsFrame = state_ == State::Data || state_ == State::EndOfFile;
    const bool strayEof =
        (state_ == State::Request || state_ == State::Data) && wire_->IsSomeEof(burst_);
    if (strayEof && device_.Has(Habit::AnswersStrayEof)) return Reply(Answer::Ack);
    if (state_ == State::Request || strayEof) return {};
    if (!awaitsFrame) return AcceptAnswer(Answer::Ack);
    return device_.Has(Habit::SilentWhenUnreadable) ? Bytes{} : Reply(Answer::Nak);
}

Bytes Line::Reply(Answer answer) {
    ++(answer == Answer::Ack ? counters_.acks
                             : (answer == Answer::Nak ? counters_.naks : counters_.busies));
    return Leave(FrameKind::Response, wire_->BuildAnswer(answer));
}

Bytes Line::SendStatus() {
    const std::uint16_t sequence = device_.LastSequence();
    Bytes data = {static_cast<std::uint8_t>(sequence & 0xFF),
                  static_cast<std::uint8_t>(sequence >> 8)};
    const Bytes block = device_.StatusBlock();
    data.insert(data.end(), block.begin(), block.end());
    Bytes frame = wire_->BuildData(data);
    total_ = wire_->TotalOf(frame);
    state_ = State::StatusAnswer;
    return Leave(FrameKind::Status, std::move(frame));
}

Bytes Line::SendEof() {
    state_ = State::EofAnswer;
    if (device_.Has(Habit::ForgetsAtStatus)) device_.CloseCommand();
    return Leave(FrameKind::StatusEof, wire_->BuildEof(total_));
}

}  // namespace emulator

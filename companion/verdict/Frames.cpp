// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/verdict/Frames.h"

#include <algorithm>
#include <cstddef>

#include "Buf.h"
#include "ECR.h"

namespace verdict {

namespace {

constexpr std::size_t sequenceSize = 2;
constexpr std::size_t requestSize = 5;  // in both families
constexpr std::size_t ocelotCommandAt = 2;
constexpr std::size_t margayCommandAt = 1;

BUF BufOf(View bytes) {
    if (bytes.empty()) return {};
    return {bytes.data(), static_cast<unsigned int>(bytes.size())};
}

bool Same(const BUF& frame, View bytes) {
    if (frame.GetSize() != bytes.size()) return false;
    for (unsigned int i = 0; i < bytes.size(); ++i) {
        if (frame[i] != bytes[i]) return false;
    }
    return true;
}

std::shared_ptr<IProtocolFormatter> FormatterOf(const Wire& wire) {
    if (wire.family == ProtocolFormatting_Margay)
        return std::make_shared<ProtocolFormatter_Margay>(wire.unchecked);
    return std::make_shared<ProtocolFormatter_Ocelot>(wire.unchecked);
}

// A BCD number of the status block, most significant digits first; other digits count as they are.
std::int64_t Number(const BUF& block, unsigned int at, unsigned int size) {
    std::int64_t number = 0;
    for (unsigned int i = at; i < at + size; ++i)
        number = number * 100 + std::int64_t{block[i]} / 16 * 10 + block[i] % 16;
    return number;
}

Status StatusOf(const BUF& data) {
    enum At : unsigned int { protocol = 2, result = 4, flags = 5, receipt = 6, sign = 10 };
    Status status;
    status.sequence = static_cast<std::uint16_t>(data[0] | data[1] << 8);
    status.protocol = data[protocol];
    status.result = data[result];
    status.flags = data[flags];
    status.receipt = static_cast<std::uint32_t>(Number(data, receipt, 4));
    const std::int64_t subtotal = Number(data, sign + 1, 6);
    status.subtotal = data[sign] >> 4 != 0 ? -subtotal : subtotal;
    return status;
}

}  // namespace

Frames::Frames(const Wire& wire) : wire_(wire), formatter_(FormatterOf(wire)) {}

std::optional<std::uint8_t> Frames::RequestedCommand(View frame) const {
    if (frame.size() != requestSize) return std::nullopt;
    const bool margay = wire_.family == ProtocolFormatting_Margay;
    const std::uint8_t command = frame[margay ? margayCommandAt : ocelotCommandAt];
    const bool request =
        Same(formatter_->BuildDataSendRequestFrame(wire_.networkId, command), frame) ||
        Same(formatter_->BuildDataReadRequestFrame(wire_.networkId, command), frame);
    return request ? std::optional(command) : std::nullopt;
}

// Which frame of a few bytes is meant, the request before it tells: after that of the status only
// answers are written.
Sent Frames::Take(View frame) {
    if (const auto command = RequestedCommand(frame)) {
        command_ = *command;
        const bool status = command_ == CMD_READ_FISCAL_STATUS;
        return {status ? Sent::Kind::StatusRequest : Sent::Kind::Request, command_};
    }
    const BUF bytes = BufOf(frame);
    if (command_ == CMD_READ_FISCAL_STATUS) {
        if (frame.size() != formatter_->GetResponseFrameSize()) return {};
        const BYTE answer = formatter_->ParseResponseFrame(bytes);
        return {Sent::Kind::Answer, command_, 0, answer != ACK};
    }
    if (frame.size() == formatter_->GetEofFrameSize() && formatter_->ParseEofFrame(bytes) == ACK)
        return {Sent::Kind::EndOfFile, command_};
    BUF data;
    if (command_ == 0 || frame.size() < formatter_->GetDataFrameSize(sequenceSize) ||
        formatter_->ParseDataFrame(bytes, data) != ACK)
        return {};
    return {Sent::Kind::Data, command_, static_cast<std::uint16_t>(data[0] | data[1] << 8)};
}

std::size_t Frames::StatusSize() const {
    return formatter_->GetDataFrameSize(static_cast<WORD>(sequenceSize + ecrFiscalStatusLength));
}

std::optional<Status> Frames::StatusAt(View bytes) const {
    if (bytes.size() < StatusSize()) return std::nullopt;
    BUF data;
    if (formatter_->ParseDataFrame(BufOf(bytes.first(StatusSize())), data) != ACK)
        return std::nullopt;
    return StatusOf(data);
}

// In the Margay family it has no check bytes of its own, but it repeats those of the block.
bool Frames::IsEof(View frame) const {
    if (formatter_->ParseEofFrame(BufOf(frame)) != ACK) return false;
    return wire_.family != ProtocolFormatting_Margay ||
           (frame[0] == check_[0] && frame[1] == check_[1]);
}

// The size of the frame at the front that says something, which is added to all; 0: there is none.
std::size_t Frames::HearOne(View bytes, std::vector<Heard>& all) {
    if (const auto status = StatusAt(bytes)) {
        all.push_back({Heard::Kind::Status, *status});
        const std::size_t end = wire_.family == ProtocolFormatting_Margay ? 1 : 0;
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(StatusSize() - end - check_.size()),
                    check_.size(), check_.begin());
        return StatusSize();
    }
    const std::size_t eofSize = formatter_->GetEofFrameSize();
    if (bytes.size() >= eofSize && IsEof(bytes.first(eofSize))) {
        all.push_back({Heard::Kind::EndOfFile});
        return eofSize;
    }
    const std::size_t size = formatter_->GetResponseFrameSize();
    if (bytes.size() < size) return 0;
    const BYTE answer = formatter_->ParseResponseFrame(BufOf(bytes.first(size)));
    if (answer == ACK) all.push_back({Heard::Kind::Ack});
    return answer == GARBAGE ? 0 : size;
}

// Without check bytes a frame is told by its size alone.
std::vector<Heard> Frames::ListenUnchecked(View bytes) {
    std::vector<Heard> all;
    if (bytes.size() == StatusSize() || bytes.size() == formatter_->GetResponseFrameSize() ||
        bytes.size() == formatter_->GetEofFrameSize())
        HearOne(bytes, all);
    return all;
}

std::vector<Heard> Frames::Listen(View bytes) {
    if (wire_.unchecked) return ListenUnchecked(bytes);
    const std::size_t older = heard_.size();
    heard_.insert(heard_.end(), bytes.begin(), bytes.end());
    std::vector<Heard> all;
    std::size_t done = 0;
    bool garbage = false;
    for (std::size_t at = 0; at < heard_.size();) {
        const std::size_t size = HearOne(View(heard_).subspan(at), all);
        garbage = garbage || (size == 0 && at >= older);
        at += std::max<std::size_t>(size, 1);
        if (size != 0) done = at;
    }
    const bool mayBeSpoilt = garbage && formatter_->GetResponseFrameSize() == 1;
    for (Heard& one : all) one.doubtful = mayBeSpoilt && one.kind == Heard::Kind::Ack;
    done = std::max(done, heard_.size() - std::min(heard_.size(), StatusSize() - 1));
    heard_.erase(heard_.begin(), heard_.begin() + static_cast<std::ptrdiff_t>(done));
    return all;
}

void Frames::Describe(std::vector<std::uint8_t>& state) const {
    state.push_back(command_);
    state.insert(state.end(), check_.begin(), check_.end());
    state.insert(state.end(), heard_.begin(), heard_.end());
}

}  // namespace verdict

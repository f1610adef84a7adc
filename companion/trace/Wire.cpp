// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/trace/Wire.h"

#include <algorithm>
#include <utility>

#include "Buf.h"
#include "ECR.h"

namespace trace {

namespace {

constexpr std::size_t sequenceSize = 2;
constexpr std::size_t requestSize = 5;  // in both families
constexpr std::uint8_t carriageReturn = 0x0D;
constexpr std::uint8_t endOfFile = 0x1A;

BUF BufOf(verdict::View bytes) {
    if (bytes.empty()) return {};
    return {bytes.data(), static_cast<unsigned int>(bytes.size())};
}

bool Same(const BUF& frame, verdict::View bytes) {
    if (frame.GetSize() != bytes.size()) return false;
    for (unsigned int i = 0; i < bytes.size(); ++i)
        if (frame[i] != bytes[i]) return false;
    return true;
}

bool IsOcelotRequest(ProtocolFormatter_Ocelot& ocelot, verdict::View frame) {
    return Same(ocelot.BuildDataSendRequestFrame(frame[1], frame[2]), frame) ||
           Same(ocelot.BuildDataReadRequestFrame(frame[1], frame[2]), frame);
}

bool IsHexLetters(verdict::View bytes) {
    return std::ranges::all_of(bytes, [](std::uint8_t byte) {
        return (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'F');
    });
}

bool LooksLikeMargay(verdict::View frame) {
    if (frame.size() == 1) return frame[0] == ACK || frame[0] == NAK;
    const bool ends = frame.back() == carriageReturn || frame.back() == endOfFile;
    return ends && IsHexLetters(frame.first(frame.size() - 1));
}

std::unique_ptr<IProtocolFormatter> FormatterOf(const verdict::Wire& wire) {
    if (wire.family == ProtocolFormatting_Margay)
        return std::make_unique<ProtocolFormatter_Margay>(wire.unchecked);
    return std::make_unique<ProtocolFormatter_Ocelot>(wire.unchecked);
}

FrameKind KindOf(verdict::Sent::Kind kind) {
    using Kind = verdict::Sent::Kind;
    switch (kind) {
        case Kind::Request:
        case Kind::StatusRequest:
            return FrameKind::Request;
        case Kind::Data:
            return FrameKind::Data;
        case Kind::EndOfFile:
            return FrameKind::EndOfFile;
        case Kind::Answer:
            return FrameKind::Answer;
        case Kind::Unknown:
            break;
    }
    return FrameKind::Unknown;
}

Reply ReplyOf(BYTE answer) {
    if (answer == ACK) return Reply::Ack;
    if (answer == NAK) return Reply::Nak;
    return answer == BSY ? Reply::Busy : Reply::Garbled;
}

}  // namespace

std::optional<verdict::Wire> Recognise(verdict::View sent) {
    ProtocolFormatter_Ocelot ocelot(false);
    ProtocolFormatter_Margay margay(false);
    if (sent.size() == requestSize) {
        if (IsOcelotRequest(ocelot, sent)) return verdict::Wire{ProtocolFormatting_Ocelot, sent[1]};
        if (Same(margay.BuildDataSendRequestFrame(0, sent[1]), sent))
            return verdict::Wire{ProtocolFormatting_Margay};
    }
    if (sent.empty()) return std::nullopt;
    if (LooksLikeMargay(sent)) return verdict::Wire{ProtocolFormatting_Margay};
    BUF data;
    if (sent.size() > sequenceSize && ocelot.ParseDataFrame(BufOf(sent), data) == ACK)
        return verdict::Wire{ProtocolFormatting_Ocelot};
    return std::nullopt;
}

Wire::Wire(const verdict::Wire& wire) : wire_(wire), frames_(wire), formatter_(FormatterOf(wire)) {}

Seen Wire::Data(FrameKind kind, verdict::View frame) const {
    BUF data;
    if (frame.size() < formatter_->GetDataFrameSize(sequenceSize) ||
        formatter_->ParseDataFrame(BufOf(frame), data) != ACK)
        return {};
    Seen seen{kind};
    seen.sequence = static_cast<std::uint16_t>(data[0] | data[1] << 8);
    seen.payload.resize(data.GetSize());
    data.CopyTo(seen.payload.data(), data.GetSize());
    seen.payload.erase(seen.payload.begin(), seen.payload.begin() + sequenceSize);
    return seen;
}

Seen Wire::Sent(verdict::View frame, const verdict::Sent* known) {
    // What a frame is depends on the request before it, so that is taken in any case.
    const bool request = known != nullptr && (known->kind == verdict::Sent::Kind::Request ||
                                              known->kind == verdict::Sent::Kind::StatusRequest);
    const verdict::Sent sent = known != nullptr && !request ? *known : frames_.Take(frame);
    Seen seen = sent.kind == verdict::Sent::Kind::Data ? Data(FrameKind::Data, frame) : Seen();
    seen.kind = KindOf(sent.kind);
    seen.command = sent.command;
    if (sent.kind == verdict::Sent::Kind::Answer) seen.reply = sent.again ? Reply::Nak : Reply::Ack;
    return seen;
}

const Seen& Wire::Heard(verdict::View frame) {
    if (!std::ranges::equal(frame, heard_)) {
        heard_.assign(frame.begin(), frame.end());
        seen_ = Tell(frame);
    }
    return seen_;
}

Seen Wire::Tell(verdict::View frame) const {
    if (frame.size() == formatter_->GetEofFrameSize() &&
        formatter_->ParseEofFrame(BufOf(frame)) == ACK)
        return {FrameKind::EndOfFile};
    if (frame.size() == formatter_->GetResponseFrameSize()) {
        const Reply reply = ReplyOf(formatter_->ParseResponseFrame(BufOf(frame)));
        return reply == Reply::Garbled ? Seen() : Seen{FrameKind::Answer, reply};
    }
    const WORD statusData = static_cast<WORD>(sequenceSize + ecrFiscalStatusLength);
    if (frame.size() == formatter_->GetDataFrameSize(statusData))
        return Data(FrameKind::Status, frame);
    return {};
}

// The longest first: an answer of one byte is found anywhere.
std::size_t Wire::SizeOfFirst(verdict::View bytes) const {
    const WORD statusData = static_cast<WORD>(sequenceSize + ecrFiscalStatusLength);
    for (const WORD size : {formatter_->GetDataFrameSize(statusData), formatter_->GetEofFrameSize(),
                            formatter_->GetResponseFrameSize()}) {
        if (bytes.size() >= size && Tell(bytes.first(size)).kind != FrameKind::Unknown) return size;
    }
    return 0;
}

std::pair<Seen, std::size_t> Wire::First(verdict::View bytes) {
    std::size_t noise = 0;
    while (noise < bytes.size()) {
        const std::size_t size = SizeOfFirst(bytes.subspan(noise));
        if (size != 0 && noise == 0) return {Heard(bytes.first(size)), size};
        if (size != 0) break;
        ++noise;
    }
    return {Seen(), noise};
}

}  // namespace trace

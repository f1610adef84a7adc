// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "fuzz/FuzzedPeer.h"

#include <cerrno>
#include <utility>

#include "CommChannel.h"
#include "DriverException.h"
#include "ECR.h"
#include "fuzz/Property.h"

namespace {

constexpr WORD seqNumberSize = 2;
constexpr BYTE margayBusy = 27;

std::unique_ptr<IProtocolFormatter> MakeFormatter(ProtocolFormatting family) {
    if (family == ProtocolFormatting_Margay)
        return std::make_unique<ProtocolFormatter_Margay>(false);
    return std::make_unique<ProtocolFormatter_Ocelot>(false);
}

BUF BufOf(const std::vector<BYTE>& bytes) {
    return BUF(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

/// Result code, receipt number and subtotal are packed BCD.
bool IsUnreadable(const BUF& block) {
    for (unsigned int i = 0; i < block.GetSize(); ++i) {
        const bool failedMark = i == 2 && block[i] == 0xFF;
        if ((i == 2 || i >= 4) && block[i] > 0x99 && !failedMark) return true;
    }
    return false;
}

}  // namespace

FuzzedPeer::FuzzedPeer(ProtocolFormatting frameFamily, BYTE statusFlags, BYTE statusProtocolCode,
                       std::vector<BYTE> givenScript)
    : family(frameFamily),
      formatter(MakeFormatter(frameFamily)),
      flags(statusFlags),
      protocolCode(statusProtocolCode),
      script(std::move(givenScript)) {}

BYTE FuzzedPeer::Next() {
    return next < script.size() ? script[next++] : BYTE{0};
}

/// The low three bits are the event, the others how often it comes again.
FuzzedPeer::Event FuzzedPeer::NextEvent() {
    if (repeats > 0) {
        --repeats;
        return event;
    }
    const BYTE byte = Next();
    event = static_cast<Event>(byte % eventCount);
    repeats = byte / eventCount;
    return event;
}

FuzzedPeer::Role FuzzedPeer::RoleOf(const std::vector<BYTE>& frame) const {
    if (family == ProtocolFormatting_Margay) {
        if (frame.size() == 1) return Role::Answer;
        if (frame[0] == 0x02) return Role::Request;
        return frame.back() == 0x1A ? Role::Eof : Role::Data;
    }
    if (frame.size() == 5 && (frame[0] == 0xD0 || frame[0] == 0xD9)) return Role::Request;
    if (frame.size() == 4 && frame[0] == 0xD9) return Role::Answer;
    return frame.size() == 4 && frame[0] == 0xFF ? Role::Eof : Role::Data;
}

bool FuzzedPeer::IsFiscal() const {
    return command != CMD_ENTER_FISCAL_MODE && command != CMD_EXIT_FISCAL_MODE;
}

void FuzzedPeer::Note(const std::vector<BYTE>& frame) {
    lastWritten = RoleOf(frame);
    if (lastWritten == Role::Request) command = frame[family == ProtocolFormatting_Margay ? 1 : 2];
    if (lastWritten == Role::Eof && IsFiscal()) ++fiscalEofs;
    if (lastWritten != Role::Data) return;
    if (IsFiscal()) ++fiscalDataFrames;
    BUF payload;
    Require(formatter->ParseDataFrame(BufOf(frame), payload) == ACK,
            "the driver's frames are good");
    CountAttempt(static_cast<WORD>(payload[0] | payload[1] << 8));
}

/// Three each for garbage, a refusal and silence, and the last one. Fiscal mode is left once more
/// after a failure, under the same number when leaving it was what failed.
void FuzzedPeer::CountAttempt(WORD seqNumber) {
    constexpr int mostAttempts = 10;
    const bool again = seqNumber == lastSeqNumber && command == lastDataCommand;
    attempts = again ? attempts + 1 : 1;
    lastSeqNumber = seqNumber;
    lastDataCommand = command;
    Require(attempts <= (command == CMD_EXIT_FISCAL_MODE ? 2 : 1) * mostAttempts,
            "a command is given up after ten attempts");
}

bool FuzzedPeer::Write(const BYTE* block, WORD size) {
    ++framesWritten;
    const std::vector<BYTE> frame(block, block + size);
    wire.insert(wire.end(), frame.begin(), frame.end());
    Note(frame);
    return !std::exchange(nextWriteFails, false);
}

BUF FuzzedPeer::Response(BYTE code) {
    return formatter->BuildResponseFrame(code);
}

BUF FuzzedPeer::Status(bool ownContent) {
    const BYTE healthy[ecrFiscalStatusLength] = {
        protocolCode, 0, 0, flags, 0, 0, 0, 0x41, 0, 0, 0, 0, 0, 1, 0x20};
    BUF block(healthy, sizeof healthy);
    if (ownContent) {
        for (WORD i = 0; i < ecrFiscalStatusLength; ++i)
            block[i] = static_cast<BYTE>(block[i] ^ Next());
    }
    sentUnreadableStatus = sentUnreadableStatus || IsUnreadable(block);
    BUF payload;
    payload.AddWORD(lastSeqNumber);
    payload.AddBUF(block);
    return formatter->BuildDataFrame(payload);
}

std::optional<BUF> FuzzedPeer::Content(Event what, WORD size) {
    if (what == Event::Silence) return std::nullopt;
    if (what == Event::RawBytes) {
        BUF raw;
        for (WORD i = 0; i < size; ++i) raw.AddBYTE(Next(), 1);
        return raw;
    }
    if (what == Event::WriteFails) nextWriteFails = true;
    const bool ownContent = what == Event::OwnContent;
    if (size == formatter->GetDataFrameSize(ecrFiscalStatusLength + seqNumberSize))
        return Status(ownContent);
    if (lastWritten == Role::Answer) return formatter->BuildEofFrame();
    if (what == Event::Refusal) return Response(NAK);
    if (what == Event::Busy)
        return Response(family == ProtocolFormatting_Margay ? margayBusy : BSY);
    return Response(ownContent ? Next() : ACK);
}

bool FuzzedPeer::Read(BYTE* block, WORD size) {
    const Event what = NextEvent();
    if (what == Event::DeviceFails) {
        errno = EIO;
        FailSystem("Serial port read error");
    }
    const std::optional<BUF> content = Content(what, size);
    if (!content) return false;
    Require(content->GetSize() == size, "the driver reads frames of the size that they have");
    content->CopyTo(block, size);
    return true;
}

std::optional<FuzzedPeer>& ThePeer() {
    static std::optional<FuzzedPeer> peer;
    return peer;
}

// ---- In place of the driver's channel ----------------------------------------------------------

void CommChannel_Open(CommChannelType /*channelType*/) {}

void CommChannel_Close() {}

void CommChannel_SetReadTimeout(int /*timeoutInMs*/) {}

bool CommChannel_Read(BYTE* block, WORD len) {
    return ThePeer()->Read(block, len);
}

bool CommChannel_Write(const BYTE* block, WORD len) {
    return ThePeer()->Write(block, len);
}

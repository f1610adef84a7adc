// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ProtocolFormatting.h"

#include <memory>
#include <string_view>

#include "DriverException.h"

namespace {

constexpr BYTE ocelotSendRequest = 0xD0;
constexpr BYTE ocelotReadRequest = 0xD9;
constexpr BYTE ocelotResponse = 0xD9;
constexpr BYTE ocelotEof = 0xFF;  // twice
constexpr WORD ocelotResponseSize = 4;
constexpr WORD ocelotEofSize = 4;
constexpr WORD ocelotCheckSize = 2;

constexpr BYTE margayRequestStart = 0x02;
constexpr BYTE margayRequestEnd = 0x03;
constexpr BYTE margayDataEnd = 0x0D;
constexpr BYTE margayEofEnd = 0x1A;
constexpr BYTE margayBusy = 27;  // ESC; the other two codes are those of the driver
constexpr WORD margayResponseSize = 1;
constexpr WORD margayEofSize = 3;
constexpr WORD margayTrailerSize = 3;  // two check letters and the end byte

constexpr std::string_view hexLetters = "0123456789ABCDEF";

WORD SizeOf(const BUF& frame) {
    return static_cast<WORD>(frame.GetSize());
}
BYTE HighNibble(BYTE b) {
    return static_cast<BYTE>(b >> 4);
}
BYTE LowNibble(BYTE b) {
    return static_cast<BYTE>(b & 0x0F);
}

std::unique_ptr<IProtocolFormatter> formatter;  // null: none selected

IProtocolFormatter& Selected() {
    if (!formatter) FailInternal();
    return *formatter;
}

}  // namespace

ProtocolFormatter_Ocelot::ProtocolFormatter_Ocelot(bool skipCheck) : skipCrcCheck(skipCheck) {}

BUF ProtocolFormatter_Ocelot::BuildDataSendRequestFrame(BYTE ecrNetworkID, BYTE cmd) {
    return BuildRequestFrame(ocelotSendRequest, ecrNetworkID, cmd);
}

BUF ProtocolFormatter_Ocelot::BuildDataReadRequestFrame(BYTE ecrNetworkID, BYTE cmd) {
    return BuildRequestFrame(ocelotReadRequest, ecrNetworkID, cmd);
}

WORD ProtocolFormatter_Ocelot::GetResponseFrameSize() {
    return ocelotResponseSize;
}

BUF ProtocolFormatter_Ocelot::BuildResponseFrame(BYTE respCode) {
    BUF frame;
    frame.AddBYTE(ocelotResponse, 1);
    frame.AddBYTE(respCode, 1);
    AddCRC(frame);
    return frame;
}

BYTE ProtocolFormatter_Ocelot::ParseResponseFrame(const BUF& frame) {
    if (CheckFrame(frame, ocelotResponseSize) == GARBAGE) return GARBAGE;
    const BYTE code = frame[1];  // byte 0 is not examined
    return code == ACK || code == NAK || code == BSY ? code : GARBAGE;
}

WORD ProtocolFormatter_Ocelot::GetDataFrameSize(WORD dataSize) {
    return static_cast<WORD>(dataSize + ocelotCheckSize);
}

BUF ProtocolFormatter_Ocelot::BuildDataFrame(BUF data) {
    AddCRC(data);
    return data;
}

BYTE ProtocolFormatter_Ocelot::ParseDataFrame(const BUF& frame, BUF& data) {
    if (frame.GetSize() < ocelotCheckSize) FailInternal();
    if (CheckFrame(frame, SizeOf(frame)) == GARBAGE) return GARBAGE;
    BUF bare = frame;
    bare.RemoveAt(bare.GetSize() - ocelotCheckSize, ocelotCheckSize);
    data = bare;
    return ACK;
}

WORD ProtocolFormatter_Ocelot::GetEofFrameSize() {
    return ocelotEofSize;
}

BUF ProtocolFormatter_Ocelot::BuildEofFrame() {
    BUF frame;
    frame.AddBYTE(ocelotEof, 2);
    AddCRC(frame);
    return frame;
}

BYTE ProtocolFormatter_Ocelot::ParseEofFrame(const BUF& frame) {
    if (CheckFrame(frame, ocelotEofSize) == GARBAGE) return GARBAGE;
    return frame[0] == ocelotEof && frame[1] == ocelotEof ? ACK : GARBAGE;
}

void ProtocolFormatter_Ocelot::CalcCRC(BUF frame, WORD size, BYTE& xorByte, BYTE& sumByte) {
    unsigned int all = 0;
    unsigned int sum = 0;
    for (WORD i = 0; i < size; ++i) {
        all ^= frame[i];
        sum += frame[i];
    }
    xorByte = static_cast<BYTE>(all);
    sumByte = static_cast<BYTE>(0 - (all + sum));
}

void ProtocolFormatter_Ocelot::AddCRC(BUF& frame) {
    BYTE xorByte = 0;
    BYTE sumByte = 0;
    CalcCRC(frame, SizeOf(frame), xorByte, sumByte);
    frame.AddBYTE(xorByte, 1);
    frame.AddBYTE(sumByte, 1);
}

bool ProtocolFormatter_Ocelot::CheckCRC(BUF frame, WORD size) {
    if (size < ocelotCheckSize) FailInternal();
    BYTE xorByte = 0;
    BYTE sumByte = 0;
    CalcCRC(frame, static_cast<WORD>(size - ocelotCheckSize), xorByte, sumByte);
    return frame[size - 2u] == xorByte && frame[size - 1u] == sumByte;
}

BYTE ProtocolFormatter_Ocelot::CheckFrame(const BUF& frame, WORD expectedSize) {
    if (frame.GetSize() != expectedSize) return GARBAGE;
    if (skipCrcCheck) return ACK;
    return CheckCRC(frame, expectedSize) ? ACK : GARBAGE;
}

BUF ProtocolFormatter_Ocelot::BuildRequestFrame(BYTE frameType, BYTE ecrNetworkID, BYTE cmd) {
    BUF frame;
    frame.AddBYTE(frameType, 1);
    frame.AddBYTE(ecrNetworkID, 1);
    frame.AddBYTE(cmd, 1);
    AddCRC(frame);
    return frame;
}

ProtocolFormatter_Margay::ProtocolFormatter_Margay(bool skipCheck) : skipCrcCheck(skipCheck) {}

BUF ProtocolFormatter_Margay::BuildDataSendRequestFrame(BYTE, BYTE cmd) {
    return BuildRequestFrame(cmd);
}

// Deliberate: the same bytes as a data-send request; the command code alone tells the register in
// which direction data follow. See the suite MargayFrames.
BUF ProtocolFormatter_Margay::BuildDataReadRequestFrame(BYTE, BYTE cmd) {
    return BuildRequestFrame(cmd);
}

WORD ProtocolFormatter_Margay::GetResponseFrameSize() {
    return margayResponseSize;
}

BUF ProtocolFormatter_Margay::BuildResponseFrame(BYTE respCode) {
    BUF frame;
    frame.AddBYTE(respCode, 1);
    return frame;
}

BYTE ProtocolFormatter_Margay::ParseResponseFrame(const BUF& frame) {
    if (frame.GetSize() != margayResponseSize) return GARBAGE;
    switch (frame[0]) {
        case ACK:
            return ACK;
        case NAK:
            return NAK;
        case margayBusy:
            return BSY;
        default:
            return GARBAGE;
    }
}

WORD ProtocolFormatter_Margay::GetDataFrameSize(WORD dataSize) {
    return static_cast<WORD>(2 * dataSize + margayTrailerSize);
}

BUF ProtocolFormatter_Margay::BuildDataFrame(BUF data) {
    BUF frame;
    for (DWORD i = 0; i < data.GetSize(); ++i) {
        frame.AddBYTE(HexDigitToLetter(HighNibble(data[i])), 1);
        frame.AddBYTE(HexDigitToLetter(LowNibble(data[i])), 1);
    }
    AddCRC(frame, true);
    frame.AddBYTE(margayDataEnd, 1);
    return frame;
}

// Deliberate: the end byte is not examined, and lower-case data letters count; see the suite
// MargayParseData.
BYTE ProtocolFormatter_Margay::ParseDataFrame(const BUF& frame, BUF& data) {
    const int letters = static_cast<int>(frame.GetSize()) - margayTrailerSize;
    if (letters % 2 != 0) return GARBAGE;
    if (letters < 0) FailInternal();
    if (!skipCrcCheck && !CheckCRC(frame, SizeOf(frame))) return GARBAGE;
    BUF bare;
    for (unsigned int i = 0; i < static_cast<unsigned int>(letters); i += 2) {
        const int high = LetterToHexDigit(frame[i]);
        bare.AddBYTE(static_cast<BYTE>(high << 4 | LetterToHexDigit(frame[i + 1])), 1);
    }
    data = bare;
    return ACK;
}

WORD ProtocolFormatter_Margay::GetEofFrameSize() {
    return margayEofSize;
}

BUF ProtocolFormatter_Margay::BuildEofFrame() {
    BUF frame;
    AddTotalCRC(frame);
    frame.AddBYTE(margayEofEnd, 1);
    return frame;
}

// Deliberate: the register's total is not verified, each of its data frames was checked by itself;
// see the suite MargayParseEof.
BYTE ProtocolFormatter_Margay::ParseEofFrame(const BUF& frame) {
    return frame.GetSize() == margayEofSize && frame[2] == margayEofEnd ? ACK : GARBAGE;
}

void ProtocolFormatter_Margay::AddTotalCRC(BUF& frame) {
    frame.AddBYTE(HexDigitToLetter(HighNibble(totalCRC)), 1);
    frame.AddBYTE(HexDigitToLetter(LowNibble(totalCRC)), 1);
}

void ProtocolFormatter_Margay::CalcCRC(BUF frame, WORD size, bool addToTotal, BYTE& highLetter,
                                       BYTE& lowLetter) {
    unsigned int sum = 0;
    for (WORD i = 0; i < size; ++i) sum += frame[i];
    const BYTE check = static_cast<BYTE>(0 - sum);
    if (addToTotal) totalCRC = static_cast<BYTE>(totalCRC + check);
    highLetter = HexDigitToLetter(HighNibble(check));
    lowLetter = HexDigitToLetter(LowNibble(check));
}

void ProtocolFormatter_Margay::AddCRC(BUF& frame, bool addToTotal) {
    BYTE high = 0;
    BYTE low = 0;
    CalcCRC(frame, SizeOf(frame), addToTotal, high, low);
    frame.AddBYTE(high, 1);
    frame.AddBYTE(low, 1);
    if (!addToTotal) totalCRC = 0;
}

bool ProtocolFormatter_Margay::CheckCRC(BUF frame, WORD size) {
    if (size < margayTrailerSize) FailInternal();
    BYTE high = 0;
    BYTE low = 0;
    CalcCRC(frame, static_cast<WORD>(size - margayTrailerSize), false, high, low);
    // Deliberate: lower-case check letters do not count, unlike those of the data; see the suite
    // MargayParseData.
    return frame[size - 3u] == high && frame[size - 2u] == low;
}

BUF ProtocolFormatter_Margay::BuildRequestFrame(BYTE cmd) {
    BUF frame;
    frame.AddBYTE(margayRequestStart, 1);
    frame.AddBYTE(cmd, 1);
    AddCRC(frame, false);
    frame.AddBYTE(margayRequestEnd, 1);
    return frame;
}

BYTE ProtocolFormatter_Margay::HexDigitToLetter(BYTE d) {
    if (d >= hexLetters.size()) FailInternal();
    return static_cast<BYTE>(hexLetters[d]);
}

BYTE ProtocolFormatter_Margay::LetterToHexDigit(BYTE l) {
    if (l >= '0' && l <= '9') return static_cast<BYTE>(l - '0');
    if (l >= 'A' && l <= 'F') return static_cast<BYTE>(l - 'A' + 10);
    if (l >= 'a' && l <= 'f') return static_cast<BYTE>(l - 'a' + 10);
    return 0;
}

void SelectFormatting(ProtocolFormatting formatting, bool skipCrcCheck) {
    formatter.reset();
    switch (formatting) {
        case ProtocolFormatting_Ocelot:
            formatter = std::make_unique<ProtocolFormatter_Ocelot>(skipCrcCheck);
            break;
        case ProtocolFormatting_Margay:
            formatter = std::make_unique<ProtocolFormatter_Margay>(skipCrcCheck);
            break;
    }
}

BUF BuildDataSendRequestFrame(BYTE ecrNetworkID, BYTE cmd) {
    return Selected().BuildDataSendRequestFrame(ecrNetworkID, cmd);
}

BUF BuildDataReadRequestFrame(BYTE ecrNetworkID, BYTE cmd) {
    return Selected().BuildDataReadRequestFrame(ecrNetworkID, cmd);
}

WORD GetResponseFrameSize() {
    return Selected().GetResponseFrameSize();
}
BUF BuildResponseFrame(BYTE respCode) {
    return Selected().BuildResponseFrame(respCode);
}
BYTE ParseResponseFrame(const BUF& frame) {
    return Selected().ParseResponseFrame(frame);
}
WORD GetDataFrameSize(WORD dataSize) {
    return Selected().GetDataFrameSize(dataSize);
}
BUF BuildDataFrame(BUF data) {
    return Selected().BuildDataFrame(data);
}
BYTE ParseDataFrame(const BUF& frame, BUF& data) {
    return Selected().ParseDataFrame(frame, data);
}
WORD GetEofFrameSize() {
    return Selected().GetEofFrameSize();
}
BUF BuildEofFrame() {
    return Selected().BuildEofFrame();
}
BYTE ParseEofFrame(const BUF& frame) {
    return Selected().ParseEofFrame(frame);
}

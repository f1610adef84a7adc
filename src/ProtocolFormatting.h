// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The two frame families of the register link. docs/wire-format.md shows every frame with its
// bytes.
#pragma once

#include "Buf.h"
#include "Common.h"

// What a frame-level operation ended with.
inline constexpr BYTE GARBAGE = 1;    ///< malformed, bad check bytes or an unexpected code
inline constexpr BYTE LOST_RESP = 2;  ///< nothing, or too little, came in time; or the write failed
inline constexpr BYTE ACK = 6;
inline constexpr BYTE BSY = 11;
inline constexpr BYTE NAK = 21;

enum ProtocolFormatting : int { ProtocolFormatting_Ocelot = 0, ProtocolFormatting_Margay = 1 };

/// Sizes are in bytes. Parsing answers GARBAGE for a bad frame and does not raise, but for a data
/// frame of a size that the link never reads: see ParseDataFrame. The families share no operation,
/// so each overrides all of them.
class IProtocolFormatter {
  public:
    virtual ~IProtocolFormatter() = default;

    virtual BUF BuildDataSendRequestFrame(BYTE ecrNetworkID, BYTE cmd) = 0;
    virtual BUF BuildDataReadRequestFrame(BYTE ecrNetworkID, BYTE cmd) = 0;
    virtual WORD GetResponseFrameSize() = 0;
    /// respCode is ACK or NAK.
    virtual BUF BuildResponseFrame(BYTE respCode) = 0;
    /// ACK, NAK, BSY or GARBAGE.
    virtual BYTE ParseResponseFrame(const BUF& frame) = 0;
    virtual WORD GetDataFrameSize(WORD dataSize) = 0;
    virtual BUF BuildDataFrame(BUF data) = 0;
    /// ACK and the bare bytes in data, or GARBAGE and data untouched. Raises 99 for an Ocelot frame
    /// of less than 2 bytes and a Margay frame of 1 byte.
    virtual BYTE ParseDataFrame(const BUF& frame, BUF& data) = 0;
    virtual WORD GetEofFrameSize() = 0;
    virtual BUF BuildEofFrame() = 0;
    /// ACK or GARBAGE.
    virtual BYTE ParseEofFrame(const BUF& frame) = 0;
};

/// Binary frames that end with an XOR byte and a byte that brings the sum to 0.
class ProtocolFormatter_Ocelot : public IProtocolFormatter {
  public:
    explicit ProtocolFormatter_Ocelot(bool skipCrcCheck);

    BUF BuildDataSendRequestFrame(BYTE ecrNetworkID, BYTE cmd) override;
    BUF BuildDataReadRequestFrame(BYTE ecrNetworkID, BYTE cmd) override;
    WORD GetResponseFrameSize() override;
    BUF BuildResponseFrame(BYTE respCode) override;
    BYTE ParseResponseFrame(const BUF& frame) override;
    WORD GetDataFrameSize(WORD dataSize) override;
    BUF BuildDataFrame(BUF data) override;
    BYTE ParseDataFrame(const BUF& frame, BUF& data) override;
    WORD GetEofFrameSize() override;
    BUF BuildEofFrame() override;
    BYTE ParseEofFrame(const BUF& frame) override;

    void CalcCRC(BUF frame, WORD size, BYTE& xorByte, BYTE& sumByte);
    void AddCRC(BUF& frame);
    /// A frame of less than 2 bytes raises 99.
    bool CheckCRC(BUF frame, WORD size);
    BYTE CheckFrame(const BUF& frame, WORD expectedSize);
    BUF BuildRequestFrame(BYTE frameType, BYTE ecrNetworkID, BYTE cmd);

  private:
    bool skipCrcCheck;
};

/// Frames of hex letters with a negated-sum check; a running total of a command's data frames
/// closes the exchange.
class ProtocolFormatter_Margay : public IProtocolFormatter {
  public:
    explicit ProtocolFormatter_Margay(bool skipCrcCheck);

    /// The network ID is not sent, and both kinds of request are the same bytes. Either starts a
    /// new total.
    BUF BuildDataSendRequestFrame(BYTE ecrNetworkID, BYTE cmd) override;
    BUF BuildDataReadRequestFrame(BYTE ecrNetworkID, BYTE cmd) override;
    WORD GetResponseFrameSize() override;
    BUF BuildResponseFrame(BYTE respCode) override;
    BYTE ParseResponseFrame(const BUF& frame) override;
    WORD GetDataFrameSize(WORD dataSize) override;
    BUF BuildDataFrame(BUF data) override;
    BYTE ParseDataFrame(const BUF& frame, BUF& data) override;
    WORD GetEofFrameSize() override;
    BUF BuildEofFrame() override;
    BYTE ParseEofFrame(const BUF& frame) override;

    void AddTotalCRC(BUF& frame);
    void CalcCRC(BUF frame, WORD size, bool addToTotal, BYTE& highLetter, BYTE& lowLetter);
    void AddCRC(BUF& frame, bool addToTotal);
    /// A frame of less than 3 bytes raises 99.
    bool CheckCRC(BUF frame, WORD size);
    BUF BuildRequestFrame(BYTE cmd);
    /// d above 15 raises 99.
    BYTE HexDigitToLetter(BYTE d);
    /// Lower case counts too; 0 for a byte that is no hex digit.
    BYTE LetterToHexDigit(BYTE l);

  private:
    bool skipCrcCheck;
    BYTE totalCRC = 0;
};

/// Replaces the selected formatter; a value that names none leaves nothing selected.
void SelectFormatting(ProtocolFormatting formatting, bool skipCrcCheck);

// The selected formatter's operations; each raises 99 when none is selected.
BUF BuildDataSendRequestFrame(BYTE ecrNetworkID, BYTE cmd);
BUF BuildDataReadRequestFrame(BYTE ecrNetworkID, BYTE cmd);
WORD GetResponseFrameSize();
BUF BuildResponseFrame(BYTE respCode);
BYTE ParseResponseFrame(const BUF& frame);
WORD GetDataFrameSize(WORD dataSize);
BUF BuildDataFrame(BUF data);
BYTE ParseDataFrame(const BUF& frame, BUF& data);
WORD GetEofFrameSize();
BUF BuildEofFrame();
BYTE ParseEofFrame(const BUF& frame);

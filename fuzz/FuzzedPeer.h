// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The register's end of the line, played by the input: every read of the driver takes the next
// byte, which says what comes. After the last byte everything is well.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "Buf.h"
#include "ProtocolFormatting.h"

class FuzzedPeer {
  public:
    /// flags and protocolCode are those of the status block while all is well; the script is what
    /// the reads take.
    FuzzedPeer(ProtocolFormatting family, BYTE flags, BYTE protocolCode, std::vector<BYTE> script);

    bool Write(const BYTE* block, WORD size);
    /// Raises 50 when the script says so.
    bool Read(BYTE* block, WORD size);

    int FramesWritten() const { return framesWritten; }
    /// For commands of the file, which entering and leaving fiscal mode are not.
    int FiscalDataFrames() const { return fiscalDataFrames; }
    int FiscalEofs() const { return fiscalEofs; }
    /// A good frame has carried a status with a byte above 99h where packed BCD belongs.
    bool SentUnreadableStatus() const { return sentUnreadableStatus; }
    /// Everything written, frame after frame.
    const std::vector<BYTE>& Wire() const { return wire; }

  private:
    enum class Role { Request, Data, Eof, Answer };
    enum class Event {
        Well,
        Silence,
        RawBytes,
        Refusal,
        Busy,
        OwnContent,
        DeviceFails,
        WriteFails
    };
    static constexpr int eventCount = 8;

    BYTE Next();
    Event NextEvent();
    Role RoleOf(const std::vector<BYTE>& frame) const;
    void Note(const std::vector<BYTE>& frame);
    bool IsFiscal() const;
    void CountAttempt(WORD seqNumber);
    std::optional<BUF> Content(Event event, WORD size);
    BUF Response(BYTE code);
    BUF Status(bool ownContent);

    ProtocolFormatting family;
    std::unique_ptr<IProtocolFormatter> formatter;  // builds what is well-formed
    BYTE flags;
    BYTE protocolCode;
    std::vector<BYTE> script;
    std::size_t next = 0;
    Event event = Event::Well;
    int repeats = 0;  // how often the event comes again
    bool nextWriteFails = false;

    BYTE command = 0;  // of the last request
    Role lastWritten = Role::Request;
    WORD lastSeqNumber = 0;  // of the last data frame
    BYTE lastDataCommand = 0;
    int attempts = 0;  // to send that data frame
    int framesWritten = 0;
    int fiscalDataFrames = 0;
    int fiscalEofs = 0;
    bool sentUnreadableStatus = false;
    std::vector<BYTE> wire;
};

/// The peer of this process's channel.
std::optional<FuzzedPeer>& ThePeer();

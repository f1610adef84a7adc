// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The exchange: how one command goes to the register and how its status comes back, with every
// retry, pause and failure.

#include "AppController.h"
#include "CommChannel.h"
#include "DriverException.h"
#include "EcrLink.h"
#include "Globals.h"

WORD outFrameSeqNumber = 1;
WORD inFrameSeqNumber = 0;

namespace {

BYTE ioBuffer[ioBufferSize];

constexpr WORD lastSeqNumber = 0xFFFE;

void Log(const char* event) {
    AppController::LogMessage(DBG_LOG, event, true);
}

[[noreturn]] void FailLost(Where at = Here()) {
    Fail(ERR_RESPONSE_LOST, "ECR response lost", at);
}

void NoteLost() {
    ++lostRespCount;
    Log("ECR response lost");
}

void NoteNak() {
    ++nakCount;
    Log("NAK received");
}

void NoteGarbage(const char* event = "Garbage received") {
    ++garbageCount;
    Log(event);
}

/// Pauses go to Sleep as configured; its rule makes the defaults of 200 and 2500 return at once.
void PauseFor(int sleepTime) {
    Sleep(static_cast<unsigned int>(sleepTime));
}

/// What went wrong with one command's data frame so far.
struct SendTroubles {
    int garbage = 0;
    int naks = 0;
    int lost = 0;

    void Note(BYTE result) {
        switch (result) {
            case ACK:
                break;
            case LOST_RESP:
                ++lost;
                NoteLost();
                break;
            case NAK:
                ++naks;
                NoteNak();
                PauseFor(nakSleepTime);
                break;
            default:
                ++garbage;
                NoteGarbage();
                PauseFor(garbageSleepTime);
        }
    }

    bool TooMany() const {
        return garbage > garbageRetryCount || naks > nakRetryCount || lost > lostRespRetryCount;
    }
};

/// Deliberate: returns for garbage as for ACK, the data phase decides; see the suite
/// ECR_SendRequest.
void JudgeAnswerToRequest(BYTE result) {
    switch (result) {
        case ACK:
            return;
        case BSY:
            ++bsyCount;
            Log("BSY received");
            Fail(ERR_ECR_BUSY, "ECR is busy or has incorrect network ID");
        case NAK:
            NoteNak();
            Fail(ERR_REQUEST_REFUSED, "ECR refused the request");
        default:
            NoteGarbage();
    }
}

/// After an exchange that was not acknowledged: did the register get this very command and refuse
/// it?
void FailIfRefused() {
    const int code = ECR_Status().lastCommandResultCode;
    if (code == CRC_NO_ERROR || inFrameSeqNumber != outFrameSeqNumber) return;
    if (code == CRC_LAST_FISCAL_CMD_ERROR) cmdError = true;
    FailEcrResult(code);
}

/// What parse says of the next frame, which has that size; LOST_RESP when none came.
template <typename Parse>
BYTE ReadAndParse(WORD frameSize, Parse parse) {
    BUF frame;
    const BYTE result = ReadFrame(frame, frameSize);
    return result == ACK ? parse(frame) : result;
}

/// Repeats parse-and-answer until the incoming frame is good or has been bad too often.
template <typename Action>
void ReceiveFrame(Action readAndParse) {
    int failures = 0;
    BYTE result = NAK;
    while (result != ACK) {
        result = readAndParse();
        ProcessResultAndSendResponse(result);
        if (result != ACK && ++failures > garbageRetryCount) {
            Fail(ERR_GARBAGE, "ECR is sending garbage all the time");
        }
    }
}

}  // namespace

BYTE SendFrame(const BUF& frame) {
    if (frame.GetSize() > ioBufferSize) FailInternal();
    const WORD size = static_cast<WORD>(frame.CopyTo(ioBuffer, ioBufferSize));
    if (!CommChannel_Write(ioBuffer, size)) {
        ++lostRespCount;
        return LOST_RESP;
    }
    ++framesSend;
    return ACK;
}

BYTE ReadFrame(BUF& frame, WORD frameSize) {
    if (frameSize > ioBufferSize) FailInternal();
    if (!CommChannel_Read(ioBuffer, frameSize)) {
        ++lostRespCount;
        return LOST_RESP;
    }
    ++framesReceived;
    frame = BUF(ioBuffer, frameSize);
    return ACK;
}

BYTE ReadAndParseResponseFrame() {
    return ReadAndParse(GetResponseFrameSize(), ParseResponseFrame);
}

BYTE SendFrameAndReadResponse(const BUF& frame) {
    const BYTE result = SendFrame(frame);
    return result == ACK ? ReadAndParseResponseFrame() : result;
}

void SendRequest(const BUF& requestFrame) {
    int lost = 0;
    bool answered = false;
    while (!answered) {
        const BYTE result = SendFrameAndReadResponse(requestFrame);
        answered = result != LOST_RESP;
        if (answered) {
            JudgeAnswerToRequest(result);
        } else {
            ++lost;
            NoteLost();
        }
        if (lost > lostRespRetryCount) FailLost();
    }
}

void SendDataSendRequest(BYTE cmd) {
    SendRequest(BuildDataSendRequestFrame(static_cast<BYTE>(ecrNetworkId), cmd));
}

void SendDataReadRequest(BYTE cmd) {
    SendRequest(BuildDataReadRequestFrame(static_cast<BYTE>(ecrNetworkId), cmd));
}

void SendCommand(BYTE cmd, const BUF& cmdData, bool fiscalCommand) {
    BUF payload;
    payload.AddWORD(outFrameSeqNumber);
    payload.AddBUF(cmdData);
    SendTroubles troubles;
    for (;;) {
        SendDataSendRequest(cmd);
        const BUF frame = BuildDataFrame(payload);  // before State tells that it went out
        if (fiscalCommand) State = STATE_CMDSENT;
        ecrStatusValid = false;  // whatever becomes of the data frame
        const BYTE result = SendFrameAndReadResponse(frame);
        troubles.Note(result);
        if (result == ACK) SendEof();
        if (result == ACK) break;
        FailIfRefused();
        if (troubles.TooMany()) Fail(ERR_SEND, "Send error");
    }
    outFrameSeqNumber =
        outFrameSeqNumber == lastSeqNumber ? WORD{1} : static_cast<WORD>(outFrameSeqNumber + 1);
}

void SendEof() {
    const BYTE result = SendFrameAndReadResponse(BuildEofFrame());
    if (result == LOST_RESP) FailLost();
    // Deliberate: the spelling is that of the logs in shops; see the suite ECR_SendEof.
    if (result != ACK) Log("Comunication error");
}

BYTE SendResponse(BYTE code) {
    return SendFrame(BuildResponseFrame(code));
}

void ProcessResultAndSendResponse(BYTE result) {
    if (result == LOST_RESP) FailLost();
    if (result == GARBAGE) {
        // Deliberate: the spelling is that of the logs in shops; see the suite
        // ECR_ProcessResultAndSendResponse.
        NoteGarbage("Garbage recieved");
        PauseFor(garbageSleepTime);
    }
    SendResponse(result == ACK ? ACK : NAK);
}

BYTE ReadAndParseDataFrame(BUF& data, WORD dataLength) {
    return ReadAndParse(GetDataFrameSize(dataLength),
                        [&](const BUF& frame) { return ParseDataFrame(frame, data); });
}

WORD ReadData(BUF& data, WORD dataLength) {
    constexpr WORD seqNumberSize = 2;
    ReceiveFrame(
        [&] { return ReadAndParseDataFrame(data, static_cast<WORD>(dataLength + seqNumberSize)); });
    const WORD seqNumber = static_cast<WORD>(data[0] | data[1] << 8);
    data.RemoveAt(0, seqNumberSize);
    return seqNumber;
}

BYTE ReadAndParseEofFrame() {
    return ReadAndParse(GetEofFrameSize(), ParseEofFrame);
}

void ReadEof() {
    ReceiveFrame(ReadAndParseEofFrame);
}

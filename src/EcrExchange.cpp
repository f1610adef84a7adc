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
    Fail(150, "ECR response lost", at);
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
                ++lostRespCount;
                ++lost;
                Log("ECR response lost");
                break;
            case NAK:
                ++nakCount;
                ++naks;
                Log("NAK received");
                PauseFor(nakSleepTime);
                break;
            default:
                ++garbageCount;
                ++garbage;
                Log("Garbage received");
                PauseFor(garbageSleepTime);
        }
    }

    bool TooMany() const {
        return garbage > garbageRetryCount || naks > nakRetryCount || lost > lostRespRetryCount;
    }
};

/// After an exchange that was not acknowledged: did the register get this very command and refuse
/// it?
void FailIfRefused() {
    const int code = ECR_Status().lastCommandResultCode;
    if (code == CRC_NO_ERROR || inFrameSeqNumber != outFrameSeqNumber) return;
    if (code == CRC_LAST_FISCAL_CMD_ERROR) cmdError = true;
    Fail(200 + code, GetEcrErrorMessage(code));
}

/// Repeats parse-and-answer until the incoming frame is good or has been bad too often.
template <typename ReadAndParse>
void ReceiveFrame(ReadAndParse readAndParse) {
    int failures = 0;
    BYTE result = NAK;
    while (result != ACK) {
        result = readAndParse();
        ProcessResultAndSendResponse(result);
        if (result != ACK && ++failures > garbageRetryCount) {
            Fail(152, "ECR is sending garbage all the time");
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
    BUF frame;
    const BYTE result = ReadFrame(frame, GetResponseFrameSize());
    return result == ACK ? ParseResponseFrame(frame) : result;
}

BYTE SendFrameAndReadResponse(const BUF& frame) {
    const BYTE result = SendFrame(frame);
    return result == ACK ? ReadAndParseResponseFrame() : result;
}

void SendRequest(const BUF& requestFrame) {
    int lost = 0;
    BYTE result = NAK;
    while (result != ACK) {
        result = SendFrameAndReadResponse(requestFrame);
        switch (result) {
            case ACK:
                break;
            case LOST_RESP:
                ++lostRespCount;
                ++lost;
                Log("ECR response lost");
                break;
            case BSY:
                ++bsyCount;
                Log("BSY received");
                Fail(101, "ECR is busy or has incorrect network ID");
            case NAK:
                ++nakCount;
                Log("NAK received");
                Fail(102, "ECR refused the request");
            default:
                ++garbageCount;
                Log("Garbage received");
                result = ACK;  // Deliberate: the data phase that follows decides
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
        const BYTE result = SendFrameAndReadResponse(frame);
        ecrStatusValid = false;  // also when the end-of-file exchange fails
        troubles.Note(result);
        if (result == ACK) SendEof();
        if (result == ACK) break;
        FailIfRefused();
        if (troubles.TooMany()) Fail(151, "Send error");
    }
    outFrameSeqNumber =
        outFrameSeqNumber == lastSeqNumber ? WORD{1} : static_cast<WORD>(outFrameSeqNumber + 1);
}

void SendEof() {
    const BYTE result = SendFrameAndReadResponse(BuildEofFrame());
    if (result == LOST_RESP) FailLost();
    if (result != ACK) Log("Comunication error");
}

BYTE SendResponse(BYTE code) {
    return SendFrame(BuildResponseFrame(code));
}

void ProcessResultAndSendResponse(BYTE result) {
    if (result == LOST_RESP) FailLost();
    if (result == GARBAGE) {
        ++garbageCount;
        Log("Garbage recieved");
        PauseFor(garbageSleepTime);
    }
    SendResponse(result == ACK ? ACK : NAK);
}

BYTE ReadAndParseDataFrame(BUF& data, WORD dataLength) {
    BUF frame;
    const BYTE result = ReadFrame(frame, GetDataFrameSize(dataLength));
    return result == ACK ? ParseDataFrame(frame, data) : result;
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
    BUF frame;
    const BYTE result = ReadFrame(frame, GetEofFrameSize());
    return result == ACK ? ParseEofFrame(frame) : result;
}

void ReadEof() {
    ReceiveFrame(ReadAndParseEofFrame);
}

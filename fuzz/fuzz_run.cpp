// A whole run of a command file against a peer that answers as the input says. The run ends, after
// no more frames than the numbers of retries allow; its exit code and its result agree with each
// other and with what was written; and the same input gives the same run again.
//
// An input is: family and file, flags of the healthy status, its protocol code, the peer's script.

#include <unistd.h>

#include <iterator>

#include "ECR.h"
#include "EcrLink.h"
#include "FiscalCommandProcessor.h"
#include "FuzzedPeer.h"
#include "IniFile.h"
#include "ProcessorInternal.h"
#include "Property.h"
#include "VOLTIS.h"
#include "support/TempDir.h"

namespace {

Tally tally("fuzz_run", "of them OK");

struct CommandFile {
    const char* text;
    int sends;  // commands over the wire, without those for the fiscal mode
};

constexpr CommandFile commandFiles[] = {
    {"COMMENT: TEXT=\"One line\"\n", 1},
    {"SALE: DEPTNR=1; NAME=Tea; PRICE=1.25; QNTY=2\n"
     "DISCOUNT: AMOUNT=0.10; TYPE=SALE\n"
     "TENDER: AMOUNT=5\n",
     4},
    {"CONTINUE\nSALE: PLUNR=12; QNTY=1.5\nCONTINUE\n", 1},
    {"RETURN: DEPTNR=2; AMOUNT=1\nCONTINUE_MANUALLY\n", 1},
    {"GET_STATUS\n", 0},
    {"REPORT: TYPE=Z\n", 1},
    {"BARCODE: TYPE=EAN; DATA=590123412345\nSHOW_TOTAL\n", 4},
    {"LAST_RECEIPT_COPY\nOPEN_DRAWER\n", 2},
};
constexpr int fileCount = std::size(commandFiles);

// ---- The bound ---------------------------------------------------------------------------------

/// The most frames that the driver can write, whatever the peer does, with the default retries.
int MostFrames(int sends) {
    constexpr int retries = 3;
    // A request is written again only after silence; more than 3 of it fail.
    constexpr int request = retries + 1;
    // Each incoming frame is answered; the fourth bad one fails.
    constexpr int statusRead = request + 2 * (retries + 1);
    // Every attempt but the last costs a retry of one of three kinds, and each is followed by a
    // status read, which is more than the end-of-file that follows success.
    constexpr int attempts = 3 * retries + 1;
    constexpr int command = attempts * (request + 1 + statusRead);
    // Looking for the register does without retries of the request.
    constexpr int connecting = statusRead - retries + statusRead;
    // Before the first command, before a report, behind the last, after a failure, for the result.
    const int statusReads = sends + 4;
    constexpr int modeChanges = 3;  // in, out, and out again when that failed
    return connecting + statusReads * statusRead + (sends + modeChanges) * command;
}
static_assert(defaultNakRetryCount == 3 && defaultGarbageRetryCount == 3 &&
              defaultLostResponseRetryCount == 3);

// ---- One run -----------------------------------------------------------------------------------

struct Outcome {
    int exitCode;
    std::string result;
    std::vector<BYTE> wire;
    bool operator==(const Outcome&) const = default;
};

/// The files of every run.
class Folder {
  public:
    Folder() {
        for (int i = 0; i < fileCount; ++i) folder.Write(Name(i), commandFiles[i].text);
        folder.Write("0.ini", "[VOLTIS]\nProtocolFormatting=0\n");
        folder.Write("1.ini", "[VOLTIS]\nProtocolFormatting=1\n");
    }
    static std::string Name(int file) { return std::to_string(file) + ".txt"; }
    std::string Commands(int file) const { return folder.File(Name(file)); }
    std::string Ini(int family) const { return folder.File(std::to_string(family) + ".ini"); }
    std::string Result() const { return folder.File("result"); }

  private:
    TempDir folder;
};

void ResetEverything() {
    ResetGlobals();
    outFrameSeqNumber = 1;
    inFrameSeqNumber = 0;
    ecrSettings = EcrSettings();
    ecrStatus = EcrStatus();
    ecrSettingsValid = ecrStatusValid = false;
    ResetIoStatistics();
    continueUnfinishedReceipt = leaveReceiptUnfinished = continueManually = false;
    commandNumber = commandCount = 0;
}

FuzzedPeer PeerOf(const std::uint8_t* data, std::size_t size) {
    constexpr BYTE keylockInReg = KEYLOCK_POSITION_REG << 3;
    const auto family = static_cast<ProtocolFormatting>(data[0] % 2);
    return FuzzedPeer(family, data[1] ^ keylockInReg, data[2], {data + 3, data + size});
}

Outcome Run(const Folder& folder, const std::uint8_t* data, std::size_t size) {
    ResetEverything();
    ThePeer().emplace(PeerOf(data, size));
    IniFile::SetFile(folder.Ini(data[0] % 2), true);
    IniFile::SetSection(sectionName, true);
    unlink(folder.Result().c_str());
    FiscalCommandProcessor_Initialize();
    Execute(folder.Commands(data[0] / 2 % fileCount), folder.Result());
    return {GetPRC(), ReadWholeFile(folder.Result()), ThePeer()->Wire()};
}

// ---- What must hold ----------------------------------------------------------------------------

int NumberBehind(const std::string& result, const std::string& name) {
    const std::size_t at = result.find("\n" + name + "=");
    Require(at != std::string::npos, "the result has its lines");
    return std::stoi(result.substr(at + name.size() + 2));
}

void RequireKnownError(int code) {
    const bool known = code == 50 || (code >= 100 && code <= 108) || (code >= 150 && code <= 152) ||
                       (code > 200 && code <= 299);
    Require(known || (code == CRC_OTHER_ERROR && ThePeer()->SentUnreadableStatus()),
            "a code that is documented");
}

void RequirePromise(const Outcome& outcome, int sends) {
    const FuzzedPeer& peer = *ThePeer();
    Require(NumberBehind(outcome.result, "ResultCode") == outcome.exitCode, "the same code twice");
    switch (outcome.exitCode) {
        case 0:
            Require(peer.FiscalEofs() == sends, "OK: every command was closed, once");
            tally.Count();
            return;
        case 2:
            Require(peer.FiscalDataFrames() == 0, "2: no fiscal data frame was written");
            break;
        case 101:
            Require(peer.FiscalDataFrames() > 0, "101: a fiscal data frame was written");
            Require(peer.FiscalEofs() <= sends, "101: no command was closed twice");
            break;
        default:
            Require(false, "an exit code for a file without a mistake");
    }
    RequireKnownError(NumberBehind(outcome.result, "ErrorCode"));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 3) return -1;
    static const Folder folder;
    tally.Input();
    const Outcome outcome = Run(folder, data, size);
    const int sends = commandFiles[data[0] / 2 % fileCount].sends;
    Require(ThePeer()->FramesWritten() <= MostFrames(sends), "a run ends within its bound");
    tally.Largest(ThePeer()->FramesWritten(), "frames in a run");
    RequirePromise(outcome, sends);
    Require(Run(folder, data, size) == outcome, "the same input gives the same run");
    return 0;
}

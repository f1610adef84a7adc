// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A whole run of a command file against a peer that answers as the input says. The run ends, after
// no more frames than the numbers of retries allow; its exit code and its result agree with each
// other and with what was written; and the same input leads to the same run.
//
// An input is: family, file and whether there are retries; flags of the healthy status; its
// protocol code; the peer's script.

#include <unistd.h>

#include <iterator>

#include "ECR.h"
#include "EcrLink.h"
#include "FiscalCommandProcessor.h"
#include "IniFile.h"
#include "ProcessorInternal.h"
#include "VOLTIS.h"
#include "fuzz/FuzzedPeer.h"
#include "fuzz/Property.h"
#include "tests/support/TempDir.h"

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

/// The most frames that the driver can write, whatever the peer does, with that many retries of
/// each kind.
constexpr int MostFrames(int retries, int sends) {
    // A request is written again only after silence; more than the retries of it fail.
    const int request = retries + 1;
    // Each incoming frame is answered; a bad one too many fails.
    const int statusRead = request + 2 * (retries + 1);
    // Every attempt but the last costs a retry of one of three kinds, and each is followed by a
    // status read, which is more than the end-of-file that follows success.
    const int attempts = 3 * retries + 1;
    const int command = attempts * (request + 1 + statusRead);
    // Looking for the register does without retries of the request.
    const int connecting = statusRead - retries + statusRead;
    // Before the first command, before a report, after the last, after a failure, for the result.
    const int statusReads = sends + 4;
    const int modeChanges = 3;  // in, out, and out again when that failed
    return connecting + statusReads * statusRead + (sends + modeChanges) * command;
}
constexpr int defaultRetries = defaultNakRetryCount;
static_assert(defaultGarbageRetryCount == defaultRetries &&
              defaultLostResponseRetryCount == defaultRetries);
// Without retries, none of the files can need more than a hundred frames; with the default number
// one command alone may: 10 attempts of 17 frames.
static_assert(MostFrames(0, 4) <= 100);

/// What an input's first byte chooses.
struct Choice {
    explicit Choice(std::uint8_t byte)
        : family(byte % 2), file(byte / 2 % fileCount), retries(byte / 2 / fileCount % 2 == 0) {}
    int Retries() const { return retries ? defaultRetries : 0; }

    int family;
    int file;
    bool retries;
};

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
        for (const std::string family : {"0", "1"}) {
            const std::string text = "[VOLTIS]\nProtocolFormatting=" + family + "\n";
            folder.Write(family + "-with.ini", text);
            folder.Write(family + "-without.ini", text +
                                                      "NakRetryCount=0\nGarbageRetryCount=0\n"
                                                      "LostResponseRetryCount=0\n");
        }
    }
    static std::string Name(int file) { return std::to_string(file) + ".txt"; }
    std::string Commands(int file) const { return folder.File(Name(file)); }
    std::string Ini(const Choice& choice) const {
        return folder.File(std::to_string(choice.family) +
                           (choice.retries ? "-with.ini" : "-without.ini"));
    }
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
    const auto family = static_cast<ProtocolFormatting>(Choice(data[0]).family);
    return FuzzedPeer(family, data[1] ^ keylockInReg, data[2], {data + 3, data + size});
}

Outcome Run(const Folder& folder, const std::uint8_t* data, std::size_t size) {
    ResetEverything();
    ThePeer().emplace(PeerOf(data, size));
    const Choice choice(data[0]);
    IniFile::SetFile(folder.Ini(choice), true);
    IniFile::SetSection(sectionName, true);
    unlink(folder.Result().c_str());
    FiscalCommandProcessor_Initialize();
    Execute(folder.Commands(choice.file), folder.Result());
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
    const Choice choice(data[0]);
    const int sends = commandFiles[choice.file].sends;
    Require(ThePeer()->FramesWritten() <= MostFrames(choice.Retries(), sends),
            "a run ends within its bound");
    tally.Largest(ThePeer()->FramesWritten(), "frames in a run");
    RequirePromise(outcome, sends);
    Require(Run(folder, data, size) == outcome, "the same input leads to the same run");
    return 0;
}

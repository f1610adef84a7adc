// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Exit codes, verdicts and error codes.
#include "companion/explain/Codes.h"

#include "DriverException.h"
#include "companion/explain/Answers.h"

namespace explain {

namespace {

constexpr Answers allPrinted = {
    {Word::Yes, "Yes: all of the file was printed, once."},
    {Word::No,
     "No: it would be printed a second time. With `voltisctl run` the same --job ID is "
     "answered and prints nothing."}};

constexpr Answers nothingDone = {
    {Word::No, "No: the register has acted on nothing of the file."},
    {Word::Yes,
     "Yes, the same file under the same --job ID. It fails again until the cause is "
     "gone. A corrected file is another job and needs a new ID."}};

constexpr Answers exitTwo = {
    {Word::No,
     "No (unless three faults of the line came together). Status reads and the change "
     "into fiscal mode print nothing."},
    {Word::Yes, "Yes, the same file, after the cause is gone."}};

constexpr Answers exitUncertain = {
    {Word::Perhaps,
     "Perhaps: a beginning of the file is printed. That may be nothing, and it may be all."},
    {Word::No,
     "Not before somebody has looked at the paper. With `voltisctl run` the same --job "
     "ID is always safe: it is answered and prints nothing twice."}};

constexpr Answers partPrinted = {
    {Word::Yes, "Yes: a beginning of the file, exactly as many commands as are told."},
    {Word::No,
     "No. The same --job ID is answered and prints nothing; a new ID, or a file with the "
     "rest, prints again what it contains."}};

constexpr Answers nobodyKnows = {
    {Word::Perhaps,
     "Perhaps: at least and at most so many commands as are told; when no number is "
     "told, anything from nothing to all."},
    {Word::No,
     "No. The same --job ID is answered and prints nothing; a new ID may print the "
     "receipt a second time."}};

constexpr Answers tryStopped = {{Word::No, "No. `voltisctl try` has no paper."},
                                {Word::Yes, "Yes."}};

constexpr char finishReceipt[] =
    "Finish or cancel the open receipt on the register's keyboard; a file cannot cancel it.";

constexpr Entry exitCodeRows[] = {
    {Kind::ExitCode, 0, "everything was executed", exit0,
     "All commands of the file were carried out, and the receipt number in the result file is the "
     "register's. When faults of the line come together, the driver alone can miss a command; "
     "`voltisctl run` notices (docs/reliability.md).",
     &allPrinted, "Book the receipt."},
    {Kind::ExitCode, 1, "the command file has a mistake or could not be read", exit1,
     "The driver, or `voltisctl run`, refuses the file. A file of the single command EXIT ends "
     "with 1, too. Other sub-commands of voltisctl end with 1 when they have found something "
     "wrong.",
     &fileRefused,
     "Correct the line that the message names; it is a fault of the program that "
     "writes the file."},
    {Kind::ExitCode, 2,
     "wrong arguments or configuration, no connection, or the register was not "
     "ready",
     exit2,
     "The run ended before it sent a command of the file; of `voltisctl run` also: the register "
     "has acted on none. It is the answer to a wrong command line, too, and of every sub-command "
     "of voltisctl that lacks something: the driver, the register, a file, a right.",
     &exitTwo,
     "Do what the message asks for, then run the same file again. Without a result file, "
     "look at the logs; when there are none, at their folder."},
    {Kind::ExitCode, 101, "a failure after the driver had begun to send commands", exit101,
     "From the first command of the file on every failure ends with 101. `voltisctl run` has it "
     "for the verdicts part and unknown, and for printed when the register is not as a file leaves "
     "it. It has nothing to do with the error code 101.",
     &exitUncertain,
     "Look at the paper and the register. The tape, or a file with GET_STATUS, "
     "tells whether a receipt is open and which number it has. `voltisctl run` "
     "tells what is certain, and `voltisctl resolve` records what the paper says."},
    {Kind::ExitCode, 124, "voltisctl try: the run took too long", 0,
     "The driver had not ended after the time of --timeout and was stopped.", &tryStopped,
     "Give more time with --timeout, or look at the conversation with --log.", noCode},
    {Kind::ExitCode, 129, "ended by a signal", 0,
     "The driver was killed: in a shell its exit code is 128 and the number of the signal, 137 for "
     "SIGKILL. Out of memory, a shutdown and a time limit are usual reasons.",
     &exitUncertain,
     "As after 101. Do not kill the driver: every run ends by itself. `voltisctl "
     "run` with the same --job ID finds out what became of it.",
     192},
};

constexpr Entry verdictRows[] = {
    {Kind::Verdict, noCode, "printed", exit0 | exit101,
     "The register has acted on every command of the file, once. The exit code is 101 instead of 0 "
     "when the register is not as a file leaves it: the receipt is still open (error 106), or "
     "fiscal mode was not left.",
     &allPrinted, "Book the receipt. With 101 finish the receipt on the register first."},
    {Kind::Verdict, noCode, "not-printed", exit1 | exit2,
     "The register has acted on no command of the file. Exit code 1: the file has a mistake; 2: "
     "any other reason.",
     &nothingDone,
     "1: correct the file and give it a new --job ID. 2: remedy what the message names and run the "
     "same file under the same ID."},
    {Kind::Verdict, noCode, "part", exit101,
     "The register has acted on a beginning of the file: `at_least` commands, and the next one is "
     "in `next_line`.",
     &partPrinted,
     "Look at the paper, and finish or cancel an open receipt on the register. Do "
     "not run the file again, and do not cut it without looking: a line may be two "
     "commands."},
    {Kind::Verdict, noCode, "unknown", exit101,
     "Neither the line nor the register can tell what was done: frames were lost, the register was "
     "off, or a run was cut off.",
     &nobodyKnows,
     "Look at the paper. Then record what it says: `voltisctl resolve ID --as "
     "printed` or `--as not-printed`."},
};

constexpr Entry errorCodeRows[] = {
    {Kind::ErrorCode, ERR_COMMAND_FILE, "a mistake in the command file", exit1,
     "A line is not written as the command language asks for, or a value cannot be printed. The "
     "message says what is wrong, and in which line.",
     &fileRefused, "Correct the line. docs/command-language.md has every command and its limits."},
    {Kind::ErrorCode, ERR_COMMAND_LINE, "wrong arguments of the driver", exit2,
     "The driver was called in a way that it does not know. Told in the logs only.", &nothingSent,
     "Call it with exactly one command file: `voltis FILE`."},
    {Kind::ErrorCode, ERR_CONFIGURATION, "the configuration is wrong or missing", exit2,
     "/etc/voltis/voltis.ini is missing, cannot be read, or a value in it makes no sense.",
     &nothingSent, "Correct the file: docs/reference.md has all keys."},
    {Kind::ErrorCode, ERR_SYSTEM, "the operating system refused something", exit1 | exit2 | exit101,
     "A file or the serial port failed, or memory ran out; the message ends with the system's "
     "reason. Of `voltisctl run` it is any reason for which nothing was sent.",
     &byAnyExitCode, "Remedy what the message names."},
    {Kind::ErrorCode, ERR_INTERNAL, "Internal error (file: '{X}' line: {N})",
     exit1 | exit2 | exit101, "A fault in the driver, not in the file or the register.",
     &byAnyExitCode, "Report it, with the debug log and the command file."},
    {Kind::ErrorCode, ERR_ECR_MISSING, "ECR is missing or in OFF state", exit2,
     "The register did not answer: it is switched off, the key is at OFF, the cable is loose, or "
     "ComNumber or Device names another port.",
     &notBegun,
     "Switch the register on and look at its cable; then at the port and at "
     "ProtocolFormatting in the configuration."},
    {Kind::ErrorCode, ERR_ECR_BUSY, "ECR is busy or has incorrect network ID", exit2 | exit101,
     "The register answered that it cannot take a command now, or it has another NetworkID than "
     "the configuration.",
     &byExitCode,
     "Wait until the register has finished what it is doing. When it is always so, "
     "compare NetworkID with the register's setting."},
    {Kind::ErrorCode, ERR_REQUEST_REFUSED, "ECR refused the request", exit2 | exit101,
     "The register understood the request for a command and answered NAK.", &byExitCode,
     "Look at the register's display. When it happens again, call the technician with the debug "
     "log."},
    {Kind::ErrorCode, ERR_UNSUPPORTED_ECR, "Unsupported ECR type", exit2,
     "The register answers, but is of a model that the driver does not know, or "
     "ProtocolFormatting is that of another model.",
     &notBegun, "Compare ProtocolFormatting with the model: 0 Ocelot, 1 Margay."},
    {Kind::ErrorCode, ERR_KEYLOCK, "Incorrect keylock position. Please set keylock in REG position",
     exit2, "The register's key is not at REG, so it takes no commands.", &notBegun,
     "Turn the key to REG and run the same file again."},
    {Kind::ErrorCode, ERR_PREVIOUS_RECEIPT_NOT_FINISHED, "Previous receipt not finished", exit2,
     "A receipt was open on the register before this file.", &notBegun, finishReceipt},
    {Kind::ErrorCode, ERR_RECEIPT_NOT_FINISHED, "Current receipt not finished", exit2 | exit101,
     "The file has ended and its receipt is still open: its tenders did not pay all of it.",
     &atTheEnd, finishReceipt},
    {Kind::ErrorCode, ERR_RECEIPT_NOT_STARTED, "Receipt not started", exit2,
     "The file begins with CONTINUE, and no receipt is open on the register.", &notBegun,
     "Run the file that begins the receipt first, or remove CONTINUE from the top of this one."},
    {Kind::ErrorCode, ERR_RECEIPT_ALREADY_FINISHED, "Receipt already finished", exit2 | exit101,
     "The file ends with CONTINUE or CONTINUE_MANUALLY, and no receipt is open after its commands: "
     "the tenders have paid it, or nothing opened one.",
     &atTheEnd, "Leave CONTINUE out at the end of the file that pays the receipt."},
    {Kind::ErrorCode, ERR_RESPONSE_LOST, "ECR response lost", exit2 | exit101,
     "The register stopped answering, also after all retries: it was switched off, the cable came "
     "loose, or it takes longer than the time-out. In a log it is also the note of each answer "
     "that was waited for in vain.",
     &byExitCode,
     "Switch the register on and look at its cable. When it happens at reports or "
     "tenders, raise CmdTimeout_Report or CmdTimeout_Tender (docs/reference.md)."},
    {Kind::ErrorCode, ERR_SEND, "Send error", exit2 | exit101,
     "Every attempt to send a command failed: each was answered with NAK or garbage, or not at "
     "all.",
     &byExitCode, "Look at the cable and at the parity and data bits (ComSettings)."},
    {Kind::ErrorCode, ERR_GARBAGE, "ECR is sending garbage all the time", exit2 | exit101,
     "Every attempt to read the register's status brought an unreadable answer.", &byExitCode,
     "Look at the cable, at ComSettings and at ProtocolFormatting: with the frames of another "
     "model every answer is unreadable."},
    {Kind::ErrorCode, 160, "Outcome unknown: {...}", exit101,
     "`voltisctl run` cannot tell what was printed, or not all that was sent is certain. The "
     "message says what is certain, or why nothing is.",
     &nobodyKnows,
     "Look at the paper. Then record what it says: `voltisctl resolve ID --as "
     "printed` or `--as not-printed`."},
    {Kind::ErrorCode, ERR_ECR_RESULT + CRC_NO_ERROR, "No error", 0,
     "The text of the register's result 0. It cannot occur as an error.", &asTheRunSays,
     "Nothing."},
    {Kind::ErrorCode, ERR_ECR_RESULT + CRC_RECIEPT_PAPER_END_ERROR, "Receipt paper end",
     exit2 | exit101,
     "The register's own result: the receipt paper has run out. With exit code 2 it still shows "
     "the result of an earlier command.",
     &byExitCode,
     "Put in paper. Then look at what is printed, and finish the receipt on the "
     "register."},
    {Kind::ErrorCode, ERR_ECR_RESULT + CRC_JOURNAL_PAPER_END_ERROR, "Journal paper end",
     exit2 | exit101,
     "The register's own result: the journal paper has run out. With exit code 2 it still shows "
     "the result of an earlier command.",
     &byExitCode,
     "Put in journal paper. Then look at what is printed, and finish the receipt on "
     "the register."},
    {Kind::ErrorCode, ERR_ECR_RESULT + CRC_PRINTER_ERROR, "Printer error", exit2 | exit101,
     "The register's own result: its printer does not work.", &byExitCode,
     "Look for jammed paper and an open cover; then call the technician."},
    {Kind::ErrorCode, ERR_ECR_RESULT + CRC_LAST_FISCAL_CMD_ERROR, "Fiscal command execution error",
     exit2 | exit101,
     "The register refused a command; the message names its line. Often an article or department "
     "that is not programmed, a sum that is too large, or a command that it does not allow now. "
     "Also a report or a copy that was requested while a receipt is open, which is not sent.",
     &byExitCode,
     "Compare the line with what is programmed in the register. Then finish or cancel "
     "an open receipt on the register."},
    {Kind::ErrorCode, ERR_ECR_RESULT + CRC_PRINTER_ERROR + 1, "Other error", exit2 | exit101,
     "A result of the register's own: its number is the error code less 200. The register's "
     "documentation has it.",
     &byExitCode, "Look at the register's display; call the technician with the number.",
     ERR_ECR_RESULT + CRC_OTHER_ERROR},
};

}  // namespace

std::span<const Entry> ExitCodes() {
    return exitCodeRows;
}

std::span<const Entry> Verdicts() {
    return verdictRows;
}

std::span<const Entry> ErrorCodes() {
    return errorCodeRows;
}

}  // namespace explain

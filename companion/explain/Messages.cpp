// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Messages of the driver whose error code has several, and the notes in its logs.
#include "DriverException.h"
#include "companion/explain/Answers.h"
#include "companion/explain/Codes.h"

namespace explain {

namespace {

constexpr Answers cannotOccur = {{Word::No, "No: it cannot occur."}, {Word::Yes, "Yes."}};

// A mistake in the command file.
constexpr Entry Mistake(std::string_view text, std::string_view happened, std::string_view remedy) {
    return {Kind::Message, ERR_COMMAND_FILE, text, exit1, happened, &fileRefused, remedy};
}

// Wrong arguments or configuration, or no connection.
constexpr Entry AtTheStart(int code, std::string_view text, std::string_view happened,
                           std::string_view remedy) {
    return {Kind::Message, code, text, exit2, happened, &nothingSent, remedy};
}

// The port fails at any time.
constexpr Entry OfThePort(std::string_view text, std::string_view happened,
                          std::string_view remedy) {
    return {Kind::Message, ERR_SYSTEM, text, exit2 | exit101, happened, &byExitCode, remedy};
}

constexpr Entry Impossible(int code, std::string_view text, std::string_view happened) {
    return {Kind::Message,
            code,
            text,
            0,
            happened,
            &cannotOccur,
            "Report it, with the debug log, when you see it."};
}

constexpr Entry InTheLog(std::string_view text, std::string_view happened,
                         std::string_view remedy) {
    return {Kind::Note, noCode, text, 0, happened, &asTheRunSays, remedy};
}

constexpr char nothing[] = "Nothing.";
constexpr char lookAtTheLine[] = "Look at the cable, the plugs and what runs beside them.";
constexpr char shorterText[] =
    "Shorten it: docs/command-language.md has the length for each model.";
constexpr char connected[] =
    "See that ComNumber or Device names the port, and that this account may use it: the group is "
    "dialout on Debian.";

constexpr char lookAtThePort[] = "Look at the adapter, its plug and the system's log (`dmesg`).";

constexpr Entry messageRows[] = {
    // How a line is written.
    Impossible(ERR_COMMAND_FILE, "Command name is missing",
               "A line without a command. Blank lines are ignored, so no file has one."),
    Mistake("Missing ':' after fiscal command", "Something else than a colon follows the command.",
            "Write NAME: PARAMETER=VALUE; PARAMETER=VALUE."),
    Mistake("Parameters are missing", "Nothing follows the colon.",
            "Add the parameters, or remove the colon from a command that has none."),
    Impossible(ERR_COMMAND_FILE, "Parameter name is missing",
               "Whatever is in that place is taken for a name."),
    Mistake("Missing '=' after parameter {NAME}", "A parameter has no equals sign.",
            "Write PARAMETER=VALUE, with semicolons between the parameters."),
    Mistake("Parameter value is missing", "Nothing follows the equals sign.",
            "Add the value; an empty text is \"\"."),
    Mistake("Missing ';' after '{NAME = VALUE}'",
            "Something follows a value without a semicolon: often the rest of a text with a blank "
            "in it.",
            "Put a text with blanks, or with one of : ; =, in double quotes."),
    Mistake("Terminating quote is missing", "A text in double quotes does not end on its line.",
            "Add the quote. A quote inside a text is written \\\"."),
    // Any command.
    Mistake("Unknown command : {X}", "The driver has no command of this name.",
            "Correct its spelling."),
    Mistake("{NAME} is missing", "The command needs this parameter.", "Add the parameter."),
    Mistake("Too many parameters",
            "A parameter that the command does not use: misspelt, or one of two alternatives that "
            "were both given.",
            "Remove or correct it."),
    Mistake("Wrong number format",
            "A number is digits with an optional decimal point: no blank, comma, sign or letter.",
            "Write 1234.50, not 1 234,50."),
    Mistake("Incorrect {NAME} value",
            "The value of this parameter is out of its range, or has too many decimals.",
            "Keep to the range of the command in docs/command-language.md."),
    // Items.
    Mistake("NAME is too long", "The name is longer than a line of the receipt.", shorterText),
    Mistake("PRICE is missing", "QNTY is given without PRICE.",
            "Add PRICE, or give AMOUNT instead of both."),
    Mistake("QNTY is missing", "PRICE is given without QNTY.",
            "Add QNTY, or give AMOUNT instead of both."),
    Mistake("AMOUNT or PRICE must be specified", "The item has no price.",
            "Add AMOUNT, or PRICE and QNTY."),
    Mistake("Incorrect AMOUNT value (too many decimals)", "An amount has two decimals at most.",
            "Round the amount."),
    Mistake("PRICE * QNTY <> AMOUNT",
            "AMOUNT is not the product, rounded half up or cut off to two decimals. Digits are "
            "compared, so an amount that ends with a zero can fail although it is equal.",
            "Leave AMOUNT out when PRICE and QNTY are given."),
    Mistake("Incorrect AMOUNT value", "The amount has too many digits, or is out of its range.",
            "Keep amounts up to 999999.99."),
    Mistake("Incorrect QNTY and PRICE values", "The product of the two does not fit an amount.",
            "Sell it in several lines."),
    Mistake("PLUNR or DEPTNR is missing", "The item names neither an article nor a department.",
            "Add one of them."),
    Mistake("PERCENTS or AMOUNT is missing", "A discount or markup without a value.",
            "Add one of them."),
    Mistake("Unsupported tender media", "MEDIA names no means of payment.",
            "Use CASH, CARD or TENDER1 to TENDER8."),
    // Texts, reports and barcodes.
    Mistake("TEXT is too long", "A comment is longer than a line of the receipt.", shorterText),
    Mistake("Unsupported TYPE value - {X}", "The command knows no such TYPE.",
            "Use a TYPE of the command: ITEM or SALE of an adjustment; Z, X or X_CASHINDRAWER of a "
            "report."),
    Mistake("Unsupported MODE value - {X}", "A report has the MODE Z or X.", "Use Z or X."),
    Mistake("TYPE or MODE missing", "A report without its kind.", "Add TYPE, or MODE and NUMBER."),
    Mistake("DATA is too long", "The data of a barcode are longer than the paper allows.",
            shorterText),
    Mistake("Unsupported barcode type: {X}", "There is no such symbology.",
            "Leave TYPE out, or use one that docs/command-language.md lists."),
    Mistake("Bad barcode format: {X}",
            "This symbology cannot hold these data: letters where it has digits only, a wrong "
            "number of digits, or a wrong check digit.",
            "Correct DATA, or choose another TYPE."),
    Mistake("Barcode bitmap does not fit in specified width",
            "The barcode has more bars than fit on the paper.",
            "Shorten DATA, or choose a denser TYPE such as CODE128."),
    Mistake("Barcode data string does not fit in specified width",
            "The text below the bars is too long for the paper.", "Shorten DATA."),
    // Receipts over several files.
    Mistake("CONTINUE is allowed only as first or last fiscal file command",
            "CONTINUE is in the middle of the file.", "Divide the file there."),
    Mistake("CONTINUE_MANUALLY is allowed only as last fiscal file command",
            "CONTINUE_MANUALLY is not at the end of the file.", "Move it to the end."),
    Impossible(ERR_COMMAND_FILE, "CONTINUE is not allowed in server mode",
               "This version has no server mode."),
    Impossible(ERR_COMMAND_FILE, "CONTINUE_MANUALLY is not allowed in server mode",
               "This version has no server mode."),
    // Arguments and configuration.
    AtTheStart(ERR_COMMAND_LINE, "Wrong command line format (use /? for help)",
               "An option that the driver does not know, a second file, or an option without a "
               "file. A file such as /sale.txt counts as an option. In the logs only.",
               "Call it with exactly one command file, in a folder: `voltis /pos/sale.txt`."),
    AtTheStart(ERR_COMMAND_LINE, "Unable to start server mode. Result file not specified",
               "/S or /S2 without ResultFileName in the configuration. In the logs only.",
               "Leave the option out: this version has no server mode."),
    AtTheStart(ERR_CONFIGURATION, "Serial port number is missing",
               "The configuration has no ComNumber, or there is no configuration that can be read.",
               "Write ComNumber= into the section [VOLTIS] of /etc/voltis/voltis.ini, and see that "
               "this account may read the file."),
    AtTheStart(ERR_CONFIGURATION, "INI-file contains unknown codepage : '{X}'",
               "CodePage names none of the code pages. In the logs only.",
               "Use RIM, DOS or TILDE."),
    AtTheStart(ERR_CONFIGURATION, "INI-file contains unknown protocol formatting : '{N}'",
               "ProtocolFormatting is neither 0 nor 1.", "Use 0 for Ocelot, 1 for Margay frames."),
    Impossible(ERR_CONFIGURATION, "INI-file '{X}' not found",
               "A missing configuration counts as empty: see \"Serial port number is missing\"."),
    Impossible(ERR_CONFIGURATION, "INI-file section [{X}] not found",
               "A missing section counts as empty: see \"Serial port number is missing\"."),
    // The system.
    {Kind::Message, ERR_SYSTEM, "Can't open file '{X}' - {...}", exit1 | exit2,
     "The command file cannot be opened (exit code 1). When it is a log, the run ends with 2 "
     "before it has read anything, and tells it nowhere.",
     &nothingSent, "Do what the reason after the dash asks for: a right path, the right to read."},
    {Kind::Message, ERR_SYSTEM, "Can't read file '{X}' - {...}", exit1,
     "The command file was opened, and reading it failed: it is a folder, or its disk has failed.",
     &fileRefused, "Name a file; look at the disk."},
    AtTheStart(ERR_SYSTEM, "Unable to open serial port - {...}",
               "There is no such port, or this account may not use it.", connected),
    AtTheStart(ERR_SYSTEM, "Bad serial port setup parameters - {...}",
               "ComSettings has a value that is none.",
               "Use data=7 or 8, stop=1 or 2, parity=o, e or n."),
    AtTheStart(ERR_SYSTEM, "Cannot set new serial port settings - {...}",
               "The port does not take the settings: it may be no serial port.", connected),
    OfThePort("Serial port read error - {...}", "The port failed: often an adapter was pulled out.",
              lookAtThePort),
    OfThePort("Serial port write error - {...}",
              "The port failed: often an adapter was pulled out.", lookAtThePort),
    OfThePort("Cannot read serial port timeouts - {...}", "The port failed.", lookAtThePort),
    OfThePort("Cannot write serial port timeouts - {...}", "The port failed.", lookAtThePort),
    OfThePort("Failed to close serial port - {...}",
              "The port failed at the end. A complete sale ends with 101 then.", lookAtThePort),
    {Kind::Message, ERR_SYSTEM, "Memory allocation error - {...}", exit1 | exit2 | exit101,
     "A barcode needed more memory than there is.", &byAnyExitCode,
     "Free some memory, or give the machine more."},
    AtTheStart(ERR_SYSTEM, "Ethernet support not implemented",
               "IpAddress and UdpPort are both configured; this version has no Ethernet.",
               "Remove them, and connect the register to a serial port."),
    Impossible(ERR_SYSTEM, "readlink() failed - {...}",
               "No part of the driver asks for its own folder."),
    // Without an error code: there is no result file.
    {Kind::Message, noCode, "Unexpected error", exit1 | exit2 | exit101,
     "Something that has no message of its own, as a rule memory that ran out. In the logs only.",
     &byAnyExitCode, "Free some memory, or give the machine more."},
    {Kind::Message, noCode, "Another instance of driver is already running", exit2,
     "voltis.started.tmp is in the current folder and cannot be deleted: a run of another account "
     "has made it. On standard output only.",
     &nothingSent,
     "Wait for that run. When none is under way, delete the file; run the driver in "
     "a folder that it may write."},
};

constexpr Entry noteRows[] = {
    InTheLog("NAK received",
             "The register refused a frame. The driver repeats it, NakRetryCount times at most.",
             lookAtTheLine),
    InTheLog("Garbage received",
             "An answer could not be read. The driver repeats the frame, GarbageRetryCount times "
             "at most.",
             lookAtTheLine),
    InTheLog("Garbage recieved",
             "A frame of the register's status could not be read, and was asked for again. The "
             "spelling is the driver's.",
             lookAtTheLine),
    InTheLog("BSY received", "The register is busy; the run ends with error 101.",
             "See the error code 101."),
    InTheLog("Comunication error",
             "A command was carried out, but the end of its exchange was not acknowledged. The run "
             "goes on. When the next file begins with the same command while the register is in "
             "fiscal mode, that one may be missing. The spelling is the driver's.",
             "Use `voltisctl run`, which knows of it; or never begin two files alike "
             "(docs/reliability.md)."),
    InTheLog("Unable to create result file '{X}'",
             "The result file cannot be made: its folder is read-only or missing. The sale goes on "
             "as usual.",
             "Give the driver the right to write into the command file's folder. The exit code "
             "says what became of the run."),
    InTheLog("Unable to write result file '{X}' - {...}",
             "The result file is empty or cut short: often the disk is full.",
             "Free some space. The exit code says what became of the run."),
    InTheLog("Debug information saved in dbgerror.log", "The debug log keeps this run.", nothing),
    InTheLog("Input file ({X}):",
             "What follows is the command file, after an error that one of its lines caused.",
             nothing),
    InTheLog("{X} v{X} started. Command line : {X}", "The beginning of a run.", nothing),
    InTheLog("Opening serial port {X}", "The driver connects to the register.", nothing),
    InTheLog("Closing serial port", "The end of the connection.", nothing),
    InTheLog("Checking for ECR", "The first status read: is a register there?", nothing),
    InTheLog("------ Reading ECR fiscal status ------", "A status read begins.", nothing),
    InTheLog("---------------------------------------", "A status read has ended.", nothing),
    InTheLog("I/O statistics : OUT frames = {N}, IN frames = {N}{X}",
             "The end of a run: frames sent and received, and how many answers were BSY, NAK, lost "
             "or garbage, where there were any.",
             "Nothing; look at the line when LOST or GARB are there in most runs."),
    InTheLog("Server mode started", "/S was given. This version has no server mode.",
             "Leave the option out."),
    InTheLog("Server mode finished", "The run with /S has done nothing.", "Leave the option out."),
    InTheLog("Old server mode started", "/S2 was given. This version has no server mode.",
             "Leave the option out."),
    InTheLog("Old server mode finished", "The run with /S2 has done nothing.",
             "Leave the option out."),
};

}  // namespace

std::span<const Entry> Messages() {
    return messageRows;
}

std::span<const Entry> Notes() {
    return noteRows;
}

}  // namespace explain

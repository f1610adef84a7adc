// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "VOLTIS.h"

#include <fcntl.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "AppController.h"
#include "Common.h"
#include "DriverException.h"
#include "ECR.h"
#include "FiscalCommandFile.h"
#include "FiscalCommandProcessor.h"
#include "Globals.h"
#include "IniFile.h"
#include "Linux/ServerMode.h"

namespace {

FILE* markerFile = nullptr;  // open from the single-instance check to the end of the process

enum RunMode { singleRun = 0, serverModeRun = 1, compatibleServerModeRun = 2 };

struct CommandLine {
    std::string cmdFile;
    RunMode mode = singleRun;
};

[[noreturn]] void FailCommandLine(Where at = Here()) {
    Fail(ERR_COMMAND_LINE, "Wrong command line format (use /? for help)", at);
}

/// "/x" is an option, "/pos/x" a path: no option contains a second "/".
bool IsOption(const std::string& argument) {
    if (argument.empty()) return false;
    return argument[0] == '-' || (argument[0] == '/' && argument.find('/', 1) == std::string::npos);
}

void TakeOption(const std::string& option, CommandLine& line) {
    if (option == "?") {
        ShowUsage();
        ExitDriver();
    }
    if (option == "S2") {
        line.mode = compatibleServerModeRun;
    } else if (option == "S") {
        line.mode = serverModeRun;
    } else {
        FailCommandLine();
    }
}

void TakeArgument(const std::string& argument, CommandLine& line) {
    if (IsOption(argument)) return TakeOption(ToUpper(argument.substr(1)), line);
    if (!line.cmdFile.empty()) FailCommandLine();
    line.cmdFile = Path::Normalize(argument);
}

CommandLine ParseCommandLine(int argc, char* argv[]) {
    CommandLine line;
    if (argc <= 1) TakeArgument("/?", line);
    for (int i = 1; i < argc; ++i) TakeArgument(argv[i], line);
    if (line.cmdFile.empty()) FailCommandLine();
    return line;
}

/// A file that is opened in the place of a standard stream would receive what is written to
/// that stream.
void OpenMissingStreams() {
    for (int stream = 0; stream <= 2; ++stream) {
        // open takes the lowest free number: this one, as long as /dev/null can be opened.
        if (fcntl(stream, F_GETFD) == -1) open("/dev/null", O_RDWR);
    }
}

/// A marker that can still be deleted is taken to be stale.
void GuardSingleInstance() {
    if (FileExists(markerFileName) && !DeleteFile(markerFileName)) {
        AppController::ShowMessage("Another instance of driver is already running");
        exit(2);
    }
    markerFile = fopen(markerFileName, "w");
}

/// Only the name part of the configured value counts: the result is written beside the command
/// file.
std::string ResultFileBeside(const std::string& cmdFile, const std::string& configured) {
    if (configured.empty()) return configured;
    return Path::Combine(Path::GetDirectoryName(cmdFile), Path::GetFileName(configured));
}

void Dispatch(const CommandLine& line, const std::string& resultFile) {
    if (line.mode == singleRun) {
        Execute(line.cmdFile, resultFile);
    } else {
        ExecuteServerMode(line.cmdFile, resultFile, line.mode == compatibleServerModeRun);
    }
}

void Run(int argc, char* argv[]) {
    IniFile::SetFile(Path::Combine(linuxConfigDirPath, iniFileName), false);
    IniFile::SetSection(sectionName, false);
    AppController::Start(DriverName, std::string(DriverVersion) + DriverBuild, DriverDescription,
                         GetCommandLine(argc, argv));
    GuardSingleInstance();
    const CommandLine line = ParseCommandLine(argc, argv);
    const std::string resultFile = IniFile::GetString("ResultFileName", "");
    if (resultFile.empty() && line.mode != singleRun) {
        Fail(ERR_COMMAND_LINE, "Unable to start server mode. Result file not specified");
    }
    FiscalCommandProcessor_Initialize();
    Dispatch(line, ResultFileBeside(line.cmdFile, resultFile));
}

/// For what the process does on its way out: without memory, what cannot be logged is not, and the
/// process still ends in order.
template <typename Action>
void AsFarAsPossible(Action action) {
    try {
        action();
        // GCOVR_EXCL_START: nothing on the way out raises one; what might some day is freed.
    } catch (DriverException* failure) {
        delete failure;
        // GCOVR_EXCL_STOP
    } catch (...) {  // the exit code is what counts now
    }
}

/// An error never leaves exit code 0.
void EndFailedRun(const char* message) {
    AsFarAsPossible([&] { AppController::LogMessage(ALL_LOGS, message, true); });
    if (GetPRC() == 0) State = STATE_EXECUTE;
    noErrors = false;
}

bool IsSingleCommand(const FiscalCommandFile& file, const std::string& name) {
    return file.GetCommandCount() == 1 && file.GetCommand(0).GetCommand() == name;
}

void GetStatus() {
    FailOnKeylock();
    FailOnLastResult();
    receiptNotFinished = ECR_Status().receiptInProgress;
}

/// The last line has no line feed in any form.
std::string SuccessText(bool oldFormat) {
    const std::string receiptNumber = ECR_Status().receiptNumber;
    if (oldFormat) {
        return receiptNotFinished ? "OK\nReceipt not finished" : "OK\nReceiptNo: " + receiptNumber;
    }
    if (!receiptNotFinished) return "Message=OK\nLastReceiptNo=" + receiptNumber;
    const std::string subtotal = ECR_Status().subtotal;
    return "Message=Receipt not finished\nCurrentReceiptNo=" + receiptNumber +
           "\nSubtotal=" + subtotal;
}

std::string WithResultLine(bool oldFormat, int resultCode, const std::string& text) {
    return Format(oldFormat ? "%d\n" : "[VOLTIS]\nResultCode=%d\n", resultCode) + text;
}

/// False for an EXIT file, which ends the run without a result.
bool RunCommandFile(const std::string& cmdFile, bool oldFormat, std::string& text) {
    State = STATE_SYNCHECK;
    FiscalCommandFile file(cmdFile);
    if (IsSingleCommand(file, "EXIT")) {
        exitServerMode = true;
        // Deliberate: State stays, so a single run of an EXIT file ends with 1; see the suite
        // ExitFile.
        return false;
    }
    State = STATE_EXECUTE;
    ConnectToEcr();
    State = STATE_SYNCHECK;
    FiscalCommandProcessor_Execute(file);
    State = STATE_EXECUTE;
    if (IsSingleCommand(file, "GET_STATUS")) {
        GetStatus();
    } else {
        FiscalCommandProcessor_Execute(file);
    }
    // Whole before all is well: a run that is out of memory afterwards would end with 2, which says
    // that nothing was printed.
    text = WithResultLine(oldFormat, 0, SuccessText(oldFormat));
    DisconnectFromEcr();
    State = STATE_READY;
    return true;
}

/// A second failure on the way out must not cost the POS its result file: it is only logged.
template <typename Action>
void LogFailureOf(Action action) {
    try {
        action();
    } catch (DriverException* caught) {
        const std::unique_ptr<DriverException> failure(caught);
        AppController::LogMessage(DBG_LOG, failure->Message, true);
    }
}

std::string EndFailedCommandFile(const DriverException& failure, const std::string& cmdFile,
                                 bool oldFormat) {
    AppController::LogMessage(ALL_LOGS, failure.Message, true);
    if (cmdError) {
        AppController::LogMessage(DBG_LOG, "Input file (" + cmdFile + "):", true);
        LogFailureOf([&] { AppController::LogFileData(DBG_LOG, cmdFile); });
    }
    LogFailureOf(DisconnectFromEcr);
    noErrors = false;
    const std::string text = oldFormat ? failure.Message
                                       : "Message=" + failure.Message +
                                             "\nErrorCode=" + std::to_string(failure.ErrorCode);
    return WithResultLine(oldFormat, GetPRC(), text);
}

/// False when a byte did not reach the file; errno then tells why.
bool WriteAndClose(FILE* file, const std::string& text) {
    // Not as a C string: a message may quote a NUL byte of the command file.
    const bool written =
        fwrite(text.data(), 1, text.size(), file) == text.size() && fflush(file) == 0;
    const int failure = errno;
    const bool closed = fclose(file) == 0;
    if (!written) errno = failure;
    return written && closed;
}

}  // namespace

void Execute(const std::string& cmdFile, const std::string& resultFile) {
    const bool oldFormat =
        IniFile::GetNumber("OldResultFileFormat", defaultOldResultFileFormat) == 1;
    std::string text;
    try {
        if (!RunCommandFile(cmdFile, oldFormat, text)) return;
    } catch (DriverException* caught) {
        const std::unique_ptr<DriverException> failure(caught);
        text = EndFailedCommandFile(*failure, cmdFile, oldFormat);
    }
    CreateResultFile(resultFile, text);
}

void CreateResultFile(const std::string& fileName, const std::string& text) {
    if (fileName.empty()) return;
    FILE* file = fopen(fileName.c_str(), "wt");
    if (file == nullptr) {
        AsFarAsPossible([&] {
            AppController::LogMessage(DBG_LOG, "Unable to create result file '" + fileName + "'",
                                      true);
        });
        return;
    }
    if (WriteAndClose(file, text)) return;
    AsFarAsPossible([&, failure = errno] {
        errno = failure;
        AppController::LogMessage(
            DBG_LOG, GetSystemErrorMessage("Unable to write result file '" + fileName + "'"), true);
    });
}

std::string GetCommandLine(int argc, char* argv[]) {
    std::string line = std::string("\"") + (argc > 0 ? argv[0] : "") + "\"";
    for (int i = 1; i < argc; ++i) line += std::string(" ") + argv[i];
    return line;
}

void ShowUsage() {
    // Deliberate: the program's name and the spelling of the options' heading are what callers
    // know; see the suite Usage.
    AppController::ShowMessage(std::string(DriverName) + " version " + DriverVersion + DriverBuild +
                               " for " + DriverOS + "  (Compiled: " + __DATE__ + " " + __TIME__ +
                               ")\n" + "\n\nUsage:  " + DriverName +
                               ".EXE cmdfile [option]\n"
                               "\n"
                               "  cmdfile - file with fiscal commands\n"
                               "\n"
                               "Posible options:\n"
                               "  /S   - server mode\n"
                               "  /S2  - server mode compatible with ValkorCaracalS and Omron "
                               "RS2810\n");
}

int GetPRC() {
    switch (State) {
        case STATE_READY:
            return 0;
        case STATE_SYNCHECK:
            return 1;
        case STATE_EXECUTE:
            return 2;
        case STATE_CMDSENT:
            return 101;
        default:
            FailInternal();
    }
}

void ExitDriver() {
    AsFarAsPossible(AppController::Stop);
    if (markerFile != nullptr) {
        fclose(markerFile);
        AsFarAsPossible([] { DeleteFile(markerFileName); });
    }
    exit(GetPRC());
}

int main(int argc, char* argv[]) {
    OpenMissingStreams();
    signal(SIGXFSZ, SIG_IGN);  // a log that has reached its limit must not end a sale half-way
    // A caller that stops reading standard output must not end the run before its clean-up.
    signal(SIGPIPE, SIG_IGN);
    try {
        Run(argc, argv);
    } catch (DriverException* caught) {
        const std::unique_ptr<DriverException> failure(caught);
        EndFailedRun(failure->Message.c_str());
    } catch (...) {
        EndFailedRun("Unexpected error");
    }
    ExitDriver();
}

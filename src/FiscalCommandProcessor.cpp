// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "FiscalCommandProcessor.h"

#include <string>
#include <string_view>
#include <vector>

#include "Common.h"
#include "DriverException.h"
#include "ECR.h"
#include "Globals.h"
#include "IniFile.h"
#include "ProcessorInternal.h"

bool continueUnfinishedReceipt = false;
bool leaveReceiptUnfinished = false;
bool continueManually = false;
int commandNumber = 0;
int commandCount = 0;

namespace {

int cashierNumber = defaultCashierNumber;

/// The plain code, or the one for an amount in a foreign currency.
void TenderInEitherCurrency(FiscalCommand& cmd, BYTE plainCode, BYTE foreignCode) {
    Tender(cmd, cmd.ParameterExists("FOREIGNNR") ? foreignCode : plainCode);
}

void ShowTotal(FiscalCommand& cmd) {
    DisplayOn();
    Total();
    Pause(cmd);
    DisplayOff();
}

struct CommandRow {
    std::string_view name;
    void (*handler)(FiscalCommand& cmd);
};

// A new command is a row here, its handler, a line in docs/command-language.md and a test.
constexpr CommandRow commands[] = {
    {"SALE", [](FiscalCommand& cmd) { SaleReturn(cmd, true); }},
    {"RETURN", [](FiscalCommand& cmd) { SaleReturn(cmd, false); }},
    {"DISCOUNT", [](FiscalCommand& cmd) { DiscountMarkup(cmd, true); }},
    {"MARKUP", [](FiscalCommand& cmd) { DiscountMarkup(cmd, false); }},
    {"TICKET", TicketCoupon},
    {"COUPON", TicketCoupon},
    {"RCV_ON_ACC",
     [](FiscalCommand& cmd) {
         TenderInEitherCurrency(cmd, CMD_RECIEVED_ON_ACCOUNT, CMD_RECIEVED_FOREIGN);
     }},
    {"PAID_OUT",
     [](FiscalCommand& cmd) { TenderInEitherCurrency(cmd, CMD_PAID_OUT, CMD_PAID_OUT_FOREIGN); }},
    {"TENDER",
     [](FiscalCommand& cmd) { TenderInEitherCurrency(cmd, CMD_TENDER, CMD_TENDER_FOREIGN); }},
    {"PAYMENT",
     [](FiscalCommand& cmd) { TenderInEitherCurrency(cmd, CMD_TENDER, CMD_TENDER_FOREIGN); }},
    {"TOTAL", [](FiscalCommand&) { Total(); }},
    {"LAST_RECEIPT_COPY", [](FiscalCommand&) { LastReceiptCopy(); }},
    {"COMMENT", [](FiscalCommand& cmd) { PrintComment(cmd.ExtractParameter("TEXT")); }},
    {"DISPLAY_ON", [](FiscalCommand&) { DisplayOn(); }},
    {"DISPLAY_OFF", [](FiscalCommand&) { DisplayOff(); }},
    {"SHOW_TOTAL", ShowTotal},
    {"SHOW_SUBTOTAL", ShowTotal},
    {"PAUSE", Pause},
    {"CONTINUE", [](FiscalCommand&) { Continue(); }},
    {"CONTINUE_MANUALLY", [](FiscalCommand&) { ContinueManually(); }},
    {"OPEN_DRAWER", [](FiscalCommand&) { OpenCashDrawer(); }},
    {"REPORT", Report},
    {"BARCODE", Barcode},
    {"EXIT", [](FiscalCommand&) { exitServerMode = true; }},
    {"GET_STATUS", [](FiscalCommand&) {}},  // the caller reads the status
};

constexpr bool CommandNamesDiffer() {
    for (const CommandRow& one : commands) {
        for (const CommandRow& other : commands) {
            if (&one != &other && one.name == other.name) return false;
        }
    }
    return true;
}
static_assert(CommandNamesDiffer());

/// What a register must be like before the first command of a file.
void CheckStart() {
    FailOnLastResult();
    FailOnKeylock();
    const bool receiptInProgress = ECR_Status().receiptInProgress;
    if (continueUnfinishedReceipt) {
        if (!receiptInProgress) Fail(ERR_RECEIPT_NOT_STARTED, "Receipt not started");
        return;
    }
    if (receiptInProgress) {
        Fail(ERR_PREVIOUS_RECEIPT_NOT_FINISHED, "Previous receipt not finished");
    }
    if (!ECR_Status().inFiscalMode) EnterFiscalMode();
}

void LeaveReceiptOpen() {
    if (!ECR_Status().receiptInProgress) {
        Fail(ERR_RECEIPT_ALREADY_FINISHED, "Receipt already finished");
    }
    if (continueManually) ExitFiscalMode();
    receiptNotFinished = true;
}

/// What it must be like after the last one.
void CheckEnd() {
    if (leaveReceiptUnfinished) return LeaveReceiptOpen();
    if (ECR_Status().receiptInProgress) {
        Fail(ERR_RECEIPT_NOT_FINISHED, "Current receipt not finished");
    }
    if (IniFile::GetNumber("KeepEcrBlocked", defaultKeepEcrBlocked) == 0) ExitFiscalMode();
}

void LeaveFiscalModeAfterError() {
    try {
        if (!ECR_Status().inFiscalMode) return;
        const int keep =
            IniFile::GetNumber("KeepEcrBlockedAfterError", defaultKeepEcrBlockedAfterError);
        if (keep == 0) ExitFiscalMode();
    } catch (DriverException* failure) {
        delete failure;  // the first failure is the one to tell
    }
}

/// Nothing is added for a failure before the first or after the last command.
void AddLineNumber(const FiscalCommandFile& file, std::string& message) {
    if (commandNumber >= file.GetCommandCount()) return;
    message += Format(" (line: %d)", file.GetCommandLineNumber(commandNumber));
}

void ExecuteCommands(const FiscalCommandFile& file) {
    for (commandNumber = 0; commandNumber < commandCount; ++commandNumber) {
        FiscalCommand cmd = file.GetCommand(commandNumber);
        cmdError = false;
        Execute(cmd);
    }
}

}  // namespace

void FiscalCommandProcessor_Initialize() {
    cashierNumber = IniFile::GetNumber("CashierNumber", defaultCashierNumber);
    SelectCodePage(ToUpper(IniFile::GetString("CodePage", defaultCodePage)));
}

void FiscalCommandProcessor_Execute(FiscalCommandFile& file) {
    commandCount = file.GetCommandCount();
    try {
        if (!InCheckPass()) CheckStart();
        ExecuteCommands(file);
        if (!InCheckPass()) CheckEnd();
    } catch (DriverException* failure) {
        if (!InCheckPass()) LeaveFiscalModeAfterError();
        if (cmdError) AddLineNumber(file, failure->Message);
        throw;
    }
}

void Execute(FiscalCommand& cmd) {
    const std::string name = cmd.GetCommand();
    for (const CommandRow& row : commands) {
        if (row.name != name) continue;
        row.handler(cmd);
        if (cmd.GetParameterCount() != 0) FailCommand("Too many parameters");
        return;
    }
    FailCommand("Unknown command : " + name);
}

void EnterFiscalMode() {
    BUF payload;
    payload.AddBYTE(ECR_Settings().cashierSystemOn ? static_cast<BYTE>(cashierNumber) : BYTE{1}, 1);
    SendCommand(CMD_ENTER_FISCAL_MODE, payload, false);
}

void ExitFiscalMode() {
    SendCommand(CMD_EXIT_FISCAL_MODE, BUF(), false);
}

std::vector<std::string_view> KnownCommands() {
    std::vector<std::string_view> names;
    for (const CommandRow& row : commands) names.push_back(row.name);
    return names;
}

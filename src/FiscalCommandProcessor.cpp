#include "FiscalCommandProcessor.h"

#include <memory>
#include <string_view>

#include "DriverException.h"
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

struct CodePageRow {
    std::string_view name;
    const BYTE* letters;
};

constexpr CodePageRow codePages[] = {
    {"DOS", codePage_DOS}, {"RIM", codePage_BaltRim}, {"TILDE", codePage_BaltTilde}};

void SelectCodePage(const std::string& name) {
    for (const CodePageRow& row : codePages) {
        if (row.name == name)
            return InitTranslation(row.letters, codePage_ECR, codePageLetterCount);
    }
    Fail(CRC_PRINTER_ERROR, "INI-file contains unknown codepage : '" + name + "'");
}

/// What a register must be like before the first command of a file.
void CheckStart() {
    const int lastResult = ECR_Status().lastCommandResultCode;
    if (lastResult != CRC_NO_ERROR) Fail(200 + lastResult, GetEcrErrorMessage(lastResult));
    if (ECR_Status().keylockPosition != KEYLOCK_POSITION_REG) {
        Fail(104, "Incorrect keylock position. Please set keylock in REG position");
    }
    const bool receiptInProgress = ECR_Status().receiptInProgress;
    if (continueUnfinishedReceipt) {
        if (!receiptInProgress) Fail(107, "Receipt not started");
        return;
    }
    if (receiptInProgress) Fail(105, "Previous receipt not finished");
    if (!ECR_Status().inFiscalMode) EnterFiscalMode();
}

void LeaveReceiptOpen() {
    if (!ECR_Status().receiptInProgress) Fail(108, "Receipt already finished");
    if (continueManually) ExitFiscalMode();
    receiptNotFinished = true;
}

/// What it must be like after the last one.
void CheckEnd() {
    if (leaveReceiptUnfinished) return LeaveReceiptOpen();
    if (ECR_Status().receiptInProgress) Fail(106, "Current receipt not finished");
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

/// Nothing is added for a failure before the first or behind the last command.
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

Decimal ExtractDecimal(FiscalCommand& cmd, const std::string& name, std::uint64_t lBound,
                       std::uint64_t uBound, std::uint16_t decCount) {
    if (name.empty()) FailInternal();
    const Decimal value(cmd.ExtractParameter(name));
    if (!CheckDecimal(value, decCount, lBound, uBound)) FailCommand("Incorrect " + name + " value");
    return value;
}

bool CheckDecimal(const Decimal& d, std::uint16_t decCount, std::uint64_t lBound,
                  std::uint64_t uBound) {
    return d.GetDecCount() <= decCount &&
           d.CheckBounds(static_cast<long long>(lBound), static_cast<long long>(uBound));
}

int GetMaxDeptNameLength() {
    return ECR_Settings().ecrType == EcrType_ValkorMargayT ? 20 : 18;
}

int GetMaxCommentLength() {
    return ECR_Settings().printerLength - 1;
}

int GetMaxBarcodeLength() {
    return ECR_Settings().printerLength;
}

int GetEcrBarcodeBitmapWidth() {
    return ECR_Settings().printerLength * 12;
}

int GetEcrBarcodeBitmapHeight() {
    return 100;
}

int GetDailyReportNumber() {
    return 1;
}

int GetCashInDrawerReportNumber() {
    return ECR_Settings().ecrType == EcrType_ValkorMargayT ? 2 : 13;
}

void FailOnReceipInProgress() {
    if (!ECR_Status().receiptInProgress) return;
    cmdError = true;
    Fail(250, GetEcrErrorMessage(CRC_LAST_FISCAL_CMD_ERROR));
}

std::vector<std::string_view> KnownCommands() {
    std::vector<std::string_view> names;
    for (const CommandRow& row : commands) names.push_back(row.name);
    return names;
}

bool InCheckPass() {
    return State == STATE_SYNCHECK;
}

void SendUnlessChecking(BYTE cmd, const BUF& payload) {
    if (!InCheckPass()) SendCommand(cmd, payload, true);
}

void SendSlowUnlessChecking(CommandType type, BYTE cmd, const BUF& payload) {
    if (InCheckPass()) return;
    SetCmdTimeout(type);
    SendCommand(cmd, payload, true);
    SetCmdTimeout(CmdType_Default);  // Deliberate: not restored when the command failed
}

Decimal ExtractMoney(FiscalCommand& cmd, const std::string& name) {
    return ExtractDecimal(cmd, name, 0, maxMoneyDigits, 2);
}

void AddMoney(BUF& payload, Decimal amount) {
    amount.ShiftDecDotR(2);
    payload.AddBUF(Dec2BCD(amount, 4));
}

void AddQuantity(BUF& payload, Decimal quantity) {
    quantity.ShiftDecDotR(3);
    payload.AddBUF(Dec2BCD(quantity, 3));
}

void AddText(BUF& payload, std::string text, int length) {
    TranslateString(text);
    text.resize(static_cast<std::size_t>(length), ' ');
    payload.AddString(text);
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Reports, drawer, customer display, comments and the copy of the last receipt.

#include "DriverException.h"
#include "ProcessorInternal.h"

namespace {

constexpr BYTE reportModeZ = 0x00;  // closes the day
constexpr BYTE reportModeX = 0xCC;  // only reads

struct ReportChoice {
    Decimal number;
    BYTE mode;
};

ReportChoice ReportByType(const std::string& type) {
    if (type == "Z") return {GetDailyReportNumber(), reportModeZ};
    if (type == "X") return {GetDailyReportNumber(), reportModeX};
    if (type == "X_CASHINDRAWER") return {GetCashInDrawerReportNumber(), reportModeX};
    FailCommand("Unsupported TYPE value - " + type);
}

BYTE ReportMode(const std::string& mode) {
    if (mode == "Z") return reportModeZ;
    if (mode == "X") return reportModeX;
    FailCommand("Unsupported MODE value - " + mode);
}

ReportChoice ExtractReport(FiscalCommand& cmd) {
    if (cmd.ParameterExists("TYPE")) return ReportByType(ToUpper(cmd.ExtractParameter("TYPE")));
    if (!cmd.ParameterExists("MODE")) FailCommand("TYPE or MODE missing");
    const BYTE mode = ReportMode(ToUpper(cmd.ExtractParameter("MODE")));
    return {ExtractDecimal(cmd, "NUMBER", 1, 99, 0), mode};
}

constexpr WORD displayOn = 0xFFFF;
constexpr WORD displayOff = 0x0000;

void ShowInfo(WORD what) {
    BUF payload;
    payload.AddWORD(what);
    SendUnlessChecking(CMD_SHOW_INFO, payload);
}

}  // namespace

void Report(FiscalCommand& cmd) {
    const ReportChoice report = ExtractReport(cmd);
    BUF payload = Dec2BCD(report.number, 1);
    payload.AddBYTE(report.mode, 1);
    if (!InCheckPass()) FailOnReceipInProgress();
    SendSlowUnlessChecking(CmdType_Report, CMD_REPORT, payload);
}

void OpenCashDrawer() {
    SendSlowUnlessChecking(CmdType_Tender, CMD_OPEN_CASH_DRAWER, BUF());
}

void DisplayOn() {
    ShowInfo(displayOn);
}

void DisplayOff() {
    ShowInfo(displayOff);
}

void PrintComment(const std::string& text) {
    const int length = GetMaxCommentLength();
    if (static_cast<int>(text.length()) > length) FailCommand("TEXT is too long");
    BUF payload;
    AddText(payload, text, length);
    SendUnlessChecking(CMD_PRINT_COMMENT, payload);
}

void LastReceiptCopy() {
    if (!InCheckPass()) FailOnReceipInProgress();
    // A subtotal outside a receipt is how the register is asked for the copy.
    SendSlowUnlessChecking(CmdType_Tender, CMD_TOTAL, BUF());
}

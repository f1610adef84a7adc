// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Payments, cash movements and the subtotal.

#include <cstdlib>

#include "DriverException.h"
#include "ProcessorInternal.h"

namespace {

std::string ExtractMediaText(FiscalCommand& cmd) {
    if (cmd.ParameterExists("MEDIA")) return ToUpper(cmd.ExtractParameter("MEDIA"));
    if (cmd.ParameterExists("NAME")) return ToUpper(cmd.ExtractParameter("NAME"));
    return "CASH";
}

}  // namespace

void Tender(FiscalCommand& cmd, BYTE code) {
    BUF payload;
    if (cmd.ParameterExists("FOREIGNNR")) {
        const long long currency = ExtractDecimal(cmd, "FOREIGNNR", 1, 4, 0);
        payload.AddBYTE(static_cast<BYTE>(currency), 1);
    }
    payload.AddBYTE(GetTenderCode(cmd), 1);
    AddMoney(payload, cmd.ParameterExists("AMOUNT") ? ExtractMoney(cmd, "AMOUNT") : Decimal());
    SendSlowUnlessChecking(CmdType_Tender, code, payload);
}

BYTE GetTenderCode(FiscalCommand& cmd) {
    const std::string prefix = "TENDER";
    std::string media = ExtractMediaText(cmd);
    if (media == "CASH") media = "TENDER1";
    if (media == "CARD") media = "TENDER3";
    const bool wellFormed =
        media.compare(0, prefix.length(), prefix) == 0 && media.length() == prefix.length() + 1;
    const long number = wellFormed ? atol(media.c_str() + prefix.length()) : 0;
    if (number < 1 || number > 8) FailCommand("Unsupported tender media");
    return static_cast<BYTE>(number);
}

void Total() {
    SendUnlessChecking(CMD_TOTAL, BUF());
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// BARCODE.

#include "BarcodeBitmap.h"
#include "DriverException.h"
#include "ProcessorInternal.h"

void Barcode(FiscalCommand& cmd) {
    constexpr int minMarginInDots = 20;
    constexpr int minMarginInChars = 1;
    const std::string data = cmd.ExtractParameter("DATA");
    if (static_cast<int>(data.length()) > GetMaxBarcodeLength()) FailCommand("DATA is too long");
    const std::string type =
        cmd.ParameterExists("TYPE") ? cmd.ExtractParameter("TYPE") : std::string();
    BarcodeBitmap bitmap(data, type);
    BUF payload = bitmap.GetBitmapLine(GetEcrBarcodeBitmapWidth(), minMarginInDots);
    payload.AddWORD(static_cast<WORD>(GetEcrBarcodeBitmapHeight()));
    payload.AddString(bitmap.GetDataString(GetMaxBarcodeLength(), minMarginInChars));
    SendUnlessChecking(CMD_BARCODE, payload);
}

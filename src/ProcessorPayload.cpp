// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Payloads: numbers and texts of a command, checked and in the form that the register takes.

#include <cstddef>
#include <cstdint>
#include <string>

#include "Buf.h"
#include "Decimal.h"
#include "DriverException.h"
#include "FiscalCommand.h"
#include "ProcessorInternal.h"

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

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Inside the processor: the command handlers and the helpers that they share. For the processor's
// units, their tests, and the companion's checker of command files only.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Buf.h"
#include "Common.h"
#include "Decimal.h"
#include "ECR.h"
#include "FiscalCommand.h"
#include "FiscalCommandProcessor.h"

// Set by the check pass, tested by the executing pass; never cleared.
extern bool continueUnfinishedReceipt;
extern bool leaveReceiptUnfinished;
extern bool continueManually;

extern int commandNumber;  ///< index of the command being processed
extern int commandCount;

inline constexpr unsigned int codePageLetterCount = 22;
// The same letter has the same place in every table.
extern const BYTE codePage_DOS[codePageLetterCount];
extern const BYTE codePage_BaltRim[codePageLetterCount];
extern const BYTE codePage_BaltTilde[codePageLetterCount];
extern const BYTE codePage_ECR[codePageLetterCount];

/// From this code page to the register's. Raises 3 "INI-file contains unknown codepage : '<name>'".
void SelectCodePage(const std::string& name);

/// The largest money amount and quantity as digits: 999999.99 and 999.999.
inline constexpr std::uint64_t maxMoneyDigits = 99999999;
inline constexpr std::uint64_t maxQuantityDigits = 999999;

/// The names in the dispatcher's table, in its order.
std::vector<std::string_view> KnownCommands();

bool InCheckPass();
/// The one "unless in the check pass": sends a receipt command in the executing pass only.
void SendUnlessChecking(BYTE cmd, const BUF& payload);
/// The same under the time-out of a slow command; the default is back afterwards, unless it failed.
void SendSlowUnlessChecking(CommandType type, BYTE cmd, const BUF& payload);
/// A money amount with two decimals; in the payload, 4 bytes of hundredths.
Decimal ExtractMoney(FiscalCommand& cmd, const std::string& name);
void AddMoney(BUF& payload, Decimal amount);
/// 3 bytes of thousandths.
void AddQuantity(BUF& payload, Decimal quantity);
/// Translated, padded with blanks to length.
void AddText(BUF& payload, std::string text, int length);

// Sales.
void SaleReturn(FiscalCommand& cmd, bool sale);
void DepartmentSaleReturn(FiscalCommand& cmd, bool sale);
void PLUSaleReturn(FiscalCommand& cmd, bool sale);
void PrintPriceAndQntyAsComments(Decimal price, Decimal quantity);

// Tenders, totals and cash movements.
void Tender(FiscalCommand& cmd, BYTE code);
BYTE GetTenderCode(FiscalCommand& cmd);
void Total();

// Reports, drawer, display and comments.
void Report(FiscalCommand& cmd);
void OpenCashDrawer();
void DisplayOn();
void DisplayOff();
/// Raises 1 "TEXT is too long", in both passes. An empty text prints an empty line.
void PrintComment(const std::string& text);
void LastReceiptCopy();

void Pause(FiscalCommand& cmd);
/// What Pause gives to Sleep: SECONDS, which it takes out, or the default.
WORD ExtractPause(FiscalCommand& cmd);

// Receipts over several files. They set their flags whatever State is.
void Continue();
void ContinueManually();

// Discounts, markups, tickets and coupons.
void DiscountMarkup(FiscalCommand& cmd, bool discount);
/// 1 for an item, 2 for the whole sale.
BYTE GetDiscountMarkupType(FiscalCommand& cmd);
void TicketCoupon(FiscalCommand& cmd);

void Barcode(FiscalCommand& cmd);

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The processor: turns the commands of a file into register commands and keeps the rules of the
// receipt. Every file runs through it twice: while State is STATE_SYNCHECK everything is validated
// and built but nothing is sent, then everything is sent.
#pragma once

#include <cstdint>
#include <string>

#include "Common.h"
#include "Decimal.h"
#include "FiscalCommand.h"
#include "FiscalCommandFile.h"

/// Reads CashierNumber and CodePage. Raises 3 "INI-file contains unknown codepage : '<NAME>'".
void FiscalCommandProcessor_Initialize();

/// One pass over the file. Raises 1 for every fault of the file, with " (line: <n>)" after the
/// message; 104 "Incorrect keylock position. Please set keylock in REG position", 105 "Previous
/// receipt not finished", 106 "Current receipt not finished", 107 "Receipt not started", 108
/// "Receipt already finished", 200 + the register's result code, 250 for a report inside a receipt,
/// and what the link raises. After a failure of the sending pass fiscal mode is left, unless
/// KeepEcrBlockedAfterError.
void FiscalCommandProcessor_Execute(FiscalCommandFile& file);

/// One command. A parameter that its handler does not use raises 1 "Too many parameters".
void Execute(FiscalCommand& cmd);

void EnterFiscalMode();
void ExitFiscalMode();

/// Takes a numeric parameter out of the command. The bounds are on the digits as held, not on the
/// value: with two decimals, 999999.99 and 99999999 both pass an upper bound of 99999999. Raises 1
/// "<name> is missing", "Wrong number format", "Incorrect <name> value"; 99 for an empty name.
Decimal ExtractDecimal(FiscalCommand& cmd, const std::string& name, std::uint64_t lBound,
                       std::uint64_t uBound, std::uint16_t decCount);
bool CheckDecimal(const Decimal& d, std::uint16_t decCount, std::uint64_t lBound,
                  std::uint64_t uBound);

// Limits of the connected model: lengths in characters, the bitmap in dots.
int GetMaxDeptNameLength();
int GetMaxCommentLength();
int GetMaxBarcodeLength();
int GetEcrBarcodeBitmapWidth();
int GetEcrBarcodeBitmapHeight();
int GetDailyReportNumber();
int GetCashInDrawerReportNumber();

// What the register must be like. The first two are checked before a file and by GET_STATUS.
/// Raises 200 + the register's last result code with its text, unless that is 0.
void FailOnLastResult();
/// Raises 104 "Incorrect keylock position. Please set keylock in REG position".
void FailOnKeylock();
/// Raises 250 with the register's text of result 50, cmdError set, while a receipt is open.
void FailOnReceipInProgress();

/// Makes xlat the map from one code page to another: every byte maps to itself but the cbtable
/// bytes of from. A null table raises 99.
void InitTranslation(const BYTE* from, const BYTE* to, unsigned int cbtable);
/// Maps every byte in place; the length stays.
void TranslateString(std::string& text);

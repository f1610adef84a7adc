// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Receipts that span several command files, or that the operator finishes on the keyboard. The
// flags are set in the check pass already: the executing pass tests them before its first command.

#include "DriverException.h"
#include "Globals.h"
#include "ProcessorInternal.h"

namespace {

bool IsFirstCommand() {
    return commandNumber == 0;
}

bool IsLastCommand() {
    return commandNumber == commandCount - 1;
}

}  // namespace

void Continue() {
    if (serverMode) FailCommand("CONTINUE is not allowed in server mode");
    if (!IsFirstCommand() && !IsLastCommand()) {
        FailCommand("CONTINUE is allowed only as first or last fiscal file command");
    }
    if (IsFirstCommand()) continueUnfinishedReceipt = true;
    if (IsLastCommand()) leaveReceiptUnfinished = true;
}

void ContinueManually() {
    if (serverMode) FailCommand("CONTINUE_MANUALLY is not allowed in server mode");
    if (!IsLastCommand()) {
        FailCommand("CONTINUE_MANUALLY is allowed only as last fiscal file command");
    }
    leaveReceiptUnfinished = true;
    continueManually = true;
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What goes to the register in the executing pass only, and what the register must be like then.

#include "Buf.h"
#include "DriverException.h"
#include "ECR.h"
#include "Globals.h"
#include "ProcessorInternal.h"

void FailOnLastResult() {
    const int lastResult = ECR_Status().lastCommandResultCode;
    if (lastResult != CRC_NO_ERROR) FailEcrResult(lastResult);
}

void FailOnKeylock() {
    if (ECR_Status().keylockPosition == KEYLOCK_POSITION_REG) return;
    Fail(ERR_KEYLOCK, "Incorrect keylock position. Please set keylock in REG position");
}

void FailOnReceipInProgress() {
    if (!ECR_Status().receiptInProgress) return;
    cmdError = true;
    FailEcrResult(CRC_LAST_FISCAL_CMD_ERROR);
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
    // Deliberate: not restored when the command failed; see the suite TenderTimeout.
    SetCmdTimeout(CmdType_Default);
}

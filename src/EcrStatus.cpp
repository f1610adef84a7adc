// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The register's status block and the two records decoded from it.

#include "AppController.h"
#include "DriverException.h"
#include "EcrLink.h"
#include "EcrModel.h"

EcrSettings ecrSettings;
EcrStatus ecrStatus;
bool ecrSettingsValid = false;
bool ecrStatusValid = false;

namespace {

// The status block: single bytes at these offsets, then two numbers.
enum StatusByte : WORD { protocolCodeAt, languageAt, resultCodeAt, flagsAt };

struct StatusNumber {
    WORD at;
    WORD size;
};
constexpr StatusNumber receiptNumberField{4, 4};
constexpr StatusNumber subtotalField{8, 7};
static_assert(subtotalField.at + subtotalField.size == ecrFiscalStatusLength);

constexpr BYTE fiscalCommandFailed = 0xFF;  // in the place of a BCD result code

Decimal Number(const BUF& fiscalStatus, StatusNumber field, bool isSigned) {
    return BCD2Dec(fiscalStatus, field.at, field.size, isSigned);
}

BYTE ResultCode(const BUF& fiscalStatus) {
    if (fiscalStatus[resultCodeAt] == fiscalCommandFailed) return CRC_LAST_FISCAL_CMD_ERROR;
    const long long code = BCD2Dec(fiscalStatus, resultCodeAt, 1, false);
    return static_cast<BYTE>(code);
}

}  // namespace

void UpdateEcrStatus(const BUF& fiscalStatus) {
    if (ecrStatusValid) return;
    const BYTE flags = fiscalStatus[flagsAt];
    ecrStatus.keylockPosition = (flags >> 3) & 3;
    ecrStatus.inFiscalMode = ((flags >> 5) & 1) == FISCAL_MODE_ACTIVE;
    ecrStatus.receiptInProgress = ((flags >> 6) & 1) == RECEIPT_IN_PROGRESS;
    ecrStatus.lastCommandResultCode = ResultCode(fiscalStatus);
    ecrStatus.receiptNumber = Number(fiscalStatus, receiptNumberField, false);
    ecrStatus.subtotal = Number(fiscalStatus, subtotalField, true);
    ecrStatus.subtotal.ShiftDecDotL(2);
    ecrStatusValid = true;
}

void UpdateEcrSettings(const BUF& fiscalStatus) {
    if (ecrSettingsValid) return;
    ecrSettings.cashierSystemOn = (fiscalStatus[flagsAt] & 1) == CASHIER_SYSTEM_ACTIVE;
    ecrSettings.language = fiscalStatus[languageAt];
    ecrSettings.roundingType = ROUNDING_HALF_UP;
    const FiscalProtocol protocol = GetFiscalProtocol(fiscalStatus[protocolCodeAt]);
    ecrSettings.ecrType = protocol.ecrType;
    ecrSettings.fiscalProtocolVersion = protocol.protocolVersion;
    const EcrModel& model = ModelOf(protocol.ecrType);
    ecrSettings.printerLength = model.printerLength;
    ecrSettings.journalFlushTimeInMs = model.journalFlushTimeInMs;
    ecrSettingsValid = true;
}

void UpdateEcrFiscalStatus() {
    AppController::LogMessage(DBG_LOG, "------ Reading ECR fiscal status ------", true);
    BUF fiscalStatus;
    SendDataReadRequest(CMD_READ_FISCAL_STATUS);
    inFrameSeqNumber = ReadData(fiscalStatus, ecrFiscalStatusLength);
    ReadEof();
    AppController::LogMessage(DBG_LOG, "---------------------------------------", true);
    UpdateEcrStatus(fiscalStatus);
    UpdateEcrSettings(fiscalStatus);
}

const EcrSettings& ECR_Settings() {
    if (!ecrSettingsValid) UpdateEcrFiscalStatus();
    return ecrSettings;
}

const EcrStatus& ECR_Status() {
    if (!ecrStatusValid) UpdateEcrFiscalStatus();
    return ecrStatus;
}

// The register's status block and the two records decoded from it.

#include "AppController.h"
#include "DriverException.h"
#include "EcrLink.h"

EcrSettings ecrSettings;
EcrStatus ecrStatus;
bool ecrSettingsValid = false;
bool ecrStatusValid = false;

namespace {

// Offsets in the status block.
constexpr WORD protocolCodeAt = 0;
constexpr WORD languageAt = 1;
constexpr WORD resultCodeAt = 2;
constexpr WORD flagsAt = 3;
constexpr WORD receiptNumberAt = 4;
constexpr WORD receiptNumberSize = 4;
constexpr WORD subtotalAt = 8;
constexpr WORD subtotalSize = 7;
static_assert(subtotalAt + subtotalSize == ecrFiscalStatusLength);

constexpr BYTE fiscalCommandFailed = 0xFF;  // in the place of a BCD result code

struct ProtocolRow {
    BYTE code;
    EcrType ecrType;
    BYTE version;
};

constexpr ProtocolRow protocols[] = {
    {0, EcrType_ValkorOcelotT, 1}, {1, EcrType_ValkorLynxT, 1},   {2, EcrType_ValkorPumaT, 1},
    {3, EcrType_ValkorServalT, 1}, {4, EcrType_ValkorOcelotT, 2}, {5, EcrType_ValkorLynxT, 2},
    {6, EcrType_ValkorPumaT, 2},   {7, EcrType_ValkorServalT, 2}, {8, EcrType_ValkorMargayT, 2},
};

struct ModelRow {
    EcrType ecrType;
    BYTE printerLength;
    int journalFlushTimeInMs;
};

// A new model is a row here, one in protocols, and one in the emulated register's model table.
constexpr ModelRow models[] = {
    {EcrType_ValkorOcelotT, ecrOcelot_PRLN, ecrOcelot_JournalFlushTimeInMs},
    {EcrType_ValkorServalT, ecrServal_PRLN, ecrServal_JournalFlushTimeInMs},
    {EcrType_ValkorLynxT, ecrLynx_PRLN, ecrLynx_JournalFlushTimeInMs},
    {EcrType_ValkorPumaT, ecrPuma_PRLN, ecrPuma_JournalFlushTimeInMs},
    {EcrType_ValkorMargayT, ecrMargay_PRLN, ecrMargay_JournalFlushTimeInMs},
};

constexpr bool ModelsAreInOrderOfType() {
    int type = 0;
    for (const ModelRow& row : models) {
        if (row.ecrType != type++) return false;
    }
    return true;
}
static_assert(ModelsAreInOrderOfType(), "models is indexed by EcrType");

BYTE ResultCode(const BUF& fiscalStatus) {
    if (fiscalStatus[resultCodeAt] == fiscalCommandFailed) return CRC_LAST_FISCAL_CMD_ERROR;
    const long long code = BCD2Dec(fiscalStatus, resultCodeAt, 1, false);
    return static_cast<BYTE>(code);
}

}  // namespace

FiscalProtocol GetFiscalProtocol(BYTE ecrFiscalProtocol) {
    for (const ProtocolRow& row : protocols) {
        if (row.code == ecrFiscalProtocol) return FiscalProtocol(row.ecrType, row.version);
    }
    Fail(103, "Unsupported ECR type");
}

void UpdateEcrStatus(const BUF& fiscalStatus) {
    if (ecrStatusValid) return;
    const BYTE flags = fiscalStatus[flagsAt];
    ecrStatus.keylockPosition = (flags >> 3) & 3;
    ecrStatus.inFiscalMode = ((flags >> 5) & 1) == FISCAL_MODE_ACTIVE;
    ecrStatus.receiptInProgress = ((flags >> 6) & 1) == RECEIPT_IN_PROGRESS;
    ecrStatus.lastCommandResultCode = ResultCode(fiscalStatus);
    ecrStatus.receiptNumber = BCD2Dec(fiscalStatus, receiptNumberAt, receiptNumberSize, false);
    ecrStatus.subtotal = BCD2Dec(fiscalStatus, subtotalAt, subtotalSize, true);
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
    const ModelRow& model = models[protocol.ecrType];
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

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "EcrModel.h"

#include "DriverException.h"

namespace {

// A new model is a row here, in the order of EcrType, and one in the emulated register's table.
constexpr EcrModel models[] = {
    {EcrType_ValkorOcelotT, {0, 4}, ecrOcelot_PRLN, ecrOcelot_JournalFlushTimeInMs, 18, 13},
    {EcrType_ValkorServalT, {3, 7}, ecrServal_PRLN, ecrServal_JournalFlushTimeInMs, 18, 13},
    {EcrType_ValkorLynxT, {1, 5}, ecrLynx_PRLN, ecrLynx_JournalFlushTimeInMs, 18, 13},
    {EcrType_ValkorPumaT, {2, 6}, ecrPuma_PRLN, ecrPuma_JournalFlushTimeInMs, 18, 13},
    {EcrType_ValkorMargayT, {noProtocol, 8}, ecrMargay_PRLN, ecrMargay_JournalFlushTimeInMs, 20, 2},
};

constexpr bool ModelsAreInOrderOfType() {
    int type = 0;
    for (const EcrModel& model : models) {
        if (model.ecrType != type++) return false;
    }
    return true;
}
static_assert(ModelsAreInOrderOfType(), "models is indexed by EcrType");

}  // namespace

const EcrModel& ModelOf(EcrType ecrType) {
    return models[ecrType];
}

FiscalProtocol GetFiscalProtocol(BYTE ecrFiscalProtocol) {
    for (const EcrModel& model : models) {
        for (BYTE version = 1; const int code : model.protocolCodes) {
            if (code == ecrFiscalProtocol) return FiscalProtocol(model.ecrType, version);
            ++version;
        }
    }
    Fail(ERR_UNSUPPORTED_ECR, "Unsupported ECR type");
}

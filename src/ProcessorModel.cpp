// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What differs by the connected model: the lengths of texts, the barcode's area, report numbers.

#include "ECR.h"
#include "EcrModel.h"
#include "FiscalCommandProcessor.h"

namespace {

const EcrModel& Model() {
    return ModelOf(ECR_Settings().ecrType);
}

}  // namespace

int GetMaxDeptNameLength() {
    return Model().deptNameLength;
}

int GetMaxCommentLength() {
    return ECR_Settings().printerLength - 1;
}

int GetMaxBarcodeLength() {
    return ECR_Settings().printerLength;
}

int GetEcrBarcodeBitmapWidth() {
    return ECR_Settings().printerLength * 12;
}

int GetEcrBarcodeBitmapHeight() {
    return 100;
}

int GetDailyReportNumber() {
    return 1;
}

int GetCashInDrawerReportNumber() {
    return Model().cashInDrawerReportNumber;
}

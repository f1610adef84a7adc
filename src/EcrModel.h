// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The models of the register: everything in which the driver treats them differently, one row each.
#pragma once

#include "Common.h"
#include "ECR.h"

/// In the place of the code of a fiscal protocol version that a model does not have.
inline constexpr int noProtocol = -1;

struct EcrModel {
    EcrType ecrType;
    int protocolCodes[2];  ///< byte 0 of the status block under fiscal protocol version 1 and 2
    BYTE printerLength;    ///< printable characters per line
    int journalFlushTimeInMs;
    int deptNameLength;  ///< characters of the name field of a department sale
    int cashInDrawerReportNumber;
};

const EcrModel& ModelOf(EcrType ecrType);

/// Model and version by byte 0 of the status block. Raises 103 "Unsupported ECR type".
FiscalProtocol GetFiscalProtocol(BYTE ecrFiscalProtocol);

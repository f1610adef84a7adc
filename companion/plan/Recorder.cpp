// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/plan/Recorder.h"

#include <utility>

#include "DriverException.h"
#include "ECR.h"
#include "EcrModel.h"

namespace plan {

namespace {

std::vector<Note> notes;
BUF lastPayload;
EcrSettings settings;
EcrStatus status;

FiscalProtocol ProtocolOf(std::uint8_t code) {
    try {
        return GetFiscalProtocol(code);
    } catch (DriverException* unknown) {
        delete unknown;
        return {EcrType_ValkorOcelotT, 2};
    }
}

}  // namespace

void BeModel(std::optional<std::uint8_t> protocol) {
    constexpr std::uint8_t firstModel = 0;
    const FiscalProtocol known = ProtocolOf(protocol.value_or(firstModel));
    settings.ecrType = known.ecrType;
    settings.fiscalProtocolVersion = known.protocolVersion;
    settings.printerLength = ModelOf(known.ecrType).printerLength;
}

std::vector<Note> TakeNotes() {
    return std::exchange(notes, {});
}

const BUF& LastPayload() {
    return lastPayload;
}

}  // namespace plan

// --- what the processor calls of the link --------------------------------------------------------

void SendCommand(BYTE cmd, const BUF& cmdData, bool) {
    plan::notes.push_back({cmd, cmdData});
    plan::lastPayload = cmdData;
}

void SetCmdTimeout(CommandType) {}

const EcrSettings& ECR_Settings() {
    return plan::settings;
}

const EcrStatus& ECR_Status() {
    return plan::status;
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/support/FakeEcr.h"

#include "DriverException.h"
#include "Globals.h"

namespace {

struct ModelRow {
    const char* name;
    EcrType type;
    BYTE charactersPerLine;
};

const ModelRow& RowOf(Model model) {
    static const std::map<Model, ModelRow> rows = {
        {Model::Ocelot, {"Ocelot", EcrType_ValkorOcelotT, 36}},
        {Model::Serval, {"Serval", EcrType_ValkorServalT, 32}},
        {Model::Lynx, {"Lynx", EcrType_ValkorLynxT, 20}},
        {Model::Puma, {"Puma", EcrType_ValkorPumaT, 32}},
        {Model::Margay, {"Margay", EcrType_ValkorMargayT, 20}},
    };
    return rows.at(model);
}

std::string TextOf(BYTE cmd, const BUF& cmdData, bool fiscalCommand) {
    std::string line = Format("%02x%s :", cmd, fiscalCommand ? " fiscal" : "");
    for (unsigned int i = 0; i < cmdData.GetSize(); ++i) line += Format(" %02x", cmdData[i]);
    return line;
}

void Raise(const LinkFailure& failure) {
    if (failure.blamesCommandFile) cmdError = true;
    Fail(failure.errorCode, failure.message);
}

}  // namespace

const char* NameOf(Model model) {
    return RowOf(model).name;
}

FakeEcr::FakeEcr() {
    Be(Model::Ocelot);
    status.keylockPosition = 2;
    On(0xB0, [](EcrStatus& s) { s.inFiscalMode = true; });
    On(0xB1, [](EcrStatus& s) { s.inFiscalMode = false; });
}

void FakeEcr::Be(Model model, BYTE protocolVersion) {
    settings.ecrType = RowOf(model).type;
    settings.printerLength = RowOf(model).charactersPerLine;
    settings.fiscalProtocolVersion = protocolVersion;
}

void FakeEcr::KeepReceipts() {
    for (const BYTE sale : {CMD_DEPT_SALE, CMD_DEPT_RETURN, CMD_PLU_SALE, CMD_PLU_RETURN}) {
        On(sale, [](EcrStatus& s) { s.receiptInProgress = true; });
    }
    for (const BYTE tender : {CMD_TENDER, CMD_TENDER_FOREIGN}) {
        On(tender, [](EcrStatus& s) { s.receiptInProgress = false; });
    }
}

void FakeEcr::On(BYTE cmd, std::function<void(EcrStatus&)> effect) {
    effects[cmd] = std::move(effect);
}

void FakeEcr::FailCommand(int number, const LinkFailure& failure) {
    commandFailures[number] = failure;
}

void FakeEcr::FailStatusReadsAfter(int commands, const LinkFailure& failure) {
    statusFailsAfter = commands;
    statusFailure = failure;
}

void FakeEcr::Listen() {
    told.clear();
    commandsTaken = 0;
}

void FakeEcr::Take(BYTE cmd, const BUF& cmdData, bool fiscalCommand) {
    ++commandsTaken;
    Note(TextOf(cmd, cmdData, fiscalCommand));
    if (fiscalCommand) State = STATE_CMDSENT;
    if (const auto failure = commandFailures.find(commandsTaken);
        failure != commandFailures.end()) {
        Raise(failure->second);
    }
    if (const auto effect = effects.find(cmd); effect != effects.end()) effect->second(status);
}

const EcrStatus& FakeEcr::ReadStatus() const {
    if (statusFailure && commandsTaken >= statusFailsAfter) Raise(*statusFailure);
    return status;
}

FakeEcr& Ecr() {
    static FakeEcr ecr;
    return ecr;
}

// The register link. All of its public functions are here, so that the linker takes none of the
// real ones.

void SendCommand(BYTE cmd, const BUF& cmdData, bool fiscalCommand) {
    Ecr().Take(cmd, cmdData, fiscalCommand);
}

void SetCmdTimeout(CommandType type) {
    static const std::map<CommandType, std::string> names = {
        {CmdType_Default, "default"}, {CmdType_Tender, "tender"}, {CmdType_Report, "report"}};
    Ecr().Note("time-out " + names.at(type));
}

const EcrSettings& ECR_Settings() {
    return Ecr().settings;
}

const EcrStatus& ECR_Status() {
    return Ecr().ReadStatus();
}

void ConnectToEcr() {}
void DisconnectFromEcr() {}
bool EcrExists() {
    return true;
}
void ResetIoStatistics() {}
void LogIoStatistics() {}

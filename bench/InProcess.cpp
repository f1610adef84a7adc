// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "bench/InProcess.h"

#include <cstring>
#include <fstream>
#include <memory>

#include "CommChannel.h"
#include "ECR.h"
#include "FiscalCommandProcessor.h"
#include "Globals.h"
#include "IniFile.h"
#include "companion/workbench/Defaults.h"
#include "emulator/Line.h"

namespace {

using emulator::WireFamily;

/// Not strict: the driver's numbers run on across the connections of this one process, and each
/// meets a new register.
emulator::RegisterConfig LenientRegister(WireFamily family) {
    emulator::RegisterConfig config = workbench::RegisterFor(family);
    config.strict = false;
    return config;
}

struct Channel {
    explicit Channel(WireFamily family) : device(LenientRegister(family)), line(family, device) {}

    emulator::Register device;
    emulator::Line line;
    emulator::Bytes incoming;
    std::size_t taken = 0;
};

std::unique_ptr<Channel> channel;

}  // namespace

void CommChannel_Open(CommChannelType) {}
void CommChannel_Close() {}
void CommChannel_SetReadTimeout(int) {}

bool CommChannel_Write(const BYTE* block, WORD len) {
    channel->incoming = channel->line.Feed({block, len});
    channel->taken = 0;
    return true;
}

bool CommChannel_Read(BYTE* block, WORD len) {
    if (channel->incoming.size() - channel->taken < len) return false;
    memcpy(block, channel->incoming.data() + channel->taken, len);
    channel->taken += len;
    return true;
}

void ConnectInProcess(WireFamily family) {
    constexpr char iniFile[] = "in-process.ini";
    std::ofstream(iniFile) << "[VOLTIS]\nProtocolFormatting="
                           << (family == WireFamily::Margay ? 1 : 0) << "\n";
    IniFile::SetFile(iniFile, false);
    IniFile::SetSection(sectionName, false);
    channel = std::make_unique<Channel>(family);
    FiscalCommandProcessor_Initialize();
    State = STATE_EXECUTE;
    ConnectToEcr();
}

void DisconnectInProcess() {
    DisconnectFromEcr();
    channel.reset();
}

void CheckPass(FiscalCommandFile& file) {
    State = STATE_SYNCHECK;
    FiscalCommandProcessor_Execute(file);
}

void ExecutePass(FiscalCommandFile& file) {
    State = STATE_EXECUTE;
    FiscalCommandProcessor_Execute(file);
}

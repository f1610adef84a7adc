// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ECR.h"

#include <string>

#include "AppController.h"
#include "CommChannel.h"
#include "DriverException.h"
#include "EcrLink.h"
#include "Globals.h"
#include "IniFile.h"
#include "ProtocolFormatting.h"

int framesSend = 0;
int framesReceived = 0;
int bsyCount = 0;
int nakCount = 0;
int lostRespCount = 0;
int garbageCount = 0;

int ecrNetworkId = defaultNetworkID;
int bsyRetryCount = defaultBsyRetryCount;
int bsySleepTime = defaultBsySleepTime;
int nakRetryCount = defaultNakRetryCount;
int nakSleepTime = defaultNakSleepTime;
int garbageRetryCount = defaultGarbageRetryCount;
int garbageSleepTime = defaultGarbageSleepTime;
int lostRespRetryCount = defaultLostResponseRetryCount;
int cmdTimeoutInMs_Default = defaultCmdTimeoutInMs_Default;
int cmdTimeoutInMs_Report = defaultCmdTimeoutInMs_Report;
int cmdTimeoutInMs_Tender = defaultCmdTimeoutInMs_Tender;

namespace {

struct IntSetting {
    const char* key;
    int defaultValue;
    int* value;
};

const IntSetting protocolSettings[] = {
    {"NetworkID", defaultNetworkID, &ecrNetworkId},
    {"BsyRetryCount", defaultBsyRetryCount, &bsyRetryCount},
    {"BsySleepTime", defaultBsySleepTime, &bsySleepTime},
    {"NakRetryCount", defaultNakRetryCount, &nakRetryCount},
    {"NakSleepTime", defaultNakSleepTime, &nakSleepTime},
    {"GarbageRetryCount", defaultGarbageRetryCount, &garbageRetryCount},
    {"GarbageSleepTime", defaultGarbageSleepTime, &garbageSleepTime},
    {"LostResponseRetryCount", defaultLostResponseRetryCount, &lostRespRetryCount},
};

const IntSetting commandTimeouts[] = {
    {"CmdTimeout_Default", defaultCmdTimeoutInMs_Default, &cmdTimeoutInMs_Default},
    {"CmdTimeout_Report", defaultCmdTimeoutInMs_Report, &cmdTimeoutInMs_Report},
    {"CmdTimeout_Tender", defaultCmdTimeoutInMs_Tender, &cmdTimeoutInMs_Tender},
};

template <typename Table>
void LoadSettings(const Table& table) {
    for (const IntSetting& row : table) *row.value = IniFile::GetNumber(row.key, row.defaultValue);
}

CommChannelType ConfiguredChannel() {
    const bool ethernet = IniFile::ContainsKey("IpAddress") && IniFile::ContainsKey("UdpPort");
    return ethernet ? CommChannel_Ethernet : CommChannel_SerialPort;
}

void SelectConfiguredFormatting(bool skipCrcCheck) {
    const int number = IniFile::GetNumber("ProtocolFormatting", defaultProtocolFormatting);
    if (number != ProtocolFormatting_Ocelot && number != ProtocolFormatting_Margay) {
        Fail(ERR_CONFIGURATION,
             "INI-file contains unknown protocol formatting : '" + std::to_string(number) + "'");
    }
    SelectFormatting(static_cast<ProtocolFormatting>(number), skipCrcCheck);
}

void AddJournalFlushTime(int flushTimeInMs) {
    for (const IntSetting& row : commandTimeouts) {
        // A configured value near the end of the range wraps instead of overflowing.
        *row.value = static_cast<int>(static_cast<unsigned int>(*row.value) +
                                      static_cast<unsigned int>(flushTimeInMs));
    }
}

struct StatisticsItem {
    const char* name;
    const int* count;
};

const StatisticsItem troubles[] = {
    {"BSY", &bsyCount}, {"NAK", &nakCount}, {"LOST", &lostRespCount}, {"GARB", &garbageCount}};

}  // namespace

void ConnectToEcr() {
    const CommChannelType channel = ConfiguredChannel();
    CommChannel_Open(channel);
    SelectConfiguredFormatting(channel == CommChannel_Ethernet);
    ecrSettingsValid = false;
    ecrStatusValid = false;
    InitializeCommProtocol();
    LoadSettings(commandTimeouts);
    SetCmdTimeout(CmdType_Default);
    AppController::LogMessage(DBG_LOG, "Checking for ECR", true);
    if (!EcrExists()) Fail(ERR_ECR_MISSING, "ECR is missing or in OFF state");
    AddJournalFlushTime(ECR_Settings().journalFlushTimeInMs);
    SetCmdTimeout(CmdType_Default);
}

void DisconnectFromEcr() {
    CommChannel_Close();
    LogIoStatistics();
    ResetIoStatistics();
}

bool EcrExists() {
    const int configuredRetryCount = lostRespRetryCount;
    const int lostBefore = lostRespCount;
    lostRespRetryCount = 0;
    try {
        ECR_Status();
    } catch (DriverException* failure) {
        delete failure;  // a register that answers at all, with whatever, exists
    }
    lostRespRetryCount = configuredRetryCount;
    return lostRespCount == lostBefore;
}

void InitializeCommProtocol() {
    LoadSettings(protocolSettings);
}

void SetCmdTimeout(CommandType type) {
    switch (type) {
        case CmdType_Default:
            CommChannel_SetReadTimeout(cmdTimeoutInMs_Default);
            break;
        case CmdType_Tender:
            CommChannel_SetReadTimeout(cmdTimeoutInMs_Tender);
            break;
        case CmdType_Report:
            CommChannel_SetReadTimeout(cmdTimeoutInMs_Report);
            break;
        default:
            break;
    }
}

void ResetIoStatistics() {
    framesSend = framesReceived = bsyCount = nakCount = lostRespCount = garbageCount = 0;
}

void LogIoStatistics() {
    std::string line =
        Format("I/O statistics : OUT frames = %d, IN frames = %d", framesSend, framesReceived);
    for (const StatisticsItem& item : troubles) {
        if (*item.count != 0) line += Format(", %s = %d", item.name, *item.count);
    }
    AppController::LogMessage(serverMode ? DBG_LOG : ALL_LOGS, line, true);
}

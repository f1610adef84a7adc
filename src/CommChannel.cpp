// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "CommChannel.h"

#include "DriverException.h"
#include "Linux/ComPort.h"
#include "Linux/UDP.h"

namespace {

CommChannelType commChannel = CommChannel_SerialPort;  // as the last CommChannel_Open named it

}  // namespace

void CommChannel_Open(CommChannelType channelType) {
    commChannel = channelType;
    switch (commChannel) {
        case CommChannel_SerialPort:
            return ComPort_Open();
        case CommChannel_Ethernet:
            return UDP_Open();
    }
}

void CommChannel_Close() {
    switch (commChannel) {
        case CommChannel_SerialPort:
            return ComPort_Close();
        case CommChannel_Ethernet:
            return UDP_Close();
    }
}

void CommChannel_SetReadTimeout(int timeoutInMs) {
    switch (commChannel) {
        case CommChannel_SerialPort:
            return ComPort_SetReadTimeout(static_cast<DWORD>(timeoutInMs));
        case CommChannel_Ethernet:
            return UDP_SetReceiveTimeout(timeoutInMs);
    }
}

bool CommChannel_Read(BYTE* block, WORD len) {
    switch (commChannel) {
        case CommChannel_SerialPort:
            return ComPort_ReadBlock(block, len);
        case CommChannel_Ethernet:
            return UDP_ReceiveBlock(reinterpret_cast<char*>(block), len);
    }
    FailInternal();
}

bool CommChannel_Write(const BYTE* block, WORD len) {
    switch (commChannel) {
        case CommChannel_SerialPort:
            return ComPort_WriteBlock(block, len);
        case CommChannel_Ethernet:
            return UDP_SendBlock(reinterpret_cast<const char*>(block), len);
    }
    FailInternal();
}

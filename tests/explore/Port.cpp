// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/explore/Port.h"

#include "CommChannel.h"

namespace explore {

namespace {

Port* plugged = nullptr;

}  // namespace

void PlugIn(Port* port) {
    plugged = port;
}

}  // namespace explore

using explore::plugged;

void CommChannel_Open(CommChannelType) {
    if (plugged != nullptr) plugged->Open();
}

void CommChannel_Close() {
    if (plugged != nullptr) plugged->Close();
}

void CommChannel_SetReadTimeout(int) {}

bool CommChannel_Read(BYTE* block, WORD len) {
    return plugged != nullptr && plugged->Read(block, len);
}

bool CommChannel_Write(const BYTE* block, WORD len) {
    if (plugged != nullptr) plugged->Write(block, len);
    return true;
}

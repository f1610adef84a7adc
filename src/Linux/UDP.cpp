// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "Linux/UDP.h"

#include "DriverException.h"

void UDP_Open() {
    Fail(ERR_SYSTEM, "Ethernet support not implemented");
}
void UDP_Close() {}
void UDP_SetReceiveTimeout(int) {}
void UDP_LogBlock(const std::string&, const BYTE*, DWORD, INT64, INT64) {}
bool UDP_SendBlock(const char*, int) {
    return false;
}
bool UDP_ReceiveBlock(char*, int) {
    return false;
}

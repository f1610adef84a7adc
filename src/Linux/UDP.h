// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The Ethernet transport, which this version does not have: it refuses to open.
#pragma once

#include <string>

#include "Common.h"

/// Always raises 50 "Ethernet support not implemented".
void UDP_Open();
void UDP_Close();
void UDP_SetReceiveTimeout(int timeoutInMs);
void UDP_LogBlock(const std::string& prefixTemplate, const BYTE* block, DWORD size, INT64 beginTime,
                  INT64 endTime);
/// Both always answer false.
bool UDP_SendBlock(const char* block, int bytesToSend);
bool UDP_ReceiveBlock(char* block, int bytesToReceive);

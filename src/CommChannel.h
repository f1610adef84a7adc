// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The one seam between the register link and a physical transport. Failures of the transport pass
// through.
#pragma once

#include "Common.h"

enum CommChannelType : int { CommChannel_SerialPort = 0, CommChannel_Ethernet = 1 };

/// Remembers the type, which routes all that follows, and opens.
void CommChannel_Open(CommChannelType channelType);
void CommChannel_Close();
/// The wait for the first byte of a block, in ms, for all reads until it is changed.
void CommChannel_SetReadTimeout(int timeoutInMs);

/// Reads exactly len bytes into block, waiting at most the current read time-out (ms) for the
/// first. False means lost: too little came in time. Raises 50 when the device itself fails, 99 on
/// a channel that does not exist.
bool CommChannel_Read(BYTE* block, WORD len);
/// False means lost: not all bytes went.
bool CommChannel_Write(const BYTE* block, WORD len);

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The serial port: opened by number, read and written in blocks, every block in the debug log.
// A time-out is no failure here: reads tell it by their result. Failures of the system raise 50
// with the system's text.
#pragma once

#include <sys/time.h>

#include <string>

#include "Common.h"

/// Reads ComNumber, ComRTTC, ComByteTimeMult and ComSettings. Raises 3 "Serial port number is
/// missing"; 50 "Unable to open serial port", "Bad serial port setup parameters", "Cannot set new
/// serial port settings".
void ComPort_Open();
/// Waits for the output to leave, then about 100 ms. Raises 50 "Failed to close serial port" and
/// keeps the handle then. Closed already: no effect.
void ComPort_Close();
/// Parses a settings string into the settings that ComPort_Open applies; an empty string changes
/// nothing. Raises 50 "Bad serial port setup parameters".
void ComPort_Setup(std::string settings);

/// One write call after draining stale input; true when all bytes went. Raises 99 for a null or
/// empty block, 50 "Serial port write error".
bool ComPort_WriteBlock(const BYTE* block, DWORD dwBytesToWrite);
/// True when exactly that many bytes came: the first within the read time-out, each other within
/// the inter-byte time-out. Raises 99 for a null or empty block, 50 "Serial port read error".
bool ComPort_ReadBlock(BYTE* block, DWORD dwBytesToRead);
/// Whatever is there now, at most maxSize bytes; returns the count. Sleep(maxByteInterval) between
/// the passes.
int ComPort_ReadUnknownSizeBlock(BYTE* block, DWORD maxSize, DWORD maxByteInterval);
/// Drops up to 256 bytes of stale input.
void ComPort_InBufferReadAndIgnore();
/// The wait for the first byte of the reads to come, in ms.
void ComPort_SetReadTimeout(DWORD timeoutInMs);
/// Installs a time-out in the device, in tenths of a second. Deliberate: the tenths are stored in 8
/// bits, so 36000 ms waits 10.4 s; the time-outs that shops have configured rely on it; see the
/// suite ComPort_InstallRTTC. Raises 50 "Cannot read/write serial port timeouts".
void ComPort_InstallRTTC(DWORD timeoutInMs);
/// The wait for each byte after the first, in ms, as the last settings string gave it.
int ComPort_GetReadIntervalTimeout();

/// "<prefix>   5 bytes in    1.2 ms : d0 01 b3 62 1a" to the debug log, without the time of day. A
/// null time leaves the duration blank.
void LogBlock(const std::string& prefix, const BYTE* block, DWORD size, const timeval* beginTime,
              const timeval* endTime);

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The driver's parts in this process, with an emulated register in the place of the channel: no
// line, no log, no system call.
#pragma once

#include "FiscalCommandFile.h"
#include "emulator/Wire.h"

/// A register of that family to talk to from now on, and the driver connected to it.
void ConnectInProcess(emulator::WireFamily family);
void DisconnectInProcess();

void CheckPass(FiscalCommandFile& file);
void ExecutePass(FiscalCommandFile& file);

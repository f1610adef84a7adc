// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "Globals.h"

DriverState State = STATE_READY;
bool noErrors = true;
bool cmdError = false;
bool receiptNotFinished = false;
bool serverMode = false;
bool exitServerMode = false;

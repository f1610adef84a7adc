// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The pauses of a test: replaces nanosleep in the executable that links it. Nothing really waits.
#pragma once

#include <functional>

/// Called for every pause with the value that was passed to Sleep. Values up to 65535 are told
/// apart exactly, also those that the system would refuse.
void OnSleep(std::function<void(unsigned int value)> action);

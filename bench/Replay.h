// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A recorded exchange, repeated by a program that does nothing else: what the machine and the
// emulated line cost, without a driver.
#pragma once

#include <string>
#include <vector>

#include "emulator/Wire.h"

/// A frame as the register saw it.
struct FrameSeen {
    bool fromDriver;
    emulator::Bytes bytes;
    double atMs;  // when its last byte had arrived, or its first byte left
};

void WriteExchange(const std::vector<FrameSeen>& frames, const std::string& path);

/// Sends the driver's frames of a written exchange over the device and waits for each answer. Any
/// other answer than the written one throws std::runtime_error.
void Replay(const std::string& path, const std::string& device);

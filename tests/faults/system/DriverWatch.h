// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the driver said and what it took in, read from the wire and from its debug log.
#pragma once

#include <string>
#include <vector>

#include "emulator/Wire.h"

namespace faults {

/// What a stream of bytes from the driver consists of.
struct Spoken {
    int frames = 0;
    int fiscalRequests = 0;    // to send a command other than entering and leaving fiscal mode
    int fiscalDataFrames = 0;  // of such commands
    bool broken = false;       // there is something that is no frame
};
Spoken Listen(emulator::WireFamily family, const emulator::Model& model,
              const emulator::Bytes& fromDriver);

/// The blocks that the driver has read as answers, in order, from its debug log.
std::vector<emulator::Bytes> BlocksRead(const std::string& debugLog);

/// The driver took a block for a good frame that the register had not sent.
bool DriverMisled(emulator::WireFamily family, const std::vector<emulator::Bytes>& read,
                  const std::vector<emulator::Bytes>& sent);

/// The first line of a log that is none of the driver's whole lines; empty when all are.
std::string BrokenLogLine(const std::string& log);

}  // namespace faults

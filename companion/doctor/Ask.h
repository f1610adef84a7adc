// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Which register answers, and how: status reads only, which change nothing.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "companion/doctor/Finding.h"
#include "companion/doctor/Line.h"
#include "companion/runner/Profile.h"

namespace doctor {

/// How long a register may take over an answer to a status request.
inline constexpr std::chrono::milliseconds usualWait{1000};

/// A register that has answered.
struct Present {
    ProtocolFormatting family = ProtocolFormatting_Ocelot;
    std::uint8_t networkId = 1;  ///< means nothing in Margay frames
    verdict::Status status;
    std::string model;  ///< "ocelot"; empty for one that the driver does not know
    int protocol = 0;   ///< 1 or 2
};

struct Asked {
    std::optional<Present> present;
    Findings findings;
};

/// Asks as it is configured, then in the other family, then under every network ID.
Asked Ask(Line& line, const runner::Profile& profile, std::chrono::milliseconds wait = usualWait);

/// "ocelot, fiscal protocol 2, Ocelot frames, network ID 1".
std::string Description(const Present& present);

}  // namespace doctor

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What a command file prints, drawn by the emulated register.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "companion/api/Call.h"

namespace api {

struct Drawing {
    std::string content;  // of the command file
    std::string codePage;
    std::uint8_t model = 0;                    // the protocol code of a status block
    std::optional<std::uint32_t> lastReceipt;  // the number before; none: from 1 on
};

/// A picture (SVG) in a band that says that it is a simulation, and which lines of the file the
/// emulated register has refused: it knows nothing of what the real one was at.
std::string Draw(const Drawing& drawing);

http::Reply ShowReceipt(const Call& call);

}  // namespace api

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The models of the register, as the driver's table has them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace check {

struct Model {
    std::string name;           // as on a command line
    int version = 0;            // of the fiscal protocol
    std::uint8_t protocol = 0;  // byte 0 of the status block, which tells both
};

/// One for each protocol code that the driver knows.
const std::vector<Model>& AllModels();

/// Those of that name and version; an empty name and version 0 stand for any.
std::vector<Model> ModelsOf(const std::string& name, int version);

/// What a report calls these models, which are some of those that were asked for: by name, and with
/// the version where another version of the name was asked for and is not among them. Empty when
/// they are all.
std::vector<std::string> NamesOf(const std::vector<Model>& some, const std::vector<Model>& asked);

}  // namespace check

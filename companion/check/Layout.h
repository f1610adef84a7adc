// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Where the parts of a command are in their line, by the driver's own tokens.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace check {

struct WrittenParameter {
    std::string name;  // in upper case
    std::string value;
    std::size_t nameAt = 0;
    std::size_t valueAt = 0;
};

struct Layout {
    std::size_t commandAt = 0;
    std::vector<WrittenParameter> parameters;  // in the order of the line, repeated ones too
    std::optional<std::size_t> brokenAt;       // where the line stops to be a command

    /// The last of that name, whose value counts.
    const WrittenParameter* Find(const std::string& name) const;
};

Layout LayoutOf(const std::string& line);

}  // namespace check

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A check for options that are numbers with decimals.
#pragma once

#include <CLI/CLI.hpp>
#include <sstream>
#include <string>

/// From the one to the other; what is no number ("nan") is in no range.
inline CLI::Validator FiniteRange(double from, double to) {
    const auto check = [from, to](const std::string& word) {
        double number = 0;
        if (CLI::detail::lexical_cast(word, number) && number >= from && number <= to)
            return std::string();
        std::ostringstream mistake;
        mistake << '\'' << word << "' is no number from " << from << " to " << to;
        return mistake.str();
    };
    return {check, "", ""};
}

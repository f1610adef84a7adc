// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What a check has found: how bad it is, what it is, and what helps.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace doctor {

/// The worst first.
enum class Severity {
    Error,    ///< it does not work
    Warning,  ///< it works otherwise than meant, slowly, or not for long
    Note,     ///< worth knowing
};

/// "error", "warning", "note".
const char* Word(Severity severity);

struct Finding {
    Severity severity;
    std::string code;     ///< for programs: never changes
    std::string message;  ///< what is; may have private parts, see Private
    std::string remedy;   ///< what to do; likewise
    std::string file = {};
    std::size_t line = 0;           ///< in that file, from 1; 0: none
    std::string registerName = {};  ///< empty: it is about the machine
};
using Findings = std::vector<Finding>;

/// Marks a part that may tell of a person or a shop: a path, a name, a value. What is no printable
/// character becomes "?".
std::string Private(const std::string& part);
/// Likewise in apostrophes.
std::string Quoted(const std::string& part);
/// The text for the machine's own people, without the marks.
std::string Open(const std::string& text);
/// The text for others: "..." in the place of each private part.
std::string Discreet(const std::string& text);

/// The worst first, else in their order.
void SortBySeverity(Findings& findings);
/// Adds the further ones at the end.
void Append(Findings& findings, Findings further);
/// So many have that severity.
std::size_t CountOf(const Findings& findings, Severity severity);

}  // namespace doctor

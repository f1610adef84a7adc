// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A manual page, from its template and the program's tables.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace manual {

/// Of the template; the message begins with its line.
class TemplateError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// What every page tells in its first and last line.
struct Edition {
    std::string version;  // "2.5.0"
    std::string date;     // "November 22, 2026"
};

/// The text of the template, with what stands for its lines of the form "@WORD ARGUMENT@":
///
///     @HEAD voltisctl-run 1@   date, title and version; the first line of each page
///     @SUMMARY run@            what the sub-command is for, as the name's description
///     @SYNOPSIS run@           its options, for the section SYNOPSIS
///     @OPTIONS run@            its options and what they mean; "voltisctl" has those of the whole
///     @EXAMPLE run@            the example of its --help
///     @COMMANDS@               the sub-commands
///     @KEYS driver@            the configuration's keys; "site" has those of voltisctl,
///                              "service" those of voltisd.conf
///     @CODES error-code@       a part of the catalogue of codes and messages
///     @ANSWERS@                the answers that the catalogue's entries share
///     @ROUTES@                 what the service can be asked
///     @PROBLEMS@               the errors that it answers with
std::string Page(std::string_view text, const Edition& edition);

}  // namespace manual

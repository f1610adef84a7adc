// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// How --help looks: 80 columns, what is to be typed on the left, what it means beside it.
#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <string>
#include <vector>

class HelpText : public CLI::Formatter {
  public:
    std::string make_option(const CLI::Option* option, bool positional) const override;
    std::string make_subcommand(const CLI::App* command) const override;
    std::string make_description(const CLI::App* command) const override;
    /// Each line of it is a paragraph; one that begins with a blank stays as it is.
    std::string make_footer(const CLI::App* command) const override;
};

/// "FILE"; empty for an option without a value.
std::string TypeNameOf(const CLI::Option& option);
/// The only words that the option takes; none when it takes others.
std::vector<std::string> ChoicesOf(const CLI::Option& option);

/// Breaks a paragraph between words, so that no line is longer than 80 characters unless one word
/// is. It begins at that column, its further lines at indent.
std::string Wrapped(const std::string& paragraph, std::size_t column = 0, std::size_t indent = 0);

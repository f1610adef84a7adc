// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// FiscalCommand: one parsed line of a command file, for example
// SALE: DEPTNR=1; PRICE=1.00; QNTY=2
#pragma once

#include <string>
#include <utility>
#include <vector>

/// Every failure here is code 1 and sets cmdError; docs/command-language.md lists the messages.
class FiscalCommand {
  public:
    explicit FiscalCommand(const std::string& line);

    /// Takes the next token off the front of the text. ":", ";" and "=" are tokens of their own;
    /// empty at the end. Raises 1 "Terminating quote is missing".
    std::string GetToken(std::string& text);

    /// In upper case.
    std::string GetCommand() const;
    /// The parameters that nobody has extracted yet.
    int GetParameterCount() const;
    /// Names are in upper case and compared exactly.
    bool ParameterExists(const std::string& name) const;
    /// An absent parameter raises 1 "<name> is missing".
    std::string GetParameter(const std::string& name);
    /// The same, and takes the parameter out.
    std::string ExtractParameter(const std::string& name);
    std::string GetParameter(const std::string& name, bool remove);

  private:
    using Parameter = std::pair<std::string, std::string>;  // name in upper case, value as written
    using Parameters = std::vector<Parameter>;

    /// A name that is there already gets the new value.
    void SetParameter(std::string name, std::string value);
    Parameters::const_iterator Find(const std::string& name) const;

    std::string command;
    Parameters parameters;  // an ordered map in one piece of memory: by name, each name once
};

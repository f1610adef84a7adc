// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The command line as plain words, for those who describe it: completion and the manual pages.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace CLI {
class App;
}

/// What the word after an option, or one that is no option, may be.
enum class Value : std::uint8_t { None, Choice, FileName, FolderName, Register, Any };

struct OptionWords {
    std::vector<std::string> names;  // as they are typed: "--model"; none: a word without a name
    std::string label;               // of its value
    std::string description;
    Value value = Value::None;
    std::vector<std::string> choices;
    std::string defaultValue;  // empty: none, or the description has it
    bool repeated = false;
    bool required = false;
};

struct CommandWords {
    std::string name;
    std::string description;
    std::string example;  // the command line that --help ends with
    std::vector<OptionWords> options;
};

/// Options that are not for everybody are left out, as in --help.
CommandWords WordsOf(const CLI::App& command);
std::vector<CommandWords> SubCommandWordsOf(const CLI::App& app);

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Command files by the grammar of the command language: valid ones, and ones with a single mistake.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "emulator/Model.h"

namespace faults {

using Random = std::mt19937_64;

/// From 0 to limit - 1.
std::size_t Below(Random& random, std::size_t limit);

struct Command {
    std::string name;
    std::vector<std::pair<std::string, std::string>> parameters;
    std::string written;  // the line as it is in the file; empty: put together from the above

    std::string* Find(std::string_view parameter);
    const std::string* Find(std::string_view parameter) const;
    void Remove(std::string_view parameter);
};

using Commands = std::vector<Command>;

/// Two commands or more that the check pass takes, and that a fresh register of this model nearly
/// always accepts.
Commands AnyCommands(Random& random, const emulator::Model& model);

struct FileText {
    std::string text;
    std::vector<int> lines;  // of each command, from 1
};
/// With remarks, blank lines, blanks and letter case at random.
FileText Write(Random& random, const Commands& commands);

struct Mistake {
    std::string_view kind;
    std::size_t command;  // index of the command to blame
    std::string message;  // without the place
    bool syntax;          // found while the file is read
};
/// Puts one mistake of a random kind at a random place.
Mistake MakeMistake(Random& random, const emulator::Model& model, Commands& commands);

/// All kinds of mistake.
std::vector<std::string_view> KindsOfMistake();

}  // namespace faults

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/HelpText.h"

#include <sstream>

namespace {

constexpr std::size_t meaningAt = 24;

// What is left, and what is right.
std::string HelpRow(const std::string& name, const std::string& meaning) {
    std::string row = "  " + name;
    if (row.size() + 2 > meaningAt)
        row += "\n" + std::string(meaningAt, ' ');
    else
        row.resize(meaningAt, ' ');
    return row + Wrapped(meaning, meaningAt, meaningAt) + "\n";
}

std::string ChoicesText(const CLI::Option& option) {
    std::string text;
    for (const std::string& choice : ChoicesOf(option))
        text += (text.empty() ? ": " : ", ") + choice;
    return text;
}

std::string SyntaxOf(const CLI::Option& option, bool positional) {
    std::string name = option.get_name(positional, true);
    const std::size_t comma = name.find(',');
    if (comma != std::string::npos) name.insert(comma + 1, " ");
    if (option.get_type_size() != 0 && !positional) name += " " + TypeNameOf(option);
    if (option.get_expected_max() > 1) name += " ...";
    return name;
}

std::string MeaningOf(const CLI::Option& option, bool positional) {
    std::string meaning = option.get_description() + ChoicesText(option);
    if (!option.get_default_str().empty())
        meaning += " (default: " + option.get_default_str() + ")";
    if (option.get_required() && !positional) meaning += " (required)";
    return meaning;
}

}  // namespace

// The library puts what it checks behind the type: "TEXT:{a,b}", "FLOAT in [0 - 9]".
std::string TypeNameOf(const CLI::Option& option) {
    const std::string all = option.get_type_name();
    return all.substr(0, all.find(':'));
}

std::vector<std::string> ChoicesOf(const CLI::Option& option) {
    const std::string all = option.get_type_name();
    const std::size_t begin = all.find(":{");
    if (begin == std::string::npos) return {};
    std::istringstream listed(all.substr(begin + 2, all.find('}', begin) - begin - 2));
    std::vector<std::string> choices;
    for (std::string choice; std::getline(listed, choice, ',');) choices.push_back(choice);
    return choices;
}

std::string Wrapped(const std::string& paragraph, std::size_t column, std::size_t indent) {
    constexpr std::size_t width = 80;
    std::istringstream words(paragraph);
    std::string all;
    for (std::string word; words >> word;) {
        if (!all.empty() && column + 1 + word.size() > width) {
            all += "\n" + std::string(indent, ' ');
            column = indent;
        } else if (!all.empty()) {
            all += ' ';
            ++column;
        }
        all += word;
        column += word.size();
    }
    return all;
}

std::string HelpText::make_option(const CLI::Option* option, bool positional) const {
    return HelpRow(SyntaxOf(*option, positional), MeaningOf(*option, positional));
}

std::string HelpText::make_subcommand(const CLI::App* command) const {
    return HelpRow(command->get_name(), command->get_description());
}

std::string HelpText::make_description(const CLI::App* command) const {
    return Wrapped(command->get_description()) + "\n";
}

std::string HelpText::make_footer(const CLI::App* command) const {
    std::istringstream lines(command->get_footer());
    std::string all;
    for (std::string line; std::getline(lines, line);)
        all += (line.starts_with(' ') ? line : Wrapped(line)) + "\n";
    return all;
}

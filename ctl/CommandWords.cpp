// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/CommandWords.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include "ctl/HelpText.h"

namespace {

Value ValueOf(const CLI::Option& option, const std::string& label) {
    if (option.get_expected_max() == 0) return Value::None;
    if (!ChoicesOf(option).empty()) return Value::Choice;
    if (option.check_lname("register")) return Value::Register;
    if (label == "DIR" || label == "FOLDER") return Value::FolderName;
    constexpr std::array<std::string_view, 3> files = {"FILE", "PATH", "LOG"};
    return std::ranges::find(files, label) != files.end() ? Value::FileName : Value::Any;
}

std::vector<std::string> NamesOf(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames()) names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
    return names;
}

OptionWords OptionWordsOf(const CLI::Option& option) {
    OptionWords words;
    words.names = NamesOf(option);
    words.label = words.names.empty() ? option.get_name(true) : TypeNameOf(option);
    words.description = option.get_description();
    words.value = ValueOf(option, words.label);
    words.choices = ChoicesOf(option);
    words.defaultValue = option.get_default_str();
    words.repeated = option.get_expected_max() > 1;
    words.required = option.get_required();
    return words;
}

std::string ExampleOf(const CLI::App& command) {
    constexpr std::string_view title = "\nExample:\n  ";
    const std::string footer = command.get_footer();
    const std::size_t at = footer.rfind(title);
    return at == std::string::npos ? "" : footer.substr(at + title.size());
}

}  // namespace

// Those without a group are not for everybody.
CommandWords WordsOf(const CLI::App& command) {
    CommandWords words{command.get_name(), command.get_description(), ExampleOf(command), {}};
    for (const CLI::Option* option : command.get_options())
        if (!option->get_group().empty()) words.options.push_back(OptionWordsOf(*option));
    return words;
}

std::vector<CommandWords> SubCommandWordsOf(const CLI::App& app) {
    std::vector<CommandWords> all;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        all.push_back(WordsOf(*command));
    return all;
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "man/Options.h"

#include <algorithm>
#include <cctype>
#include <cstddef>

#include "man/Mdoc.h"

namespace manual {

namespace {

bool IsHelp(const OptionWords& option) {
    return std::ranges::find(option.names, "--help") != option.names.end();
}

// "model" of "--model" becomes "MODEL", where the program's own word is only a type.
std::string PlaceHolder(const OptionWords& option) {
    const bool isType = option.label == "TEXT" || option.label == "INT" || option.label == "FLOAT";
    if (!isType || option.names.empty()) return option.label;
    std::string word = option.names.front().substr(option.names.front().find_first_not_of('-'));
    for (char& c : word) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return word;
}

// "Fl -model Ar MODEL"
std::string MacrosOf(const OptionWords& option) {
    std::string macros;
    for (const std::string& name : option.names)
        macros += (macros.empty() ? "Fl " : " , Fl ") + name.substr(1);
    if (option.value == Value::None) return macros;
    macros += (macros.empty() ? "Ar " : " Ar ") + PlaceHolder(option);
    return option.repeated ? macros + " ..." : macros;
}

// "`text`, `json` or `github`"
std::string ChoicesText(const std::vector<std::string>& choices) {
    std::string text;
    for (std::size_t i = 0; i < choices.size(); ++i) {
        if (i != 0) text += i + 1 == choices.size() ? " or " : ", ";
        text += "`" + choices[i] + "`";
    }
    return text;
}

std::string MeaningOf(const OptionWords& option) {
    std::string meaning = Sentence(option.description);
    if (!option.choices.empty()) meaning += " Values: " + ChoicesText(option.choices) + ".";
    if (!option.defaultValue.empty()) meaning += " Default: `" + option.defaultValue + "`.";
    return Prose(meaning);
}

std::string ItemOf(const OptionWords& option) {
    return ".It " + MacrosOf(option) + "\n" + MeaningOf(option);
}

}  // namespace

std::string Synopsis(const CommandWords& command) {
    std::string named, words;
    for (const OptionWords& option : command.options) {
        if (IsHelp(option)) continue;
        const std::string macro = (option.required ? "." : ".Op ") + MacrosOf(option) + "\n";
        (option.names.empty() ? words : named) += macro;
    }
    return named + words;
}

std::string OptionList(const CommandWords& command) {
    std::string named, words;
    for (const OptionWords& option : command.options)
        (option.names.empty() ? words : named) += ItemOf(option);
    return ".Bl -tag -width Ds\n" + words + named + ".El\n";
}

std::string CommandList(const std::vector<CommandWords>& commands) {
    std::string list = ".Bl -tag -width Ds\n";
    for (const CommandWords& command : commands) {
        list += ".It Xr voltisctl-" + command.name + " 1\n";
        list += Prose(Sentence(command.description));
    }
    return list + ".El\n";
}

}  // namespace manual

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/Completion.h"

#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ctl/CommandWords.h"

namespace {

constexpr char completionFooter[] =
    "The script knows the sub-commands, options and choices of this voltisctl.\n"
    "    eval \"$(voltisctl completion bash)\"                     # in ~/.bashrc\n"
    "    voltisctl completion zsh > ~/.zfunc/_voltisctl          # in $fpath\n"
    "\n"
    "Example:\n"
    "  voltisctl completion bash";

std::string Joined(const std::vector<std::string>& words, const char* separator) {
    std::string all;
    for (const std::string& word : words) all += (all.empty() ? "" : separator) + word;
    return all;
}

// --- bash
// ------------------------------------------------------------------------------------------

// Statements that set COMPREPLY; without any, bash offers files.
std::string BashReply(const OptionWords& option) {
    switch (option.value) {
        case Value::Choice:
            return "COMPREPLY=($(compgen -W '" + Joined(option.choices, " ") + "' -- \"$cur\"))";
        case Value::FolderName:
            return "COMPREPLY=($(compgen -d -- \"$cur\"))";
        case Value::Register:
            return "COMPREPLY=($(compgen -W \"$(_voltisctl_registers)\" -- \"$cur\"))";
        case Value::None:
        case Value::Any:
            return "compopt +o default";
        case Value::FileName:
            break;
    }
    return "";
}

std::string BashValues(const CommandWords& command) {
    std::string cases;
    for (const OptionWords& option : command.options) {
        if (option.names.empty() || option.value == Value::None) continue;
        const std::string reply = BashReply(option);
        cases += "                " + Joined(option.names, " | ") + ") " +
                 (reply.empty() ? "" : reply + "; ") + "return ;;\n";
    }
    return cases.empty() ? "" : "            case $prev in\n" + cases + "            esac\n";
}

std::string BashWords(const CommandWords& command) {
    std::vector<std::string> names;
    for (const OptionWords& option : command.options)
        names.insert(names.end(), option.names.begin(), option.names.end());
    return Joined(names, " ");
}

// Of two operands the first is the word after the sub-command.
std::string BashOperand(const CommandWords& command) {
    std::vector<std::string> replies;
    for (const OptionWords& option : command.options)
        if (option.names.empty()) replies.push_back(BashReply(option));
    if (replies.empty()) return "compopt +o default";
    if (replies.size() == 1) return replies[0];
    return "if ((COMP_CWORD == 2)); then " + replies[0] + "; else " + replies[1] + "; fi";
}

std::string BashCase(const CommandWords& command) {
    const std::string operand = BashOperand(command);
    return "        " + command.name + ")\n" + BashValues(command) +
           "            if [[ $cur == -* ]]; then\n"
           "                COMPREPLY=($(compgen -W '" +
           BashWords(command) + "' -- \"$cur\"))\n" +
           (operand.empty() ? "" : "            else\n                " + operand + "\n") +
           "            fi ;;\n";
}

// The `=` of --option=value is a word of its own to bash.
constexpr char bashHead[] =
    R"(# What bash offers for voltisctl: written by `voltisctl completion bash`.
_voltisctl_registers() {
    local file
    echo default
    for file in /etc/voltis/registers/*.ini; do
        file=${file##*/}
        if [[ $file != '*.ini' ]]; then echo "${file%.ini}"; fi
    done
}

_voltisctl() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    if [[ $cur == = ]]; then
        cur=
    elif [[ $prev == = ]]; then
        prev=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    if ((COMP_CWORD == 1)); then
        COMPREPLY=($(compgen -W ')";

std::string BashScript(const CommandWords& whole, const std::vector<CommandWords>& all) {
    std::string script = bashHead;
    for (const CommandWords& command : all) script += command.name + " ";
    script += BashWords(whole) +
              "' -- \"$cur\"))\n"
              "        return\n"
              "    fi\n"
              "    case ${COMP_WORDS[1]} in\n";
    for (const CommandWords& command : all) script += BashCase(command);
    return script +
           "    esac\n"
           "}\n"
           "complete -o default -F _voltisctl voltisctl\n";
}

// --- zsh
// -------------------------------------------------------------------------------------------

// In single quotes, with what _arguments and _describe take for an end left out of it.
std::string ZshText(const std::string& text, std::string_view special) {
    std::string safe;
    for (const char c : text) {
        if (c == '\'')
            safe += "'\\''";
        else if (special.find(c) != std::string_view::npos)
            safe += std::string("\\") + c;
        else
            safe += c;
    }
    return safe;
}

std::string ZshAction(const OptionWords& option) {
    switch (option.value) {
        case Value::Choice:
            return "(" + Joined(option.choices, " ") + ")";
        case Value::FileName:
            return "_files";
        case Value::FolderName:
            return "_files -/";
        case Value::Register:
            return "_voltisctl_registers";
        case Value::None:
        case Value::Any:
            break;
    }
    return " ";
}

// An option, or the operand of that number (zshcompsys(1), _arguments).
std::string ZshSpec(const OptionWords& option, const std::string& name, int operand = 0) {
    std::string spec = option.repeated ? "*" : "";
    spec += name;
    if (!name.empty()) spec += "[" + ZshText(option.description, "[]\\") + "]";
    if (name.empty() && !option.repeated) spec += std::to_string(operand);
    if (option.value != Value::None || name.empty())
        spec += ":" + ZshText(option.label, ":\\") + ":" + ZshAction(option);
    return "'" + spec + "'";
}

std::string ZshCase(const CommandWords& command) {
    std::string specs;
    int operands = 0;
    for (const OptionWords& option : command.options) {
        std::vector<std::string> names = option.names;
        if (names.empty()) {
            names.emplace_back();
            operands += 1;
        }
        for (const std::string& name : names)
            specs += " \\\n                " + ZshSpec(option, name, operands);
    }
    return "            " + command.name + ") _arguments" + specs + " ;;\n";
}

constexpr char zshHead[] = R"(#compdef voltisctl
# What zsh offers for voltisctl: written by `voltisctl completion zsh`.
_voltisctl_registers() {
    local -a registers=(default /etc/voltis/registers/*.ini(N:t:r))
    compadd -a registers
}

_voltisctl() {
    local context state state_descr line
    local -A opt_args
    local -a commands=(
)";

std::string ZshScript(const CommandWords& whole, const std::vector<CommandWords>& all) {
    std::string script = zshHead;
    for (const CommandWords& command : all)
        script += "        '" + command.name + ":" + ZshText(command.description, ":\\") + "'\n";
    script += "    )\n    _arguments -C";
    for (const OptionWords& option : whole.options)
        for (const std::string& name : option.names)
            script += " \\\n        " + ZshSpec(option, name);
    script +=
        " \\\n        '1:command:->command' '*::argument:->argument'\n"
        "    case $state in\n"
        "        command) _describe command commands ;;\n"
        "        argument) case $words[1] in\n";
    for (const CommandWords& command : all) script += ZshCase(command);
    return script +
           "        esac ;;\n"
           "    esac\n"
           "}\n"
           "if [ \"$funcstack[1]\" = _voltisctl ]; then _voltisctl \"$@\"; "
           "else compdef _voltisctl voltisctl; fi\n";
}

int PrintCompletion(const CLI::App& app, const std::string& shell) {
    const CommandWords whole = WordsOf(app);
    const std::vector<CommandWords> all = SubCommandWordsOf(app);
    std::cout << (shell == "bash" ? BashScript(whole, all) : ZshScript(whole, all));
    return 0;
}

}  // namespace

std::function<int()> BindCompletion(CLI::App& command) {
    const auto shell = std::make_shared<std::string>();
    command.add_option("SHELL", *shell, "The shell")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh"}));
    command.footer(completionFooter);
    return [&command, shell] { return PrintCompletion(*command.get_parent(), *shell); };
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "FiscalCommand.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "Common.h"
#include "DriverException.h"

namespace {

enum CharKind : BYTE { blank = 1, endsToken = 2 };

/// Every character of every command is looked up here.
constexpr std::array<BYTE, 256> charKinds = [] {
    std::array<BYTE, 256> kinds{};
    for (const char c : {' ', '\t', '\r', '\n'}) kinds[static_cast<BYTE>(c)] |= blank;
    for (const char c : {':', ';', '=', ' ', '\t'}) kinds[static_cast<BYTE>(c)] |= endsToken;
    return kinds;
}();

bool Is(CharKind kind, char c) {
    return (charKinds[static_cast<unsigned char>(c)] & kind) != 0;
}

void SkipBlanks(std::string_view& text) {
    while (!text.empty() && Is(blank, text.front())) text.remove_prefix(1);
}

/// Takes a quoted token, both quotes included, off the front; returns what is between them.
std::string TakeQuoted(std::string_view& text) {
    std::string token;
    for (std::size_t i = 1; i < text.size(); ++i) {
        if (text[i] == '"') {
            text.remove_prefix(i + 1);
            // Deliberate: an empty quoted value is one blank, so that it does not count as missing;
            // see the suite FiscalCommand_GetToken.
            return token.empty() ? " " : token;
        }
        if (text[i] == '\\' && i + 1 < text.size() && text[i + 1] == '"') ++i;
        token += text[i];
    }
    FailCommand("Terminating quote is missing");
}

std::string TakeBare(std::string_view& text) {
    std::size_t length = 1;  // a delimiter in front is a token of its own
    if (!Is(endsToken, text[0])) {
        while (length < text.size() && !Is(endsToken, text[length])) ++length;
    }
    std::string token(text.substr(0, length));
    text.remove_prefix(length);
    return token;
}

std::string TakeToken(std::string_view& text) {
    SkipBlanks(text);
    if (text.empty()) return {};
    std::string token = text.front() == '"' ? TakeQuoted(text) : TakeBare(text);
    SkipBlanks(text);
    return token;
}

/// Takes the next token, whatever it is; true when it is that delimiter, quoted or not.
bool TakeDelimiter(std::string_view& text, char delimiter) {
    if (!text.starts_with(delimiter)) return TakeToken(text) == std::string(1, delimiter);
    text.remove_prefix(1);
    SkipBlanks(text);
    return true;
}

}  // namespace

FiscalCommand::FiscalCommand(const std::string& line) {
    std::string_view text = line;
    while (!text.empty() && Is(blank, text.back())) text.remove_suffix(1);
    command = ToUpper(TakeToken(text));
    if (command.empty()) FailCommand("Command name is missing");
    if (text.empty()) return;
    if (!TakeDelimiter(text, ':')) FailCommand("Missing ':' after fiscal command");
    if (text.empty()) FailCommand("Parameters are missing");

    // Enough, and too much only when a value has an "=" in it or a name comes twice.
    parameters.reserve(static_cast<std::size_t>(std::ranges::count(text, '=')));
    while (!text.empty()) {
        std::string name = ToUpper(TakeToken(text));
        // GCOVR_EXCL_BR_START: a text that is not empty has a token that is not empty.
        if (name.empty()) FailCommand("Parameter name is missing");
        // GCOVR_EXCL_BR_STOP
        if (!TakeDelimiter(text, '=')) FailCommand("Missing '=' after parameter " + name);
        // Deliberate: a delimiter is a value, too: after "DEPT=;" the value of DEPT is ";"; see the
        // suite FiscalCommand.
        std::string value = TakeToken(text);
        if (value.empty()) FailCommand("Parameter value is missing");
        if (!text.empty() && !TakeDelimiter(text, ';')) {
            FailCommand("Missing ';' after '" + name.append(" = ") + value + "'");
        }
        SetParameter(std::move(name), std::move(value));
    }
    parameters.shrink_to_fit();  // a file of lines full of "=" must not hold on to what none needs
}

void FiscalCommand::SetParameter(std::string name, std::string value) {
    const auto place = std::ranges::lower_bound(parameters, name, {}, &Parameter::first);
    if (place != parameters.end() && place->first == name) {
        place->second = std::move(value);
    } else {
        parameters.emplace(place, std::move(name), std::move(value));
    }
}

FiscalCommand::Parameters::const_iterator FiscalCommand::Find(const std::string& name) const {
    const auto place = std::ranges::lower_bound(parameters, name, {}, &Parameter::first);
    return place != parameters.end() && place->first == name ? place : parameters.end();
}

std::string FiscalCommand::GetToken(std::string& text) {
    std::string_view rest = text;
    std::string token = TakeToken(rest);
    text.erase(0, text.size() - rest.size());
    return token;
}

std::string FiscalCommand::GetCommand() const {
    return command;
}

int FiscalCommand::GetParameterCount() const {
    return static_cast<int>(parameters.size());
}

bool FiscalCommand::ParameterExists(const std::string& name) const {
    return Find(name) != parameters.end();
}

std::string FiscalCommand::GetParameter(const std::string& name) {
    return GetParameter(name, false);
}

std::string FiscalCommand::ExtractParameter(const std::string& name) {
    return GetParameter(name, true);
}

std::string FiscalCommand::GetParameter(const std::string& name, bool remove) {
    const auto parameter = Find(name);
    if (parameter == parameters.end()) FailCommand(name + " is missing");
    std::string value = parameter->second;
    if (remove) parameters.erase(parameter);
    return value;
}

#include "FiscalCommand.h"

#include <string_view>

#include "Common.h"
#include "DriverException.h"

namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool EndsToken(char c) {
    return c == ':' || c == ';' || c == '=' || c == ' ' || c == '\t';
}

void SkipBlanks(std::string_view& text) {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
}

/// Takes a quoted token, both quotes included, off the front; returns what is between them.
std::string TakeQuoted(std::string_view& text) {
    std::string token;
    for (std::size_t i = 1; i < text.size(); ++i) {
        if (text[i] == '"') {
            text.remove_prefix(i + 1);
            // Deliberate: an empty quoted value is one blank, so that it does not count as missing.
            return token.empty() ? " " : token;
        }
        if (text[i] == '\\' && i + 1 < text.size() && text[i + 1] == '"') ++i;
        token += text[i];
    }
    FailCommand("Terminating quote is missing");
}

std::string TakeBare(std::string_view& text) {
    std::size_t length = 1;  // a delimiter in front is a token of its own
    if (!EndsToken(text[0])) {
        while (length < text.size() && !EndsToken(text[length])) ++length;
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

}  // namespace

FiscalCommand::FiscalCommand(const std::string& line) {
    std::string_view text = line;
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    command = ToUpper(TakeToken(text));
    if (command.empty()) FailCommand("Command name is missing");
    if (text.empty()) return;
    if (TakeToken(text) != ":") FailCommand("Missing ':' after fiscal command");
    if (text.empty()) FailCommand("Parameters are missing");

    while (!text.empty()) {
        std::string name = ToUpper(TakeToken(text));
        if (name.empty()) FailCommand("Parameter name is missing");
        if (TakeToken(text) != "=") FailCommand("Missing '=' after parameter " + name);
        // Deliberate: a delimiter is a value, too: "DEPT=;" gives DEPT the value ";".
        std::string value = TakeToken(text);
        if (value.empty()) FailCommand("Parameter value is missing");
        if (!text.empty() && TakeToken(text) != ";") {
            FailCommand("Missing ';' after '" + name.append(" = ") + value + "'");
        }
        parameters.insert_or_assign(std::move(name), std::move(value));
    }
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
    return parameters.count(name) != 0;
}

std::string FiscalCommand::GetParameter(const std::string& name) {
    return GetParameter(name, false);
}

std::string FiscalCommand::ExtractParameter(const std::string& name) {
    return GetParameter(name, true);
}

std::string FiscalCommand::GetParameter(const std::string& name, bool remove) {
    const auto parameter = parameters.find(name);
    if (parameter == parameters.end()) FailCommand(name + " is missing");
    if (!remove) return parameter->second;
    std::string value = std::move(parameter->second);
    parameters.erase(parameter);
    return value;
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The syntax of one command: any text becomes either the command that its tokens say, or the one
// fault that is found first.

#include <map>
#include <optional>
#include <vector>

#include "Common.h"
#include "FiscalCommand.h"
#include "fuzz/Property.h"

namespace {

Tally tally("fuzz_command", "of them commands");

constexpr char blanks[] = " \t\r\n";
constexpr char openQuote[] = "Terminating quote is missing";

/// What a text should become: a fault, or a command.
struct Reading {
    std::string fault;
    std::string command;
    std::map<std::string, std::string> parameters;
};

/// The tokens of a text in order; a text with an open quote ends with that fault instead.
struct Tokens {
    std::vector<std::string> all;
    bool endsInOpenQuote = false;
};

/// The next token by the rules of the language, read character by character.
std::optional<std::string> NextToken(const std::string& text, std::size_t& at) {
    std::string token;
    if (text[at] == '"') {
        for (++at; at < text.size() && text[at] != '"'; ++at) {
            if (text[at] == '\\' && text.substr(at + 1, 1) == "\"") ++at;
            token += text[at];
        }
        if (at++ >= text.size()) return std::nullopt;
        return token.empty() ? " " : token;
    }
    const std::size_t begin = at;
    at = std::min(text.find_first_of(":;= \t", at), text.size());
    if (at == begin) ++at;
    return text.substr(begin, at - begin);
}

Tokens TokensOf(const std::string& text) {
    Tokens tokens;
    for (std::size_t at = 0;;) {
        at = text.find_first_not_of(blanks, at);
        if (at == std::string::npos) return tokens;
        const auto token = NextToken(text, at);
        tokens.endsInOpenQuote = !token;
        if (!token) return tokens;
        tokens.all.push_back(*token);
    }
}

/// Hands out the tokens; what is taken after the last one is empty, or the open quote's fault.
class Reader {
  public:
    explicit Reader(Tokens given) : tokens(std::move(given)) {}
    bool AtEnd() const { return next == tokens.all.size() && !tokens.endsInOpenQuote; }
    std::string Take() {
        if (next < tokens.all.size()) return tokens.all[next++];
        if (tokens.endsInOpenQuote) fault = openQuote;
        return {};
    }
    /// The first fault of all stays.
    bool Demand(bool fulfilled, const std::string& otherwise) {
        if (fault.empty() && !fulfilled) fault = otherwise;
        return fault.empty();
    }

    std::string fault;

  private:
    Tokens tokens;
    std::size_t next = 0;
};

bool ReadParameter(Reader& reader, Reading& reading) {
    const std::string name = ToUpper(reader.Take());
    if (!reader.Demand(!name.empty(), "Parameter name is missing")) return false;
    const std::string equals = reader.Take();
    if (!reader.Demand(equals == "=", "Missing '=' after parameter " + name)) return false;
    const std::string value = reader.Take();
    if (!reader.Demand(!value.empty(), "Parameter value is missing")) return false;
    reading.parameters[name] = value;
    if (reader.AtEnd()) return true;
    const std::string semicolon = reader.Take();
    return reader.Demand(semicolon == ";", "Missing ';' after '" + name + " = " + value + "'");
}

Reading Read(const std::string& text) {
    Reading reading;
    Reader reader(TokensOf(Trim(text, blanks)));
    reading.command = ToUpper(reader.Take());
    if (reader.Demand(!reading.command.empty(), "Command name is missing") && !reader.AtEnd()) {
        const std::string colon = reader.Take();
        if (reader.Demand(colon == ":", "Missing ':' after fiscal command")) {
            reader.Demand(!reader.AtEnd(), "Parameters are missing");
        }
        while (reader.fault.empty() && !reader.AtEnd()) ReadParameter(reader, reading);
    }
    reading.fault = reader.fault;
    return reading;
}

/// As a token that is read as this text again. Only a bare token can end in a backslash.
std::string Written(const std::string& text) {
    if (text.ends_with('\\')) return text;
    std::string quoted = "\"";
    for (char c : text) {
        if (c == '"') quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

std::string Written(const Reading& reading) {
    std::string line = Written(reading.command);
    char separator = ':';
    for (const auto& [name, value] : reading.parameters) {
        line += separator + Written(name) + "=" + Written(value);
        separator = ';';
    }
    return line;
}

void RequireSame(FiscalCommand command, const Reading& reading) {
    RequireEqual(command.GetCommand(), reading.command, "the command's name");
    Require(command.GetParameterCount() == static_cast<int>(reading.parameters.size()),
            "the number of parameters");
    int left = command.GetParameterCount();
    for (const auto& parameter : reading.parameters) {
        const std::string& name = parameter.first;
        const std::string& value = parameter.second;
        Require(command.ParameterExists(name), "a parameter exists");
        RequireEqual(command.GetParameter(name), value, "a parameter's value");
        RequireEqual(command.ExtractParameter(name), value, "an extracted value");
        Require(command.GetParameterCount() == --left, "extracting takes one out");
        const auto failure = FailureOf([&] { command.ExtractParameter(name); });
        Require(failure != nullptr, "what was extracted is gone");
        RequireEqual(failure->Message, name + " is missing", "a parameter that is gone");
        RequireCommandFault(*failure);
    }
}

/// Token by token, always onwards.
void RequireSameTokens(const std::string& text, FiscalCommand anyCommand) {
    const Tokens tokens = TokensOf(text);
    std::string rest = text;
    for (const std::string& token : tokens.all) {
        const std::size_t before = rest.size();
        RequireEqual(anyCommand.GetToken(rest), token, "a token");
        Require(rest.size() < before, "a token takes something off");
    }
    const auto failure = FailureOf(
        [&] { Require(anyCommand.GetToken(rest).empty(), "after the last token is nothing"); });
    Require((failure != nullptr) == tokens.endsInOpenQuote, "an open quote is a fault");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tally.Input();
    const std::string text = AsText(data, size);
    const Reading reading = Read(text);
    ResetGlobals();
    std::unique_ptr<FiscalCommand> command;
    const auto failure = FailureOf([&] { command = std::make_unique<FiscalCommand>(text); });
    RequireEqual(failure ? failure->Message : "", reading.fault, "the fault that is found");
    RequireSameTokens(text, FiscalCommand("EXIT"));
    if (failure) {
        RequireCommandFault(*failure);
        return 0;
    }
    tally.Count();
    RequireSame(*command, reading);
    RequireSame(FiscalCommand(Written(reading)), reading);
    return 0;
}

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/companion/RaisedTexts.h"

#include <algorithm>
#include <cctype>

namespace {

bool IsNameLetter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

/// The place after a literal in quotes that begins at begin.
std::size_t AfterLiteral(const std::string& source, std::size_t begin) {
    std::size_t at = begin + 1;
    while (at < source.size() && source[at] != source[begin]) at += source[at] == '\\' ? 2 : 1;
    return std::min(at + 1, source.size());
}

bool IsLiteral(char c) {
    return c == '"' || c == '\'';
}

/// Comments as blanks, so that lines keep their numbers.
std::string WithoutComments(std::string source) {
    for (std::size_t at = 0; at < source.size();) {
        if (IsLiteral(source[at])) {
            at = AfterLiteral(source, at);
        } else if (source.compare(at, 2, "//") == 0) {
            while (at < source.size() && source[at] != '\n') source[at++] = ' ';
        } else {
            ++at;
        }
    }
    return source;
}

/// Splits what is between begin and the bracket that closes it at the separator; brackets and
/// literals inside stay whole.
std::vector<std::string> Split(const std::string& source, std::size_t begin, char separator) {
    std::vector<std::string> parts(1);
    int depth = 0;
    for (std::size_t at = begin; at < source.size();) {
        const char c = source[at];
        const std::size_t end = IsLiteral(c) ? AfterLiteral(source, at) : at + 1;
        if (c == '(' || c == '{' || c == '[') ++depth;
        if ((c == ')' || c == '}' || c == ']') && --depth < 0) break;
        if (c == separator && depth == 0) {
            parts.emplace_back();
        } else {
            parts.back() += source.substr(at, end - at);
        }
        at = end;
    }
    return parts;
}

std::string Trimmed(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(" \t\n");
    if (begin == std::string::npos) return "";
    return text.substr(begin, text.find_last_not_of(" \t\n") + 1 - begin);
}

/// Blanks and line feeds in a row as one blank.
std::string InOneLine(const std::string& text) {
    std::string line;
    for (const char c : text) {
        const bool blank = std::isspace(static_cast<unsigned char>(c)) != 0;
        if (!blank) line += c;
        if (blank && !line.empty() && line.back() != ' ') line += ' ';
    }
    return line;
}

/// "a" "b" as ab; false when it is anything else than literals.
bool ReadLiterals(const std::string& piece, std::string& text) {
    for (std::size_t at = 0; at < piece.size();) {
        if (std::isspace(static_cast<unsigned char>(piece[at])) != 0) {
            ++at;
            continue;
        }
        if (piece[at] != '"') return false;
        const std::size_t end = AfterLiteral(piece, at);
        for (++at; at + 1 < end; ++at) {
            if (piece[at] == '\\') ++at;
            text += piece[at];
        }
        at = end;
    }
    return true;
}

/// The text of `constexpr char name[] = "...";` in that source; false when there is none.
bool ReadConstant(const std::string& source, const std::string& name, std::string& text) {
    const std::string head = "char " + name + "[] =";
    const std::size_t at = source.find(head);
    if (at == std::string::npos) return false;
    const std::size_t begin = at + head.size();
    return ReadLiterals(source.substr(begin, source.find(";\n", begin) - begin), text);
}

std::string TextOf(const std::string& argument, const std::string& source) {
    std::string text;
    for (const std::string& piece : Split(argument, 0, '+')) {
        const std::string expression = Trimmed(piece);
        if (ReadLiterals(expression, text) || ReadConstant(source, expression, text)) continue;
        // A literal that begins an addition: std::string("no pipe - ").
        std::string inner;
        const std::string wrapper = "std::string(";
        const bool wrapped =
            expression.starts_with(wrapper) &&
            ReadLiterals(expression.substr(wrapper.size(), expression.size() - wrapper.size() - 1),
                         inner);
        text += wrapped ? inner : "{}";
    }
    return WithoutNeighbours(text);
}

/// Of a declaration the default, if any; of a call the argument itself.
std::string MessageIn(const std::string& argument) {
    if (!argument.starts_with("const ")) return argument;
    const std::size_t at = argument.find(" = ");
    return at == std::string::npos ? "" : argument.substr(at + 3);
}

/// The place after the bracket that opens the arguments; npos when it is no call.
std::size_t ArgumentsOf(const std::string& source, std::size_t at, const std::string& name) {
    if (at != 0 && IsNameLetter(source[at - 1])) return std::string::npos;
    std::size_t end = at + name.size();
    if (source[end] == '<') end = source.find('>', end) + 1;
    return source[end] == '(' ? end + 1 : std::string::npos;
}

void AddCalls(const std::string& file, const std::string& source, const Raiser& raiser,
              std::vector<RaisedText>& found) {
    for (std::size_t at = 0; (at = source.find(raiser.name, at)) != std::string::npos; ++at) {
        const std::size_t begin = ArgumentsOf(source, at, raiser.name);
        if (begin == std::string::npos) continue;
        const std::vector<std::string> arguments = Split(source, begin, ',');
        if (raiser.argument >= arguments.size()) continue;  // a definition with fewer
        const std::string argument = MessageIn(Trimmed(arguments[raiser.argument]));
        if (argument.empty()) continue;
        const auto line =
            1 + std::count(source.begin(), source.begin() + static_cast<std::ptrdiff_t>(at), '\n');
        found.push_back(
            {file + ":" + std::to_string(line),
             raiser.code.empty() ? Trimmed(arguments[0]) : raiser.code,
             argument == "\"\""
                 ? ""
                 : WithoutNeighbours(raiser.before + TextOf(argument, source) + raiser.after),
             InOneLine(argument)});
    }
}

}  // namespace

std::vector<RaisedText> TextsRaisedIn(const std::string& file, const std::string& source,
                                      const std::vector<Raiser>& raisers) {
    const std::string code = WithoutComments(source);
    std::vector<RaisedText> found;
    for (const Raiser& raiser : raisers) {
        if (file.ends_with(raiser.file)) AddCalls(file, code, raiser, found);
    }
    return found;
}

std::string WithoutNeighbours(std::string text) {
    for (std::size_t at = 0; (at = text.find("{}{}")) != std::string::npos;) text.erase(at, 2);
    return text;
}

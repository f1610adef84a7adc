// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/tokens/Token.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "companion/runner/Profile.h"
#include "companion/runner/Utf8.h"

namespace tokens {

namespace {

constexpr char allRegisters[] = "*";

struct Range {
    char32_t first, last;
};
// Characters that show nothing, or change how those beside them are shown.
constexpr Range unseen[] = {{0, 0x1f},        {0x7f, 0xa0},      {0xad, 0xad},     {0x61c, 0x61c},
                            {0x200b, 0x200f}, {0x2028, 0x202f},  {0x2060, 0x206f}, {0xfeff, 0xfeff},
                            {0xfff9, 0xfffb}, {0xe0000, 0xe007f}};

bool IsSeen(char32_t character) {
    return std::ranges::none_of(unseen, [&](const Range& range) {
        return range.first <= character && character <= range.last;
    });
}

// --- lines ---------------------------------------------------------------------------------------

struct Line {
    std::size_t number = 0;
    std::string_view text;  // without its line feed
    bool whole = true;      // it has one

    bool IsToken() const { return !text.empty() && text[0] != '#'; }
};

std::vector<Line> LinesOf(std::string_view text) {
    std::vector<Line> lines;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const bool whole = end != std::string_view::npos;
        lines.push_back({lines.size() + 1, text.substr(0, end), whole});
        text.remove_prefix(whole ? end + 1 : text.size());
    }
    return lines;
}

// HASH SCOPES REGISTER MADE NAME
using Fields = std::array<std::string, 5>;

std::optional<Fields> FieldsOf(std::string_view text) {
    Fields fields;
    for (std::size_t i = 0; i + 1 < fields.size(); ++i) {
        const std::size_t blank = text.find(' ');
        if (blank == std::string_view::npos || blank == 0) return std::nullopt;
        fields[i] = text.substr(0, blank);
        text.remove_prefix(blank + 1);
    }
    fields.back() = text;
    return fields;
}

bool IsTime(std::string_view text) {
    constexpr std::string_view form = "0000-00-00T00:00:00Z";
    return std::ranges::equal(text, form, [](char is, char wanted) {
        return wanted == '0' ? is >= '0' && is <= '9' : is == wanted;
    });
}

// What is wrong with the line; empty: nothing, and it is in token.
std::string ReadLine(std::string_view text, Token& token) {
    const auto fields = FieldsOf(text);
    if (!fields) return "a line is HASH SCOPES REGISTER MADE NAME, with one blank between";
    const auto& [hash, scopes, registerName, made, name] = *fields;
    const auto digest = DigestIn(hash);
    if (!digest) return "the hash is not 64 hex digits in small letters";
    const auto known = ScopesIn(scopes);
    if (!known) return "the scopes are print, read and resolve, with commas between them";
    if (registerName != allRegisters && !runner::IsRegisterName(registerName))
        return "the register is a name or *";
    if (!IsTime(made)) return "the time is no time such as 2026-11-22T10:00:00Z";
    token = {name, *digest, *known, std::nullopt, made};
    if (registerName != allRegisters) token.registerName = registerName;
    return MistakeInName(name);
}

[[noreturn]] void Fail(const std::string& file, std::size_t line, const std::string& what) {
    throw TokensError("'" + file + "', line " + std::to_string(line) + ": " + what);
}

}  // namespace

std::string MistakeInName(const std::string& name) {
    if (name.empty()) return "a token needs a name";
    if (name.front() == ' ' || name.back() == ' ') return "the name begins or ends with a blank";
    std::size_t count = 0;
    for (std::string_view rest = name; !rest.empty(); ++count) {
        const char32_t character = runner::NextCharacter(rest);
        if (character == runner::noCharacter) return "the name is not UTF-8";
        if (!IsSeen(character)) return "the name has a character that cannot be seen";
    }
    if (count > longestName) return "the name has more than 64 characters";
    return "";
}

std::string ScopesText(const std::set<http::Scope>& scopes) {
    std::string text;
    for (const http::Scope scope : scopes)
        text += (text.empty() ? "" : ",") + std::string(Word(scope));
    return text;
}

std::optional<std::set<http::Scope>> ScopesIn(const std::string& text) {
    std::set<http::Scope> scopes;
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find(',', at), text.size());
        const auto scope = http::ScopeOf(text.substr(at, end - at));
        if (!scope || !scopes.insert(*scope).second) return std::nullopt;
        at = end + 1;
    }
    return scopes;
}

std::string LineOf(const Token& token) {
    return HexOf(token.digest) + " " + ScopesText(token.scopes) + " " +
           token.registerName.value_or(allRegisters) + " " + token.made + " " + token.name + "\n";
}

std::vector<Token> Parse(const std::string& text, const std::string& file) {
    std::vector<Token> all;
    std::set<std::string> names;
    std::set<Digest> digests;
    for (const Line& line : LinesOf(text)) {
        // A name may have been longer, and who has it then is somebody else.
        if (!line.whole) Fail(file, line.number, "it has no line feed: the file was cut off");
        if (!line.IsToken()) continue;
        Token token;
        const std::string mistake = ReadLine(line.text, token);
        if (!mistake.empty()) Fail(file, line.number, mistake);
        if (!names.insert(token.name).second)
            Fail(file, line.number, "a line above has the name '" + token.name + "', too");
        if (!digests.insert(token.digest).second)
            Fail(file, line.number, "a line above has the same token as '" + token.name + "'");
        all.push_back(std::move(token));
    }
    return all;
}

std::string Without(const std::string& text, const std::string& name) {
    std::string rest;
    for (const Line& line : LinesOf(text)) {
        const auto fields = line.IsToken() ? FieldsOf(line.text) : std::nullopt;
        if (!fields || fields->back() != name) rest += std::string(line.text) + "\n";
    }
    return rest;
}

}  // namespace tokens

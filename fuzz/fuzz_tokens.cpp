// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What decides who gets in, from anybody's bytes: the file of tokens is refused with a line of it,
// or read so that it is written again alike; a cookie and a field of a form are found where they
// were put, and nowhere else.

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "companion/http/Cookies.h"
#include "companion/http/Form.h"
#include "companion/tokens/Token.h"
#include "fuzz/Property.h"

namespace {

Tally tally("fuzz_tokens", "of them with a token in the file");

using tokens::Token;

void RequireLineIn(const std::string& message, const std::string& text) {
    const std::string place = "'file', line ";
    Require(message.starts_with(place), "a mistake has its line");
    const auto line = std::stoul(message.substr(place.size()));
    const auto lines = static_cast<unsigned long>(std::ranges::count(text, '\n')) + 1;
    Require(line >= 1 && line <= lines, "the line is one of the file");
    Require(std::ranges::none_of(
                message, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }),
            "nothing that a terminal would obey");
}

void RequireSound(const std::vector<Token>& all) {
    std::set<std::string> names;
    for (const Token& token : all) {
        Require(tokens::MistakeInName(token.name).empty(), "a name is one");
        Require(names.insert(token.name).second, "a name is there once");
        Require(!token.scopes.empty(), "a token is for something");
    }
}

std::string Written(const std::vector<Token>& all) {
    std::string text;
    for (const Token& token : all) text += tokens::LineOf(token);
    return text;
}

void CheckFile(const std::string& text) {
    std::vector<Token> all;
    try {
        all = tokens::Parse(text, "file");
    } catch (const tokens::TokensError& mistake) {
        return RequireLineIn(mistake.what(), text);
    }
    RequireSound(all);
    RequireEqual(Written(tokens::Parse(Written(all), "file")), Written(all),
                 "what is written is read alike");
    if (all.empty()) return;
    tally.Count();
    const auto rest = tokens::Parse(tokens::Without(text, all[0].name), "file");
    RequireEqual(Written(rest), Written({all.begin() + 1, all.end()}),
                 "one is taken out, no other");
}

void CheckCookies(const std::string& header) {
    const auto value = http::CookieIn(header, "voltis");
    if (value) {
        Require(header.find(*value) != std::string::npos, "a value is part of the header");
        Require(value->find(';') == std::string::npos, "and of one pair");
    }
    const bool broken = header.find("voltis") != std::string::npos;
    const auto ours = http::CookieIn(header + "; voltis=secret", "voltis");
    Require(broken || ours == "secret", "ours is found beside any others");
    Require(!http::CookieIn(header + ";voltis=1;voltis=2", "voltis"), "two are none");
}

void CheckForm(const std::string& body) {
    http::Request request;
    request.body = body;
    Require(!http::FormOf(request), "only a form is one");
    request.headers["content-type"] = "application/x-www-form-urlencoded";
    Require(http::FormOf(request).has_value(), "any bytes are a form");
    request.body = "_csrf=a%20b&" + body;
    RequireEqual(http::FieldOf(request, "_csrf"), "a b", "the first field of a name counts");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tally.Input();
    const std::string text = AsText(data, size);
    CheckFile(text);
    CheckCookies(text);
    CheckForm(text);
    return 0;
}

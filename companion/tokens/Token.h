// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A token lets a program use the service over the network. The file of tokens has a line for each:
//
//   HASH SCOPES REGISTER MADE NAME
//
//   a59b7e...(64 hex digits) print,read * 2026-11-22T10:00:00Z Till 1
//
// with one blank between. HASH is the SHA-256 of the token's text, prefix included; REGISTER the
// only one that it may use, or * for all; the NAME is last because it may have blanks. Empty lines,
// and those that begin with #, are for people.
#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "companion/http/Caller.h"
#include "companion/tokens/Secret.h"

namespace tokens {

/// What every token begins with, so that a search for secrets finds one in a wrong place.
inline constexpr char prefix[] = "vt_";
inline constexpr std::size_t longestName = 64;  // characters

struct Token {
    std::string name;
    Digest digest{};
    std::set<http::Scope> scopes;
    std::optional<std::string> registerName;  // none: all
    std::string made;                         // UTC
};

/// A file of tokens that cannot be used. The message names the file, and the line where it is one.
class TokensError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Why nothing may have this name; empty when it may: up to 64 characters of UTF-8 that can be
/// seen, and blanks between them.
std::string MistakeInName(const std::string& name);

/// "print,read"
std::string ScopesText(const std::set<http::Scope>& scopes);
/// Nothing: none, one twice, or another word.
std::optional<std::set<http::Scope>> ScopesIn(const std::string& text);

/// With its line feed.
std::string LineOf(const Token& token);

/// The tokens of a file with that text. TokensError: one of its lines is none, or a name or a token
/// occurs twice. Nothing of the line is in the message but a name.
std::vector<Token> Parse(const std::string& text, const std::string& file);

/// The text without the lines of the token of that name.
std::string Without(const std::string& text, const std::string& name);

}  // namespace tokens

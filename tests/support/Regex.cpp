// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/support/Regex.h"

#include <regex>

struct Regex::Compiled {
    std::regex regex;
};

namespace {

Regex::Found Copied(const std::smatch& match) {
    return {match.begin(), match.end()};
}

}  // namespace

Regex::Regex(const std::string& expression)
    : compiled_(std::make_shared<const Compiled>(Compiled{std::regex(expression)})) {}

std::optional<Regex::Found> Regex::Match(const std::string& text) const {
    std::smatch match;
    if (!std::regex_match(text, match, compiled_->regex)) return std::nullopt;
    return Copied(match);
}

std::optional<Regex::Found> Regex::Find(const std::string& text) const {
    std::smatch match;
    if (!std::regex_search(text, match, compiled_->regex)) return std::nullopt;
    return Copied(match);
}

std::vector<Regex::Found> Regex::FindAll(const std::string& text) const {
    std::vector<Found> all;
    for (std::sregex_iterator it(text.begin(), text.end(), compiled_->regex), end; it != end;
         ++it) {
        all.push_back(Copied(*it));
    }
    return all;
}

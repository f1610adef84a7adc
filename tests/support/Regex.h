// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Regular expressions (ECMAScript). Regex.cpp alone includes <regex>, which takes seconds to
// compile in every file.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

class Regex {
  public:
    /// What matched, and its groups from 1; a group that took no part is empty.
    using Found = std::vector<std::string>;

    explicit Regex(const std::string& expression);

    /// The whole text, and nothing less.
    std::optional<Found> Match(const std::string& text) const;
    /// The first place in the text.
    std::optional<Found> Find(const std::string& text) const;
    /// Every place, each after the end of the one before.
    std::vector<Found> FindAll(const std::string& text) const;

  private:
    struct Compiled;
    std::shared_ptr<const Compiled> compiled_;
};

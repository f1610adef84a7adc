// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The tokens of a file, as the file is now.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "companion/tokens/File.h"

namespace tokens {

class Book {
  public:
    explicit Book(std::string path) : path_(std::move(path)) { Refresh(); }

    /// Reads the file again if it has changed, which costs one call of the system if it has not.
    /// Throws nothing: see Trouble.
    void Refresh();

    /// Why the file cannot be used; empty when it can. As long as it cannot, nobody has a token.
    const std::string& Trouble() const { return trouble_; }

    const std::vector<Token>& All() const { return tokens_; }

    /// The token of that text; none: nullptr. Valid until the next Refresh. Every token is
    /// compared, each in the same time, so that nothing is learned from how long it takes.
    const Token* Find(std::string_view text) const { return Find(DigestOf(text)); }
    const Token* Find(const Digest& digest) const;

  private:
    void ReadAgain();
    bool IsAsItWas();

    std::string path_;
    std::vector<Token> tokens_;
    std::string trouble_;
    std::optional<Stamp> stamp_;
    bool settled_ = false;
};

}  // namespace tokens

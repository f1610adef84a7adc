// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/tokens/Book.h"

#include <chrono>
#include <exception>

namespace tokens {

namespace {

// The kernel's clock goes in steps of some milliseconds, so a file that has just changed may change
// again and look the same.
bool IsLongAgo(const Stamp& stamp) {
    constexpr std::chrono::seconds enough{2};
    return stamp.changed + enough < std::chrono::system_clock::now().time_since_epoch();
}

}  // namespace

// When nobody can tell, it is read again as soon as somebody can.
bool Book::IsAsItWas() {
    const bool settled = std::exchange(settled_, false);
    settled_ = settled && StampOf(path_) == stamp_;
    return settled_;
}

void Book::ReadAgain() {
    settled_ = false;
    tokens_.clear();
    const Content content = ReadContent(path_);
    stamp_ = content.stamp;
    settled_ = !stamp_ || IsLongAgo(*stamp_);
    tokens_ = Parse(content.text, path_);
}

void Book::Refresh() {
    try {
        if (IsAsItWas()) return;
        trouble_.clear();
        ReadAgain();
    } catch (const std::exception& failure) {
        tokens_.clear();
        trouble_ = failure.what();
    }
}

const Token* Book::Find(const Digest& digest) const {
    const Token* found = nullptr;
    for (const Token& token : tokens_)
        if (AreEqual(token.digest, digest)) found = &token;
    return found;
}

}  // namespace tokens

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The answer to an HTTP request, from the bytes that came over the line (RFC 9112).
//
// Strict: what our service never sends is refused, not guessed at. That is a body in pieces, one
// with two lengths, a folded header, and anything that is too long.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace client {

inline constexpr std::size_t longestHead = 16UL * 1024;
inline constexpr std::size_t longestBody = 1024UL * 1024;

/// What came is no answer, or is none to be relied on.
class BadAnswer : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct Answer {
    int status = 0;
    std::map<std::string, std::string> headers;  // names in small letters
    std::string body;

    /// The value of a header, named in small letters; empty: there is none.
    std::string Header(const std::string& name) const;
};

/// The answer that begins with the first byte. Nothing: it is not whole yet. isEnd: nothing more
/// comes, which is also the end of a body without a length. What follows a whole one is ignored,
/// and so are interim answers before it (status 100 to 199).
std::optional<Answer> AnswerIn(std::string_view received, bool isEnd);

}  // namespace client

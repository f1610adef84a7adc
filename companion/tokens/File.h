// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The file of tokens on disk. Whoever reads it finds it as it was before a change or after it,
// whatever happens to the program or the machine that makes the change.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "companion/tokens/Token.h"

namespace tokens {

inline constexpr char defaultFile[] = "/etc/voltis/tokens";

/// Tells one state of a file from any other, as long as the file is not changed twice in the time
/// in which the kernel's clock stands still.
struct Stamp {
    dev_t device = 0;
    ino_t file = 0;
    off_t size = 0;
    std::chrono::nanoseconds modified{0}, changed{0};  // since 1970

    bool operator==(const Stamp&) const = default;
};

/// Nothing: there is no such file. TokensError: nobody can tell, or it is no regular file.
std::optional<Stamp> StampOf(const std::string& path);

struct Content {
    std::string text;
    std::optional<Stamp> stamp;  // none: there is no such file
};

/// TokensError: it cannot be read, or is longer than any file of tokens.
Content ReadContent(const std::string& path);

/// The tokens of a file; none of one that is not there. TokensError.
std::vector<Token> Read(const std::string& path);

/// What may be chosen.
struct NewToken {
    std::string name;
    std::set<http::Scope> scopes;
    std::optional<std::string> registerName = {};
};

using Patience = std::chrono::milliseconds;  // while another program changes the file
inline constexpr Patience usualPatience{10'000};

/// Adds a token and returns its text, which is kept nowhere. A file that is not there is made, to
/// be read by its group; one that is there keeps its owner, its group and its mode. TokensError:
/// the name is no name or is taken, there is no scope, or the file cannot be used.
std::string Add(const std::string& path, const NewToken& wanted, Patience patience = usualPatience);

/// False: there is no token of that name. TokensError: the file cannot be used.
bool Revoke(const std::string& path, const std::string& name, Patience patience = usualPatience);

}  // namespace tokens

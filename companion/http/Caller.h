// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Who makes a request, and what they may do.
#pragma once

#include <optional>
#include <set>
#include <string>

namespace http {

enum class Scope { Print, Read, Resolve };

inline constexpr Scope allScopes[] = {Scope::Print, Scope::Read, Scope::Resolve};

/// "print", "read", "resolve".
const char* Word(Scope scope);
/// Nothing for another word.
std::optional<Scope> ScopeOf(const std::string& word);

struct Caller {
    std::string name;  // of the token, or of the account at the Unix socket
    std::set<Scope> scopes;
    std::optional<std::string> registerName;  // the only one that it may use; none: all

    bool May(Scope scope) const { return scopes.contains(scope); }
    bool MayUse(const std::string& wanted) const {
        return !registerName || *registerName == wanted;
    }
};

}  // namespace http

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/http/Caller.h"

namespace http {

const char* Word(Scope scope) {
    switch (scope) {
        case Scope::Print:
            return "print";
        case Scope::Read:
            return "read";
        case Scope::Resolve:
            break;
    }
    return "resolve";
}

std::optional<Scope> ScopeOf(const std::string& word) {
    for (const Scope scope : allScopes)
        if (word == Word(scope)) return scope;
    return std::nullopt;
}

}  // namespace http

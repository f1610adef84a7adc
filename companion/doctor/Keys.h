// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The keys that a configuration file may have.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace doctor {

enum class KeyKind {
    Text,
    Number,
    NoEffect,  ///< known to the driver, which does nothing with it
    Ours,      ///< of voltisctl; the driver ignores it
};

/// What counts where the key is not there; none: nothing does.
using KeyDefault = std::variant<std::monostate, int, std::string_view>;

/// Texts are as in docs/reference.md: what is typed is in backticks.
struct Key {
    std::string_view name;
    KeyKind kind;
    KeyDefault defaultValue;
    std::string_view values;  ///< those that make sense
    std::string_view meaning;
};

/// All of them.
std::span<const Key> AllKeys();
/// "none", "3", "`RIM`".
std::string DefaultText(const Key& key);
/// Null for an unknown one. Letter case does not tell keys apart.
const Key* FindKey(std::string_view name);
/// The known key that takes the fewest changes of a letter; empty when none is near.
std::string NearestKey(std::string_view name);

}  // namespace doctor

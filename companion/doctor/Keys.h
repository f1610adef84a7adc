// The keys that a configuration file may have.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace doctor {

enum class KeyKind {
    Text,
    Number,
    NoEffect,  ///< known to the driver, which does nothing with it
    Ours,      ///< of voltisctl; the driver ignores it
};

struct Key {
    std::string_view name;
    KeyKind kind;
};

/// All of them.
std::span<const Key> AllKeys();
/// Null for an unknown one. Letter case does not tell keys apart.
const Key* FindKey(std::string_view name);
/// The known key that takes the fewest changes of a letter; empty when none is near.
std::string NearestKey(std::string_view name);

}  // namespace doctor

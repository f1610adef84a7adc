// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Secrets that let somebody in, and what is kept of them.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tokens {

/// 256 bits of the system's random numbers, as 64 hex digits in small letters. std::system_error:
/// the system has none.
std::string NewSecret();

/// The SHA-256 of a secret. It needs no salt and no slow hash: nobody can try all secrets of 256
/// random bits.
using Digest = std::array<std::uint8_t, 32>;
Digest DigestOf(std::string_view secret);

/// How long this takes does not depend on what is in them.
bool AreEqual(const Digest& one, const Digest& other);

/// As 64 hex digits in small letters, and back; nothing for another text.
std::string HexOf(const Digest& digest);
std::optional<Digest> DigestIn(std::string_view hex);

}  // namespace tokens

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/tokens/Secret.h"

#include <nettle/memops.h>
#include <nettle/sha2.h>
#include <sys/random.h>

#include <cerrno>
#include <cstddef>
#include <system_error>

namespace tokens {

namespace {

constexpr char hexDigits[] = "0123456789abcdef";

// So few bytes come all at once, or not at all.
Digest RandomBytes() {
    Digest bytes{};
    ssize_t count = -1;
    do {
        count = getrandom(bytes.data(), bytes.size(), 0);
    } while (count < 0 && errno == EINTR);
    if (count != static_cast<ssize_t>(bytes.size()))
        throw std::system_error(errno, std::generic_category(), "no random numbers");
    return bytes;
}

}  // namespace

std::string NewSecret() {
    return HexOf(RandomBytes());
}

Digest DigestOf(std::string_view secret) {
    static_assert(std::tuple_size_v<Digest> == SHA256_DIGEST_SIZE);
    Digest digest{};
    sha256_ctx context;
    sha256_init(&context);
    sha256_update(&context, secret.size(), reinterpret_cast<const std::uint8_t*>(secret.data()));
    sha256_digest(&context, digest.size(), digest.data());
    return digest;
}

bool AreEqual(const Digest& one, const Digest& other) {
    return memeql_sec(one.data(), other.data(), one.size()) != 0;
}

std::string HexOf(const Digest& digest) {
    std::string hex;
    for (const std::uint8_t byte : digest) {
        hex += hexDigits[byte / 16];
        hex += hexDigits[byte % 16];
    }
    return hex;
}

std::optional<Digest> DigestIn(std::string_view hex) {
    Digest digest{};
    if (hex.size() != 2 * digest.size()) return std::nullopt;
    constexpr std::string_view digits = hexDigits;
    for (std::size_t i = 0; i < digest.size(); ++i) {
        const std::size_t high = digits.find(hex[2 * i]);
        const std::size_t low = digits.find(hex[2 * i + 1]);
        if (high == std::string_view::npos || low == std::string_view::npos) return std::nullopt;
        digest[i] = static_cast<std::uint8_t>(high * 16 + low);
    }
    return digest;
}

}  // namespace tokens

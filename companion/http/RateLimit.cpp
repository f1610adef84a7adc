// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/http/RateLimit.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>

namespace http {

std::string CountedAs(const std::string& address) {
    in6_addr parts{};
    if (inet_pton(AF_INET6, address.c_str(), &parts) != 1) return address;
    constexpr std::size_t network = 8;
    if (!IN6_IS_ADDR_V4MAPPED(&parts)) {
        const auto* const begin = std::begin(parts.s6_addr);
        return "network " + std::string(begin, begin + network);
    }
    constexpr std::size_t mapped = 12;
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, parts.s6_addr + mapped, text, sizeof text);
    return text;
}

void RateLimit::ForgetOne() {
    buckets_.erase(std::ranges::min_element(buckets_, {},
                                            [](const auto& entry) { return entry.second.filled; }));
}

RateLimit::Bucket& RateLimit::Of(const std::string& caller, Time now) {
    if (const auto known = buckets_.find(caller); known != buckets_.end()) return known->second;
    if (buckets_.size() >= callers_) ForgetOne();
    return buckets_[caller] = {atOnce_, now};
}

bool RateLimit::Take(const std::string& caller, Time now) {
    Bucket& bucket = Of(caller, now);
    const std::chrono::duration<double> since = now - bucket.filled;
    bucket.left = std::min(atOnce_, bucket.left + since.count() * aSecond_);
    bucket.filled = now;
    if (bucket.left < 1) return false;
    bucket.left -= 1;
    return true;
}

int RateLimit::RetryAfter(const std::string& caller) const {
    const auto known = buckets_.find(caller);
    if (known == buckets_.end()) return 1;
    return std::max(1, static_cast<int>(std::ceil((1 - known->second.left) / aSecond_)));
}

}  // namespace http

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// How many requests somebody may make: a bucket of tokens for each, which fills again with time.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>

namespace http {

/// As whom to count a caller of that address: one machine has all IPv6 addresses of a network, and
/// may show a new one each time.
std::string CountedAs(const std::string& address);

class RateLimit {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// So many at once, and so many a second in the long run. At most so many callers are
    /// remembered; those that have not called for longest are forgotten.
    RateLimit(double atOnce, double aSecond, std::size_t callers)
        : atOnce_(atOnce), aSecond_(aSecond), callers_(callers) {}

    /// Counts one. False: too many.
    bool Take(const std::string& caller, Time now);
    /// Seconds until the caller may call again, at least 1.
    int RetryAfter(const std::string& caller) const;

  private:
    struct Bucket {
        double left = 0;
        Time filled;
    };

    Bucket& Of(const std::string& caller, Time now);
    void ForgetOne();

    double atOnce_;
    double aSecond_;
    std::size_t callers_;
    std::map<std::string, Bucket> buckets_;
};

}  // namespace http

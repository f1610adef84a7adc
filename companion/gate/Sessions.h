// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// People who have logged in with a token and are known by a cookie from then on. Kept in memory: a
// restart ends all of them.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>

#include "companion/tokens/Secret.h"

namespace gate {

using Time = std::chrono::steady_clock::time_point;

struct Lifetime {
    std::chrono::seconds idle = std::chrono::minutes(30);   // without a request
    std::chrono::seconds longest = std::chrono::hours(12);  // with any number of them
};

struct Session {
    tokens::Digest token{};  // that it was begun with
    std::string csrf;        // what a form of its pages has in it
    Time begun, used;
};

class Sessions {
  public:
    /// So many at most; the one that was not used for longest makes room.
    Sessions(const Lifetime& lifetime, std::size_t most) : lifetime_(lifetime), most_(most) {}

    void SetLifetime(const Lifetime& lifetime) { lifetime_ = lifetime; }

    /// Returns the secret by which it is found from now on; only its hash is kept.
    std::string Begin(const tokens::Digest& token, Time now);
    /// nullptr: there is none, or it has ended.
    const Session* Find(const std::string& secret, Time now) const;
    /// It is in use.
    void Touch(const std::string& secret, Time now);
    void End(const std::string& secret);

    std::size_t Count() const { return sessions_.size(); }

  private:
    bool HasEnded(const Session& session, Time now) const;
    void MakeRoom(Time now);

    Lifetime lifetime_;
    std::size_t most_;
    std::map<tokens::Digest, Session> sessions_;  // by the hash of the secret
};

}  // namespace gate

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/gate/Sessions.h"

#include <algorithm>

namespace gate {

bool Sessions::HasEnded(const Session& session, Time now) const {
    return now - session.used >= lifetime_.idle || now - session.begun >= lifetime_.longest;
}

void Sessions::MakeRoom(Time now) {
    std::erase_if(sessions_, [&](const auto& entry) { return HasEnded(entry.second, now); });
    if (sessions_.size() < most_) return;
    sessions_.erase(std::ranges::min_element(sessions_, {},
                                             [](const auto& entry) { return entry.second.used; }));
}

std::string Sessions::Begin(const tokens::Digest& token, Time now) {
    MakeRoom(now);
    std::string secret = tokens::NewSecret();
    sessions_[tokens::DigestOf(secret)] = {token, tokens::NewSecret(), now, now};
    return secret;
}

const Session* Sessions::Find(const std::string& secret, Time now) const {
    const auto found = sessions_.find(tokens::DigestOf(secret));
    if (found == sessions_.end() || HasEnded(found->second, now)) return nullptr;
    return &found->second;
}

void Sessions::Touch(const std::string& secret, Time now) {
    const auto found = sessions_.find(tokens::DigestOf(secret));
    if (found != sessions_.end()) found->second.used = now;
}

void Sessions::End(const std::string& secret) {
    sessions_.erase(tokens::DigestOf(secret));
}

}  // namespace gate

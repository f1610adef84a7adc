// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/server/DescriptorLimit.h"

#include <algorithm>

namespace server {

namespace {

rlimit Limit() {
    rlimit limit = {RLIM_INFINITY, RLIM_INFINITY};  // where nobody may ask
    getrlimit(RLIMIT_NOFILE, &limit);
    return limit;
}

}  // namespace

std::size_t DescriptorLimit() {
    return Limit().rlim_cur;
}

void AllowDescriptors(std::size_t wanted) {
    rlimit limit = Limit();
    if (limit.rlim_cur >= wanted) return;
    limit.rlim_cur = std::min<rlim_t>(wanted, limit.rlim_max);
    setrlimit(RLIMIT_NOFILE, &limit);
}

LowerDescriptorLimit::LowerDescriptorLimit(std::size_t limit) : before_(Limit()) {
    rlimit lower = before_;
    lower.rlim_cur = std::min<rlim_t>(limit, before_.rlim_cur);
    setrlimit(RLIMIT_NOFILE, &lower);
}

LowerDescriptorLimit::~LowerDescriptorLimit() {
    setrlimit(RLIMIT_NOFILE, &before_);
}

}  // namespace server

// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// How many descriptors this process may have open, and how many those that it starts.
#pragma once

#include <sys/resource.h>

#include <cstddef>

namespace server {

/// The soft limit.
std::size_t DescriptorLimit();

/// Raises the soft limit to that, or to the hard one where that is lower. It is never lowered.
void AllowDescriptors(std::size_t wanted);

/// As long as it lives, the soft limit is that one, which new processes take over. What is open
/// stays so.
class LowerDescriptorLimit {
  public:
    explicit LowerDescriptorLimit(std::size_t limit);
    ~LowerDescriptorLimit();
    LowerDescriptorLimit(const LowerDescriptorLimit&) = delete;
    LowerDescriptorLimit& operator=(const LowerDescriptorLimit&) = delete;

  private:
    rlimit before_{};
};

}  // namespace server

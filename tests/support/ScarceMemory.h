// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Memory that is short: large requests end with std::bad_alloc.
#pragma once

#include <cstddef>

/// While it lives, operator new has no block of more than that many bytes. Link ScarceMemory.cpp.
class ScarceMemory {
  public:
    explicit ScarceMemory(std::size_t largestBlock);
    ~ScarceMemory();
    ScarceMemory(const ScarceMemory&) = delete;
    ScarceMemory& operator=(const ScarceMemory&) = delete;
};

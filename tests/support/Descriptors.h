// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Counts what the process has open, so that a test can see that nothing is left open.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

inline std::size_t OpenDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

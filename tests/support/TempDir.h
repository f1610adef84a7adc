// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Folders and files of a test.
#pragma once

#include <fstream>
#include <sstream>
#include <string>

#include "companion/runner/TempDir.h"

using runner::TempDir;

/// All bytes of a file; an absent file reads as empty.
inline std::string ReadWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream all;
    all << in.rdbuf();
    return all.str();
}

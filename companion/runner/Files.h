// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Whole files as text; whatever cannot be done is a std::runtime_error that names the file.
#pragma once

#include <string>

namespace runner {

/// All bytes of a file.
std::string ReadFile(const std::string& path);
/// Writes the bytes as they are, over what was there.
void WriteFile(const std::string& path, const std::string& bytes);

/// All bytes of a regular file; nothing when there is none. Where nobody can tell whether there is
/// one, as in a closed folder, it cannot be read.
std::string ReadFileIfAny(const std::string& path);

}  // namespace runner
